#include <gtest/gtest.h>

#include <stdexcept>

#include "lineEdit/CancelledException.h"

namespace korvane::lineEdit {
namespace {

TEST(CancelledExceptionTest, DefaultMessage) {
  const CancelledException e;
  EXPECT_STREQ(e.what(), "user cancelled input by pressing pressed Ctrl+C");
  const std::runtime_error& base = e;
  EXPECT_STREQ(base.what(), "user cancelled input by pressing pressed Ctrl+C");
}

TEST(CancelledExceptionTest, OtherMessage) {
  const CancelledException e("delete cancelled by user");
  EXPECT_STREQ(e.what(), "delete cancelled by user");
}

}  // namespace
}  // namespace korvane::lineEdit
