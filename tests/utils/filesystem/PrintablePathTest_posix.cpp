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

TEST(PrintablePathTest, BytesThatAreNotUtf8AreKept) {
  const std::string bytes = "/tmp/\xFF\xFE\x80name\x1B";
  EXPECT_EQ(toPrintable(bytes), bytes);
}

TEST(PrintablePathTest, AVeryLongPathIsKeptWhole) {
  const std::string longName = "/" + std::string(70000, 'p');
  EXPECT_EQ(toPrintable(longName), longName);
}

}  // namespace
}  // namespace korvane::utils::filesystem
