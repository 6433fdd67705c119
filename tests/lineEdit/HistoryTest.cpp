#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "lineEdit/History.h"

namespace korvane::lineEdit {
namespace {

TEST(HistoryTest, AddsNewestLast) {
  History history;
  history.add("a");
  history.add("b");
  ASSERT_EQ(history.size(), 2u);
  EXPECT_EQ(history.fromNewest(0), "b");
  EXPECT_EQ(history.fromNewest(1), "a");
}

TEST(HistoryTest, IgnoresRepeatOfNewest) {
  History history;
  history.add("a");
  history.add("a");
  history.add("");
  history.add("");
  EXPECT_EQ(history.size(), 2u);
}

TEST(HistoryTest, DropsOldestWhenFull) {
  History history;
  for (int i = 0; i < 150; ++i) history.add(std::to_string(i));
  ASSERT_EQ(history.size(), History::historyMaxLength);
  EXPECT_EQ(history.fromNewest(0), "149");
  EXPECT_EQ(history.fromNewest(99), "50");
}

TEST(HistoryTest, ZeroCapacityKeepsNothing) {
  History history(0);
  history.add("a");
  EXPECT_TRUE(history.empty());
}

TEST(HistoryTest, RemoveNewestAndReplace) {
  History history;
  history.removeNewest();  // empty: nothing happens
  history.add("a");
  history.add("b");
  history.replaceFromNewest(1, "z");
  EXPECT_EQ(history.fromNewest(1), "z");
  history.removeNewest();
  ASSERT_EQ(history.size(), 1u);
  EXPECT_EQ(history.fromNewest(0), "z");
}

TEST(HistoryTest, MoveLeavesSourceEmpty) {
  History a;
  a.add("x");
  History b = std::move(a);
  EXPECT_EQ(b.size(), 1u);
  EXPECT_TRUE(a.empty());  // NOLINT(bugprone-use-after-move)
  History c;
  c.add("old");
  c = std::move(b);
  ASSERT_EQ(c.size(), 1u);
  EXPECT_EQ(c.fromNewest(0), "x");
}

}  // namespace
}  // namespace korvane::lineEdit
