// Path conversions in the process's ANSI code page (the one the system
// gives; Wine: 1252). PathConversionUtf8Test.cpp runs the same checks with
// the process in the UTF-8 code page.
#include <windows.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <system_error>

#include "setUserPassword/PlatformConsole.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane {
namespace {

using setUserPassword::pathFromArgument;
using utils::filesystem::toPrintable;

TEST(PrintablePathTest, ForwardSlashesPrintAsBackslashes) {
  EXPECT_EQ(toPrintable(L"C:/ProgramData/Korvane/Config/users.json"),
            "C:\\ProgramData\\Korvane\\Config\\users.json");
  EXPECT_EQ(toPrintable(L"dir/sub\\file"), "dir\\sub\\file");
  EXPECT_EQ(toPrintable(std::filesystem::path(L"a") / L"b"), "a\\b");
  EXPECT_EQ(toPrintable(L""), "");
}

TEST(PrintablePathTest, AnsiCharactersOfTheCodePage) {
  if (::GetACP() != 1252) GTEST_SKIP() << "ANSI code page " << ::GetACP();
  EXPECT_EQ(toPrintable(L"C:/caf\u00e9"), "C:\\caf\xe9");
}

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
