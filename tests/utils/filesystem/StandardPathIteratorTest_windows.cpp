// StandardPathIterator on Windows: the configuration location is
// %ProgramData%, once.
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <iterator>

#include "utils/filesystem/StandardPathIterator.h"

namespace korvane {
namespace {

TEST(StandardPathIteratorTest, YieldsProgramDataOnce) {
  wchar_t programData[MAX_PATH] = {};
  ASSERT_GT(::GetEnvironmentVariableW(L"ProgramData", programData, MAX_PATH), 0u);
  utils::filesystem::StandardPathIterator it(utils::filesystem::StandardPath::configuration);
  ASSERT_FALSE(it == std::default_sentinel);
  EXPECT_TRUE(std::filesystem::equivalent(*it, programData)) << it->string();
  EXPECT_TRUE(it->is_absolute());
  ++it;
  EXPECT_TRUE(it == std::default_sentinel);
}

}  // namespace
}  // namespace korvane
