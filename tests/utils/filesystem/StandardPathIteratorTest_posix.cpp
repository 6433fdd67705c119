#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "utils/filesystem/StandardPathIterator.h"

namespace korvane::utils::filesystem {
namespace {

class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    if (value) {
      ::setenv(name, value->c_str(), 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~ScopedEnvironment() {
    if (old_) {
      ::setenv(name_, old_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

std::vector<std::string> configurationBases() {
  std::vector<std::string> bases;
  for (StandardPathIterator it(StandardPath::configuration); it != std::default_sentinel; ++it) {
    bases.push_back(it->string());
  }
  return bases;
}

using Bases = std::vector<std::string>;

TEST(StandardPathIteratorTest, DefaultsToEtcXdg) {
  ScopedEnvironment unset("XDG_CONFIG_DIRS", std::nullopt);
  EXPECT_EQ(configurationBases(), Bases{"/etc/xdg"});
  ScopedEnvironment empty("XDG_CONFIG_DIRS", "");
  EXPECT_EQ(configurationBases(), Bases{"/etc/xdg"});
}

TEST(StandardPathIteratorTest, FollowsXdgConfigDirsInOrder) {
  ScopedEnvironment set("XDG_CONFIG_DIRS", "/opt/a:/etc/b::/c");
  EXPECT_EQ(configurationBases(), (Bases{"/opt/a", "/etc/b", "/c"}));
}

TEST(StandardPathIteratorTest, IgnoresRelativeEntries) {
  ScopedEnvironment set("XDG_CONFIG_DIRS", "relative:./x:/abs");
  EXPECT_EQ(configurationBases(), Bases{"/abs"});
  ScopedEnvironment onlyRelative("XDG_CONFIG_DIRS", "relative:.");
  EXPECT_EQ(configurationBases(), Bases{"/etc/xdg"});
}

TEST(StandardPathIteratorTest, NeverEmpty) {
  ScopedEnvironment set("XDG_CONFIG_DIRS", ":::");
  StandardPathIterator it(StandardPath::configuration);
  EXPECT_FALSE(it == std::default_sentinel);
  EXPECT_EQ(it->string(), "/etc/xdg");
}

}  // namespace
}  // namespace korvane::utils::filesystem
