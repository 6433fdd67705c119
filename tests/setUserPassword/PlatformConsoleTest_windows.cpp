// pathFromArgument on Windows: option values through the process's ANSI
// code page (the one the system gives; Wine: 1252) and through the OEM one.
// PlatformConsoleUtf8Test_windows.cpp runs them with the process in the
// UTF-8 code page.
#include "setUserPassword/PlatformConsole.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <system_error>

#include "utils/filesystem/PrintablePath.h"

namespace korvane {
namespace {

using setUserPassword::pathFromArgument;
using utils::filesystem::toPrintable;

TEST(PathFromArgumentTest, AsciiIsTakenAsItIs) {
  EXPECT_EQ(pathFromArgument("C:/Korvane/users.json").native(), L"C:/Korvane/users.json");
  EXPECT_EQ(pathFromArgument("-Remove").native(), L"-Remove");
  EXPECT_EQ(pathFromArgument("").native(), L"");
}

TEST(PathFromArgumentTest, AnsiBytesThroughTheCodePage) {
  if (::GetACP() != 1252) GTEST_SKIP() << "ANSI code page " << ::GetACP();
  ASSERT_TRUE(::AreFileApisANSI());
  EXPECT_EQ(pathFromArgument("caf\xe9").native(), L"caf\u00e9");
  EXPECT_EQ(toPrintable(pathFromArgument("x/caf\xe9")), "x\\caf\xe9");
}

TEST(PathFromArgumentTest, OemCodePageWhenTheFileApisAreSwitchedToOem) {
  if (::GetOEMCP() != 437) GTEST_SKIP() << "OEM code page " << ::GetOEMCP();
  ::SetFileApisToOEM();
  const std::wstring converted = pathFromArgument("caf\x82").native();
  const std::string printed = toPrintable(L"caf\u00e9");
  ::SetFileApisToANSI();
  EXPECT_EQ(converted, L"caf\u00e9");  // 0x82 is e acute in code page 437
  EXPECT_EQ(printed, "caf\x82");
}

}  // namespace
}  // namespace korvane
