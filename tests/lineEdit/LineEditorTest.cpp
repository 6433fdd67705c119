#include <gtest/gtest.h>

#include "lineEdit/LineEditor.h"

namespace korvane::lineEdit {
namespace {

TEST(LineEditorTest, OptionsDefaultToUnmaskedSingleLine) {
  const LineEditorOptions options;
  EXPECT_FALSE(options.multiLine);
  EXPECT_EQ(options.reserved, 0u);
  EXPECT_FALSE(options.masked);
  EXPECT_EQ(options.maskCharacter, '*');
}

}  // namespace
}  // namespace korvane::lineEdit
