// toPrintable on Windows: paths print with "\" and in the process's ANSI
// code page (the UTF-8 code page is tested in
// tests/setUserPassword/PlatformConsoleUtf8Test_windows.cpp).
#include "utils/filesystem/PrintablePath.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace korvane {
namespace {

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

}  // namespace
}  // namespace korvane
