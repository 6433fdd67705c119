#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::filesystem {
namespace {

TEST(PrintablePathTest, KeepsTheNativeForm) {
  EXPECT_EQ(toPrintable("/a/b\\c d/\xC3\xA9.json"), "/a/b\\c d/\xC3\xA9.json");
  EXPECT_EQ(toPrintable("relative/x"), "relative/x");
  EXPECT_EQ(toPrintable("./dir//file/"), "./dir//file/");
  EXPECT_EQ(toPrintable(""), "");
}

TEST(PrintablePathTest, ForwardSlashesStaySlashes) {
  const std::filesystem::path path = std::filesystem::path("/etc") / "korvane" / "users.json";
  EXPECT_EQ(toPrintable(path), "/etc/korvane/users.json");
}

TEST(PrintablePathTest, BackslashIsAnOrdinaryCharacter) {
  // One file name with backslashes in it, inside a folder.
  const std::filesystem::path path = std::filesystem::path("/srv") / "C:\\Korvane\\users.json";
  EXPECT_EQ(std::distance(path.begin(), path.end()), 3);
  EXPECT_EQ(toPrintable(path), "/srv/C:\\Korvane\\users.json");
  EXPECT_EQ(toPrintable("\\\\server\\share"), "\\\\server\\share");
}

TEST(PrintablePathTest, BytesThatAreNotUtf8ShowAsHex) {
  EXPECT_EQ(toPrintable("/tmp/\xFF\xFE\x80name"), "/tmp/\\xff\\xfe\\x80name");
  EXPECT_EQ(toPrintable("/etc/korvane/pw-\xFF.json"), "/etc/korvane/pw-\\xff.json");
  // A surrogate in UTF-8 form and a cut sequence at the end.
  EXPECT_EQ(toPrintable("/a/\xED\xA0\x80/b\xE4\xB8"), "/a/\\xed\\xa0\\x80/b\\xe4\\xb8");
}

TEST(PrintablePathTest, ControlCharactersShowAsHex) {
  EXPECT_EQ(toPrintable("/tmp/a\nb\x7F"), "/tmp/a\\x0ab\\x7f");
  EXPECT_EQ(toPrintable("/tmp/\xC2\x85next"), "/tmp/\\xc2\\x85next");
  // A name that would set the terminal's title keeps no ESC and no BEL.
  EXPECT_EQ(toPrintable("/tmp/\x1B]0;owned\x07/users.json"), "/tmp/\\x1b]0;owned\\x07/users.json");
}

TEST(PrintablePathTest, AHexLookalikeStandsAsItIs) {
  // Only the bytes decide: "\xff" typed as four characters is kept.
  EXPECT_EQ(toPrintable("/tmp/\\xff"), "/tmp/\\xff");
}

TEST(PrintablePathTest, AVeryLongPathIsKeptWhole) {
  const std::string longName = "/" + std::string(70000, 'p');
  EXPECT_EQ(toPrintable(longName), longName);
}

}  // namespace
}  // namespace korvane::utils::filesystem
