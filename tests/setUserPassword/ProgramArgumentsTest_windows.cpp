// The arguments and option values on Windows, in a program that runs in the
// code page the system gives (Wine: 1252), as where a manifest's UTF-8 code
// page is not honoured: the arguments come from the wide command line and
// option values become paths from UTF-8, so that no character outside the
// code page is changed ("Ł" best-fit mapped to "L", CJK letters to "?").
// ProgramArgumentsUtf8Test_windows.cpp runs the paths with the process in the
// UTF-8 code page.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "setUserPassword/ProgramArguments.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane {
namespace {

using setUserPassword::commandLineArguments;
using setUserPassword::pathFromArgument;
using utils::filesystem::toPrintable;

// Set for the copy of this program that CommandLineArgumentsTest starts: it
// prints what commandLineArguments made of its command line and ends before
// any test runs.
constexpr const wchar_t* childVariable = L"KORVANE_PRINT_ARGUMENTS";

const bool childPrinted = [] {
  if (::GetEnvironmentVariableW(childVariable, nullptr, 0) == 0) return false;
  std::string text;
  try {
    const std::vector<std::string> arguments = commandLineArguments(0, nullptr);
    for (std::size_t i = 1; i < arguments.size(); ++i) text += arguments[i] + "\n";
  } catch (const std::system_error& error) {
    text = "error " + std::to_string(error.code().value()) + "\n";
  }
  DWORD written = 0;
  ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), text.data(), static_cast<DWORD>(text.size()),
              &written, nullptr);
  std::exit(0);
}();

// Runs this program with `arguments` (written as on a command line) and
// returns what its copy printed.
std::string argumentsOfChild(const std::wstring& arguments) {
  wchar_t self[MAX_PATH];
  const DWORD length = ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  EXPECT_GT(length, 0u);
  std::wstring commandLine = L"\"" + std::wstring(self, length) + L"\" " + arguments;
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  EXPECT_TRUE(::CreatePipe(&readEnd, &writeEnd, &inherit, 0));
  ::SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = ::GetStdHandle(STD_INPUT_HANDLE);
  startup.hStdOutput = writeEnd;
  startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  ::SetEnvironmentVariableW(childVariable, L"1");
  const BOOL started = ::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0,
                                        nullptr, nullptr, &startup, &process);
  ::SetEnvironmentVariableW(childVariable, nullptr);
  ::CloseHandle(writeEnd);
  std::string printed;
  if (started) {
    char buffer[4096];
    DWORD got = 0;
    while (::ReadFile(readEnd, buffer, sizeof(buffer), &got, nullptr) && got > 0) {
      printed.append(buffer, got);
    }
    ::WaitForSingleObject(process.hProcess, INFINITE);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
  } else {
    ADD_FAILURE() << "CreateProcessW failed: " << ::GetLastError();
  }
  ::CloseHandle(readEnd);
  return printed;
}

TEST(CommandLineArgumentsTest, WideArgumentsArriveAsUtf8) {
  ASSERT_FALSE(childPrinted);
  ASSERT_NE(::GetACP(), static_cast<UINT>(CP_UTF8)) << "this program must run in an ANSI code page";
  EXPECT_EQ(argumentsOfChild(L"\u0141ukasz Lukasz J\u00fcrgen \u5c71\u7530 \"-ConfigDir\" "
                             L"\"C:\\\u914d\u7f6e-\u0141\u00f3d\u017a\\a b\" \U0001F511"),
            "Łukasz\nLukasz\nJürgen\n山田\n-ConfigDir\nC:\\配置-Łódź\\a b\n🔑\n");
}

TEST(CommandLineArgumentsTest, AnUnpairedSurrogateIsAnErrorNotAnotherName) {
  EXPECT_EQ(argumentsOfChild(std::wstring(L"a") + wchar_t(0xD800) + L"b"),
            "error " + std::to_string(ERROR_NO_UNICODE_TRANSLATION) + "\n");
}

TEST(PathFromArgumentTest, AsciiIsTakenAsItIs) {
  EXPECT_EQ(pathFromArgument("C:/Korvane/users.json").native(), L"C:/Korvane/users.json");
  EXPECT_EQ(pathFromArgument("-Remove").native(), L"-Remove");
  EXPECT_EQ(pathFromArgument("").native(), L"");
}

TEST(PathFromArgumentTest, Utf8WhateverTheCodePages) {
  const std::string argument = "C:/配置-Łódź/users.json";
  const std::wstring expected = L"C:/\u914d\u7f6e-\u0141\u00f3d\u017a/users.json";
  EXPECT_EQ(pathFromArgument(argument).native(), expected);
  EXPECT_EQ(toPrintable(pathFromArgument(argument)), "C:\\配置-Łódź\\users.json");
  ::SetFileApisToOEM();
  const std::wstring underOem = pathFromArgument(argument).native();
  ::SetFileApisToANSI();
  EXPECT_EQ(underOem, expected);
}

TEST(PathFromArgumentTest, BytesThatAreNoUtf8ThrowSystemErrors) {
  // "caf\xe9" is "café" in code page 1252, but no UTF-8: never guessed.
  for (const std::string& bad : {std::string("caf\xe9"), std::string("\xc3"),
                                 std::string("\xc0\xaf"), std::string("\xed\xa0\x80")}) {
    try {
      pathFromArgument(bad);
      ADD_FAILURE() << "no error for an invalid sequence";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), ERROR_NO_UNICODE_TRANSLATION);
      EXPECT_EQ(error.code().category(), std::system_category());
    }
  }
}

}  // namespace
}  // namespace korvane
