// toPrintable on Windows: paths print with "\" and in UTF-8, whatever the
// process's code pages (this program runs in the one the system gives;
// Wine: 1252).
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "utils/filesystem/PrintablePath.h"

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

TEST(PrintablePathTest, EveryCharacterInUtf8WhateverTheCodePage) {
  // In the ANSI code page 1252 "Ł" would print as "L", and the CJK letters
  // and U+1F511 as "?". (Narrow literals are UTF-8: the sources are.)
  EXPECT_EQ(toPrintable(L"C:/caf\u00e9/\u914d\u7f6e-\u0141\u00f3d\u017a/\U0001F511.json"),
            "C:\\café\\配置-Łódź\\🔑.json");
  ::SetFileApisToOEM();
  const std::string underOem = toPrintable(L"x/\u0141ukasz");
  ::SetFileApisToANSI();
  EXPECT_EQ(underOem, "x\\Łukasz");
}

TEST(PrintablePathTest, ControlCharactersShowAsHex) {
  // NTFS allows none of C0 in a name, but other file systems and the
  // paths given on the command line may hold them; C1 and DEL it allows.
  EXPECT_EQ(toPrintable(L"C:/x/\u001b]0;owned\u0007/users.json"),
            "C:\\x\\\\x1b]0;owned\\x07\\users.json");
  EXPECT_EQ(toPrintable(L"a\u0085b\u007fc\u009bd"), "a\\xc2\\x85b\\x7fc\\xc2\\x9bd");
  EXPECT_EQ(toPrintable(L"C:/pw-\u00ff.json"), "C:\\pw-\u00ff.json");
}

TEST(PrintablePathTest, AnUnpairedSurrogateIsAnErrorNotAnotherName) {
  try {
    toPrintable(std::wstring(L"a") + wchar_t(0xD800) + L"b");
    ADD_FAILURE() << "no error";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ERROR_NO_UNICODE_TRANSLATION);
  }
}

}  // namespace
}  // namespace korvane
