// pathFromArgument and toPrintable with the process in the UTF-8 code page:
// this program is linked with a manifest that asks for it (activeCodePage
// UTF-8, ProgramArgumentsUtf8Test_windows.rc).
#include <gtest/gtest.h>
#include <windows.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>

#include "setUserPassword/ProgramArguments.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane {
namespace {

using setUserPassword::pathFromArgument;
using utils::filesystem::toPrintable;

class ProgramArgumentsUtf8Test : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::GetACP(), static_cast<UINT>(CP_UTF8)); }
};

TEST_F(ProgramArgumentsUtf8Test, AsciiRoundTrips) {
  const std::string argument = "C:/Korvane/Config/users.json";
  const std::filesystem::path path = pathFromArgument(argument);
  EXPECT_EQ(path.native(), L"C:/Korvane/Config/users.json");
  EXPECT_EQ(toPrintable(path), "C:\\Korvane\\Config\\users.json");
}

TEST_F(ProgramArgumentsUtf8Test, Utf8RoundTrips) {
  // e acute (2 bytes), euro sign (3 bytes), an emoji outside the BMP (4 bytes).
  const std::string argument = "D:\\caf\xc3\xa9\\\xe2\x82\xac\\\xf0\x9f\x94\x91.json";
  const std::filesystem::path path = pathFromArgument(argument);
  EXPECT_EQ(path.native(), L"D:\\caf\u00e9\\\u20ac\\\U0001F511.json");
  EXPECT_EQ(toPrintable(path), argument);
}

TEST_F(ProgramArgumentsUtf8Test, InvalidSequencesThrowSystemErrors) {
  for (const std::string& bad : {std::string("a\xff"), std::string("\xc3"), std::string("\xc0\xaf"),
                                 std::string("\xed\xa0\x80")}) {
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
