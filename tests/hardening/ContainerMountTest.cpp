// The password file as container runtimes provide it: a single file
// bind-mounted over a file of the installation. rename(2) cannot replace a
// mount point (EBUSY), so the program must copy the new content into the
// mounted file in place. Run for real in a private mount namespace
// (unshare --mount, mount --bind; the superuser's privilege); where the
// system refuses that, the tests report themselves skipped with the reason.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "tests/hardening/Installation.h"

namespace korvane::hardening {
namespace {

using testing::ChildProcess;
using testing::ChildResult;

constexpr int userCount = 3;
constexpr int changedUser = 1;
constexpr int extraMembers = 3000;
constexpr uid_t hostOwner = 65534;  // "nobody"

// Runs `command` in a private mount namespace after bind-mounting `source`
// over `mountPoint` there; `preload` is preloaded into the command only.
ChildResult runWithBindMount(const std::filesystem::path& source,
                             const std::filesystem::path& mountPoint,
                             std::vector<std::string> command, Environment environment,
                             std::string_view input, const std::string& preload = "") {
  static constexpr const char* script =
      R"(mount --bind "$1" "$2" || exit 125
shift 2
if [ -n "$KORVANE_TEST_PRELOAD" ]; then export LD_PRELOAD="$KORVANE_TEST_PRELOAD"; fi
exec "$@")";
  ChildProcess::Options options;
  options.arguments = {"--mount", "--propagation", "private",          "/bin/sh", "-c", script,
                       "sh",      source.string(), mountPoint.string()};
  options.arguments.insert(options.arguments.end(), command.begin(), command.end());
  options.environment = std::move(environment);
  options.environment["PATH"] = "/usr/sbin:/usr/bin:/sbin:/bin";
  options.environment["KORVANE_TEST_PRELOAD"] = preload;
  options.timeout = std::chrono::seconds(60);
  ChildProcess child("/usr/bin/unshare", std::move(options));
  child.send(input);
  child.closeInput();
  return child.wait();
}

struct FileIdentity {
  ino_t inode = 0;
  unsigned mode = 0;
  uid_t owner = 0;
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

FileIdentity identity(const std::filesystem::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  return {status.st_ino, status.st_mode & 07777u, status.st_uid};
}

std::vector<std::string> names(const std::filesystem::path& directory) {
  std::vector<std::string> result;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    result.push_back(entry.path().filename().string());
  }
  std::sort(result.begin(), result.end());
  return result;
}

// Problems with `path` as the complete new password file.
std::string checkNewContent(const std::filesystem::path& path) {
  return checkNewPasswordFile(path, 1 + userCount + extraMembers, changedUser, strongPassword);
}

class ContainerMountTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) KORVANE_SKIP_OR_FAIL_UNDER_CI("mount namespaces need the superuser");
    // Can this system give us a private mount namespace with a bind mount?
    const std::filesystem::path probeSource = host_.path() / "probe-source";
    const std::filesystem::path probeTarget = host_.path() / "probe-target";
    testing::writeFile(probeSource, "");
    testing::writeFile(probeTarget, "");
    const ChildResult probe = runWithBindMount(probeSource, probeTarget, {"/bin/true"}, {}, "");
    std::filesystem::remove(probeSource);
    std::filesystem::remove(probeTarget);
    if (probe.exitStatus != 0) {
      GTEST_SKIP() << "no private mount namespace with a bind mount here (status "
                   << probe.exitStatus << "): " << probe.err;
    }
    // The installation's password file is the empty mount point a container
    // runtime creates; the real one lives on the host and is mounted over it.
    installation_.writePasswords({0, 1, 2}, extraMembers);
    std::filesystem::copy_file(installation_.passwordsPath(), hostFile());
    testing::writeFile(installation_.passwordsPath(), "");
    ASSERT_EQ(::chown(hostFile().c_str(), hostOwner, hostOwner), 0);
    ASSERT_EQ(::chmod(hostFile().c_str(), 0640), 0);
    before_ = identity(hostFile());
  }

  std::filesystem::path hostFile() const { return host_.path() / "passwords.json"; }

  ChildResult run(Environment environment = isolatedEnvironment(),
                  const std::string& preload = "") {
    std::vector<std::string> command{programPath().string()};
    const std::vector<std::string> arguments = installation_.arguments(changedUser, false);
    command.insert(command.end(), arguments.begin(), arguments.end());
    const ChildResult result =
        runWithBindMount(hostFile(), installation_.passwordsPath(), command, std::move(environment),
                         std::string(strongPassword) + "\n", preload);
    std::cout << "[ program  ] status " << result.exitStatus << "\n"
              << result.out << result.err << std::flush;
    return result;
  }

  Installation installation_{userCount};
  testing::TemporaryDirectory host_;
  FileIdentity before_;
};

TEST_F(ContainerMountTest, BindMountedPasswordFileIsReplacedInPlace) {
  const ChildResult result = run();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_NE(result.out.find("Password for user \"" + Installation::userName(changedUser) +
                            "\" was updated."),
            std::string::npos);
  // The host's file holds the new content and is the same file, with its
  // mode and owner.
  EXPECT_EQ(checkNewContent(hostFile()), "");
  EXPECT_EQ(identity(hostFile()), before_);
  // The mount point underneath is untouched, and nothing is left behind.
  EXPECT_EQ(testing::readFile(installation_.passwordsPath()), "");
  EXPECT_EQ(names(installation_.directory()),
            (std::vector<std::string>{"passwords.json", "users.json"}));
  EXPECT_EQ(names(host_.path()), std::vector<std::string>{"passwords.json"});
}

TEST_F(ContainerMountTest, FailedCopyIntoTheMountKeepsTheCompleteNewFile) {
  // The first fsync makes the temporary file durable; the second is the
  // copy's, on the mounted file.
  Environment environment = isolatedEnvironment();
  environment["KORVANE_FAULT"] = "fsync:2:EIO";
  environment["KORVANE_FAULT_DIR"] = installation_.directory().string();
  const char* asanOptions = std::getenv("ASAN_OPTIONS");
  environment["ASAN_OPTIONS"] = std::string(asanOptions ? asanOptions : "") +
                                (asanOptions ? ":" : "") + "verify_asan_link_order=0";
  const ChildResult result = run(std::move(environment), KORVANE_FAULT_LIBRARY);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.out.find("\" was updated."), std::string::npos);
  const std::vector<std::string> left = names(installation_.directory());
  ASSERT_EQ(left.size(), 3u);
  const std::filesystem::path temporary = installation_.directory() / left[1];
  ASSERT_TRUE(left[1].starts_with("passwords.json.")) << left[1];
  EXPECT_EQ(checkNewContent(temporary), "");
  const std::string target = "\"" + installation_.passwordsPath().string() + "\"";
  EXPECT_EQ(result.err, "ERROR: could not copy \"" + temporary.string() + "\" over " + target +
                            " in place (rename: Device or resource busy): " + target +
                            " may be incomplete, the complete new file remains at \"" +
                            temporary.string() + "\"; could not sync " + target +
                            ": Input/output error\n");
  EXPECT_EQ(identity(hostFile()), before_);
}

}  // namespace
}  // namespace korvane::hardening
