// The public JSON parsing suite as password files: every file of it that
// the tool accepts (an object whose members all have string values) is
// rewritten, a hash set and a removal, by the streamed copy (through the
// default buffer and one of 3 bytes) and through rewrite(), and each must
// write what the reference writes (the file decoded whole, changed in
// memory and encoded again). Every file it refuses must be refused by the
// copy, with the reference's message.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "setUserPassword/PasswordFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PasswordFileReference.h"
#include "tests/utils/json/ConformanceSuite.h"

namespace korvane::setUserPassword {
namespace {

using korvane::testing::copyPass;
using korvane::testing::PassOutcome;
using korvane::testing::referencePass;
using utils::core::Uuid;

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
    EXPECT_EQ(copyPass(text), checked) << name;
    EXPECT_EQ(copyPass(text, nullptr, 3), checked) << name;
    if (!checked.accepted) {
      ++refused;
      continue;
    }
    ++accepted;
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
        EXPECT_EQ(copyPass(text, &change), expected) << name;
        EXPECT_EQ(copyPass(text, &change, 3), expected) << name;
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
