#include "utils/filesystem/PrintablePath.h"

#include <gtest/gtest.h>

namespace korvane::utils::filesystem {
namespace {

TEST(PrintablePathTest, KeepsTheNativeForm) {
  EXPECT_EQ(toPrintable("/a/b\\c d/\xC3\xA9.json"), "/a/b\\c d/\xC3\xA9.json");
  EXPECT_EQ(toPrintable("relative/x"), "relative/x");
}

}  // namespace
}  // namespace korvane::utils::filesystem
