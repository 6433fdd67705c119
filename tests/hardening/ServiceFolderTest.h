// ServiceFolderTest: the setting of the attacks on runs of root. The
// installation's folder belongs to the user nobody (as a service's own
// folder would; nobody plays the attacker), root runs the program on it,
// and root has a folder of its own with a script in it, which no run may
// ever touch.
//
// Thread safety: one test, one thread. POSIX only.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tests/hardening/Attacker.h"
#include "tests/hardening/Installation.h"

namespace korvane::hardening {

inline const std::string victimContent = "#!/bin/sh\necho the administrator's own script\n";

class ServiceFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) KORVANE_SKIP_OR_FAIL_UNDER_CI("the attacks are on runs of root");
    installation_.writePasswords({0}, 2);
    original_ = testing::readFile(installation_.passwordsPath());
    // The service's folder: its account may change anything in it.
    ASSERT_EQ(::chown(folder().c_str(), nobody, nogroup), 0);
    ASSERT_EQ(::chmod(folder().c_str(), 0755), 0);
    // Root's own folder and script, which nobody may not write.
    ASSERT_EQ(::chmod(rootOnly_.path().c_str(), 0755), 0);
    testing::writeFile(victim(), victimContent);
    ASSERT_EQ(::chmod(victim().c_str(), 0700), 0);
  }

  const std::filesystem::path& folder() const { return installation_.directory(); }
  std::filesystem::path passwords() const { return installation_.passwordsPath(); }
  std::filesystem::path users() const { return installation_.usersPath(); }
  std::filesystem::path victim() const { return rootOnly_.path() / "maintenance.sh"; }

  testing::ChildProcess::Options options(std::vector<std::string> arguments) const {
    testing::ChildProcess::Options options;
    options.arguments = std::move(arguments);
    options.environment = isolatedEnvironment();
    options.timeout = std::chrono::seconds(40);
    return options;
  }
  std::vector<std::string> configDirArguments() const {
    return {"-ConfigDir", folder().string(), Installation::userName(0)};
  }

  // The program with `password` on redirected input, to its end.
  static testing::ChildResult runRedirected(testing::ChildProcess::Options options,
                                            std::string_view password = strongPassword) {
    testing::ChildProcess tool(programPath(), std::move(options));
    tool.send(std::string(password) + "\n");
    tool.closeInput();
    return tool.wait();
  }
  testing::ChildResult runRedirected() const {
    return runRedirected(options(configDirArguments()));
  }

  // Root's folder holds `names` and nothing else, and its script is as it
  // was, root's and private.
  void expectRootsFolderHolds(std::vector<std::string> names) const {
    EXPECT_EQ(testing::readFile(victim()), victimContent) << "root's script was replaced";
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(rootOnly_.path())) {
      found.push_back(entry.path().filename().string());
    }
    std::sort(found.begin(), found.end());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(found, names) << "root's folder changed";
    struct stat status {};
    ASSERT_EQ(::stat(victim().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 0u);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
  }
  void expectRootsFolderUntouched() const { expectRootsFolderHolds({"maintenance.sh"}); }

  Installation installation_{1};
  testing::TemporaryDirectory rootOnly_;
  std::string original_;
};

}  // namespace korvane::hardening
