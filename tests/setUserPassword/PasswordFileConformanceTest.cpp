// The public JSON parsing suite as password files: every file of it that
// the tool accepts (an object whose members all have string values) is
// rewritten, a hash set and a removal, by both streamed passes and through
// rewrite(), and each must write what the reference writes (the file
// decoded whole, changed in memory and encoded again). Every file it
// refuses must be refused by both passes, with the reference's message.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "setUserPassword/PasswordFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PasswordFileReference.h"
#include "tests/utils/json/ConformanceSuite.h"
#include "tests/utils/json/MemoryStreams.h"

namespace korvane::setUserPassword {
namespace {

using korvane::testing::exactPass;
using korvane::testing::PassOutcome;
using korvane::testing::referencePass;
using korvane::testing::skimPass;
using utils::core::Uuid;
using utils::json::test::PieceReader;

TEST(PasswordFileConformanceTest, PublicParsingSuiteRewritesAsTheReference) {
  const std::filesystem::path folder = utils::json::test::conformanceSuiteFolder();
  if (folder.empty()) {
    GTEST_SKIP()
        << "the public JSON parsing suite is not present (KORVANE_SOURCE_DIR/../shared/testdata)";
  }
  korvane::testing::TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const Uuid absent = *Uuid::fromString("3f2504e0-4f89-41d3-9a0c-0305e82c3301");
  int accepted = 0;
  int refused = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    const std::string text = utils::json::test::readWholeFile(entry.path());
    const PassOutcome checked = referencePass(text);
    EXPECT_EQ(exactPass(text), checked) << name;
    if (!checked.accepted) {
      ++refused;
      EXPECT_FALSE(skimPass(PieceReader(text)).has_value()) << name;
      continue;
    }
    ++accepted;
    const bool skimChecks = skimPass(PieceReader(text)).has_value();
    // The changes: the UUID of a member that has one, if any, and one that
    // is absent, each set and removed.
    std::vector<Uuid> uuids{absent};
    for (const auto& member : korvane::testing::decodePasswordFile(text)) {
      if (member.uuid) uuids.push_back(*member.uuid);
    }
    for (const Uuid& uuid : uuids) {
      for (const std::optional<std::string_view> hash :
           {std::optional<std::string_view>("$6$salt$hash"), std::optional<std::string_view>()}) {
        const PasswordChange change{uuid, hash};
        const PassOutcome expected = referencePass(text, &change);
        ASSERT_TRUE(expected.accepted) << name;
        EXPECT_EQ(exactPass(text, &change), expected) << name;
        const std::optional<std::string> skimmed = skimPass(PieceReader(text), &change);
        if (skimmed) {
          EXPECT_EQ(*skimmed, expected.text) << name;
          // Writing needs more of the skim than checking does, never less.
          EXPECT_TRUE(skimChecks) << name;
        }
        const std::optional<std::string> pieces = skimPass(PieceReader(text, 1, 3), &change, 16);
        if (pieces) {
          EXPECT_EQ(*pieces, expected.text) << name;
        }
        korvane::testing::writeFile(path, text);
        PasswordFile(path).rewrite(change);
        EXPECT_EQ(korvane::testing::readFile(path), expected.text) << name;
      }
    }
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()),
                          std::filesystem::directory_iterator()),
            1);
  // The suite holds a handful of objects of strings among its files.
  EXPECT_GE(accepted, 5);
  EXPECT_GT(refused, 200);
}

}  // namespace
}  // namespace korvane::setUserPassword
