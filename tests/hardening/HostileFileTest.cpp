// Hostile or broken configuration files and password input: every run must
// end quickly, within a bounded amount of memory, with a clear "ERROR: "
// line (or succeed where the file is valid after all), and never crash,
// hang or change the password file.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/hardening/Installation.h"

#if defined(__SANITIZE_ADDRESS__)
#define KORVANE_HARDENING_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KORVANE_HARDENING_ASAN 1
#endif
#endif

namespace korvane::hardening {
namespace {

using Clock = std::chrono::steady_clock;
using testing::ChildProcess;
using testing::ChildResult;

// Generous bounds that still tell a hang from work: unoptimised and
// instrumented builds copy a 50 MB string many times slower.
#if defined(KORVANE_HARDENING_ASAN)
constexpr auto timeLimit = std::chrono::seconds(60);
#elif !defined(NDEBUG)
constexpr auto timeLimit = std::chrono::seconds(30);
#else
constexpr auto timeLimit = std::chrono::seconds(10);
#endif
// Strings that dwarf any real file; smaller where the build is slow.
#if defined(NDEBUG)
constexpr std::size_t hugeString = 50 * 1024 * 1024;
#else
constexpr std::size_t hugeString = 10 * 1024 * 1024;
#endif
// The address space the program may use; a sanitizer runtime reserves far
// more, so instrumented builds run without the limit.
constexpr const char* addressSpaceLimit = "--as=536870912";

struct Timed {
  ChildResult result;
  std::chrono::milliseconds elapsed;
};

// Runs the program under the address-space limit with `input` as standard
// input: a file to redirect from, or the strong password through a pipe.
Timed runLimited(std::vector<std::string> arguments, const std::string& inputFile = "") {
  std::vector<std::string> command;
#ifndef KORVANE_HARDENING_ASAN
  command = {"/usr/bin/prlimit", addressSpaceLimit, "--"};
#endif
  command.push_back(programPath().string());
  command.insert(command.end(), arguments.begin(), arguments.end());

  ChildProcess::Options options;
  options.environment = isolatedEnvironment();
  options.timeout = 2 * timeLimit;
  if (inputFile.empty()) {
    options.arguments.assign(command.begin() + 1, command.end());
  } else {
    options.arguments = {"-c", "exec \"$0\" \"$@\" < \"$KORVANE_INPUT\""};
    options.arguments.insert(options.arguments.end(), command.begin(), command.end());
    options.environment["KORVANE_INPUT"] = inputFile;
  }
  const auto start = Clock::now();
  ChildProcess child(inputFile.empty() ? command.front() : "/bin/sh", std::move(options));
  if (inputFile.empty()) {
    child.send(std::string(strongPassword) + "\n");
    child.closeInput();
  }
  Timed timed{child.wait(), {}};
  timed.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
  return timed;
}

void expectCleanError(const Timed& run, std::string_view expectedText, int status = 1) {
  EXPECT_FALSE(run.result.timedOut);
  EXPECT_EQ(run.result.signal, 0) << run.result.err;
  EXPECT_EQ(run.result.exitStatus, status) << run.result.err.substr(0, 500);
  EXPECT_TRUE(run.result.err.starts_with("ERROR: ")) << run.result.err.substr(0, 500);
  EXPECT_EQ(std::count(run.result.err.begin(), run.result.err.end(), '\n'), 1)
      << run.result.err.substr(0, 500);
  EXPECT_NE(run.result.err.find(expectedText), std::string::npos) << run.result.err.substr(0, 500);
  EXPECT_EQ(run.result.out.find("\" was "), std::string::npos);
  EXPECT_LT(run.elapsed, timeLimit);
}

void expectSuccess(const Timed& run) {
  EXPECT_FALSE(run.result.timedOut);
  EXPECT_EQ(run.result.exitStatus, 0) << run.result.err.substr(0, 500);
  EXPECT_EQ(run.result.err, "");
  EXPECT_NE(run.result.out.find("\" was updated."), std::string::npos);
  EXPECT_LT(run.elapsed, timeLimit);
}

std::string usersDocument(std::string_view before, std::string_view after = "") {
  std::string text = "{";
  text.append(before);
  text.append("\"users\": [{\"userName\": \"user00\", \"UUID\": \"");
  text.append(Installation::userUuid(0));
  text.append("\"}");
  text.append(after);
  text.append("]}");
  return text;
}

class HostileFileTest : public ::testing::Test {
 protected:
  HostileFileTest() : installation_(1) {
    installation_.writePasswords({0}, 3);
    passwordsBefore_ = testing::readFile(installation_.passwordsPath());
  }

  std::vector<std::string> arguments() const { return installation_.arguments(0, false); }

  // A hostile users.json: the run fails with `text` and touches nothing.
  void expectUsersRejected(const std::string& content, std::string_view text) {
    testing::writeFile(installation_.usersPath(), content);
    expectCleanError(runLimited(arguments()), text);
    expectPasswordsUnchanged();
  }

  void expectPasswordsRejected(const std::string& content, std::string_view text) {
    testing::writeFile(installation_.passwordsPath(), content);
    expectCleanError(runLimited(arguments()), text);
    EXPECT_TRUE(testing::readFile(installation_.passwordsPath()) == content);
    EXPECT_EQ(installation_.fileNames(),
              (std::vector<std::string>{"passwords.json", "users.json"}));
  }

  void expectPasswordsUnchanged() {
    EXPECT_TRUE(testing::readFile(installation_.passwordsPath()) == passwordsBefore_);
    EXPECT_EQ(installation_.fileNames(),
              (std::vector<std::string>{"passwords.json", "users.json"}));
  }

  // Puts something other than a regular file where `path` is expected.
  void replaceWith(const std::filesystem::path& path,
                   const std::function<void(const std::filesystem::path&)>& make) {
    std::filesystem::remove_all(path);
    make(path);
  }

  Installation installation_;
  std::string passwordsBefore_;
};

TEST_F(HostileFileTest, DeepNestingInUsers) {
  expectUsersRejected(std::string(1000000, '['), "");
  // A user must be an object: the first '[' inside "users" is refused.
  expectUsersRejected("{\"users\": " + std::string(1000000, '['), "expected an object");
  expectUsersRejected("{\"skipped\": " + std::string(1000000, '['), "nesting deeper than");
  expectUsersRejected(
      usersDocument("", ", {\"userName\": \"x\", \"other\": " + std::string(1000000, '[')),
      "nesting deeper than");
  expectUsersRejected(
      usersDocument("\"skipped\": " + std::string(500000, '[') + std::string(500000, ']') + ", "),
      "nesting deeper than");
}

TEST_F(HostileFileTest, DeepNestingInPasswords) {
  expectPasswordsRejected(std::string(1000000, '['), "");
  expectPasswordsRejected("{\"a\": " + std::string(1000000, '['), "");
}

TEST_F(HostileFileTest, HugeStringsInUsersAreReadOrSkipped) {
  const std::string huge(hugeString, 'a');
  testing::writeFile(installation_.usersPath(),
                     usersDocument("\"skipped\": \"" + huge + "\", ",
                                   ", {\"userName\": \"" + huge + "\", \"UUID\": \"" +
                                       Installation::userUuid(1) + "\"}"));
  expectSuccess(runLimited(arguments()));
}

TEST_F(HostileFileTest, HugeStringValueInPasswordsIsKept) {
  const std::string huge(hugeString, 'b');
  testing::writeFile(installation_.passwordsPath(),
                     "{\"big\": \"" + huge + "\", \"" + Installation::userUuid(0) + "\": \"x\"}");
  expectSuccess(runLimited(arguments()));
  const auto entries = installation_.readEntries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].name, "big");
  EXPECT_TRUE(entries[0].value == huge);
  EXPECT_TRUE(hashMatches(entries[1].value, strongPassword));
}

// A file-size limit that the new password file outgrows is a failure to
// write like any other, whether the main thread or the worker that writes a
// large file behind it meets it: not a signal that ends the run with a core
// and no word.
TEST_F(HostileFileTest, AFileSizeLimitIsAFailureToWriteOnEveryThread) {
  // Limit and members: the limit is met within the first 4 MiB (the main
  // thread writes), then past them (the worker writes).
  for (const auto& [limit, members] : {std::pair{1000000, 60000}, std::pair{6000000, 250000}}) {
    SCOPED_TRACE(limit);
    installation_.removeLeftovers();
    installation_.writePasswords({0}, members);
    const std::string before = testing::readFile(installation_.passwordsPath());
    ASSERT_GT(before.size(), static_cast<std::size_t>(limit));
    std::vector<std::string> command{"--fsize=" + std::to_string(limit), "--",
                                     programPath().string()};
    for (const std::string& argument : arguments()) command.push_back(argument);
    ChildProcess::Options options;
    options.arguments = command;
    options.environment = isolatedEnvironment();
    options.timeout = 2 * timeLimit;
    ChildProcess child("/usr/bin/prlimit", std::move(options));
    child.send(std::string(strongPassword) + "\n");
    child.closeInput();
    const ChildResult result = child.wait();
    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitStatus, 1) << result.err;
    EXPECT_TRUE(result.err.starts_with("ERROR: could not write")) << result.err;
    EXPECT_NE(result.err.find(std::strerror(EFBIG)), std::string::npos) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_TRUE(testing::readFile(installation_.passwordsPath()) == before);
  }
}

TEST_F(HostileFileTest, HugeMemberNames) {
  const std::string name(10 * 1024 * 1024, 'n');
  expectUsersRejected(usersDocument("\"" + name + "\": 1, "), "member name longer than");
  expectPasswordsRejected("{\"" + name + "\": \"v\"}", "member name longer than");
}

TEST_F(HostileFileTest, HugeNumbers) {
  const std::string digits(10 * 1024 * 1024, '7');
  testing::writeFile(installation_.usersPath(), usersDocument("\"skipped\": " + digits + ", "));
  const Timed skipped = runLimited(arguments());
  // A number nobody reads may be skipped or refused, but cleanly.
  if (skipped.result.exitStatus == 0) {
    expectSuccess(skipped);
  } else {
    expectCleanError(skipped, "");
  }
  testing::writeFile(installation_.usersPath(), usersDocument(""));
  installation_.writePasswords({0}, 3);
  expectPasswordsRejected("{\"a\": " + digits + "}", "");
}

TEST_F(HostileFileTest, InvalidUtf8AndNulBytes) {
  expectUsersRejected("{\"users\"\0: []}", "");
  expectUsersRejected(std::string("{\"users\": [\0]}", 14), "");
  expectPasswordsRejected(std::string("{\"a\": \"x\0y\"}", 12), "");
  expectPasswordsRejected(std::string("\0\0\0\0", 4), "");
  // Invalid UTF-8 in a name that is compared: refused, or simply no match.
  testing::writeFile(installation_.usersPath(),
                     "{\"users\": [{\"userName\": \"\xff\xfe\xc0\x80\", \"UUID\": \"" +
                         Installation::userUuid(1) + "\"}]}");
  installation_.writePasswords({0}, 3);
  expectCleanError(runLimited(arguments()), "");
  expectPasswordsUnchanged();
}

TEST_F(HostileFileTest, UsersFileIsNoRegularFile) {
  const auto users = installation_.usersPath();
  replaceWith(users, [](const auto& path) { std::filesystem::create_directory(path); });
  expectCleanError(runLimited(arguments()), users.string());
  replaceWith(users, [](const auto& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); });
  expectCleanError(runLimited(arguments()), users.string());
  // A device is refused by its own name, as the password file is.
  for (const char* device : {"/dev/zero", "/dev/urandom"}) {
    replaceWith(users, [&](const auto& path) { std::filesystem::create_symlink(device, path); });
    expectCleanError(runLimited(arguments()), device);
  }
  replaceWith(users, [](const auto& path) { std::filesystem::create_symlink(path, path); });
  expectCleanError(runLimited(arguments()), users.string());
  expectPasswordsUnchanged();
}

TEST_F(HostileFileTest, PasswordFileIsNoRegularFile) {
  const auto passwords = installation_.passwordsPath();
  const auto expectKept = [&](std::filesystem::file_type type) {
    EXPECT_EQ(std::filesystem::symlink_status(passwords).type(), type);
    EXPECT_EQ(installation_.fileNames(),
              (std::vector<std::string>{"passwords.json", "users.json"}));
  };
  replaceWith(passwords, [](const auto& path) { std::filesystem::create_directory(path); });
  expectCleanError(runLimited(arguments()), passwords.string());
  expectKept(std::filesystem::file_type::directory);
  replaceWith(passwords, [](const auto& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); });
  expectCleanError(runLimited(arguments()), passwords.string());
  expectKept(std::filesystem::file_type::fifo);
  for (const char* device : {"/dev/zero", "/dev/urandom"}) {
    replaceWith(passwords,
                [&](const auto& path) { std::filesystem::create_symlink(device, path); });
    expectCleanError(runLimited(arguments()), device);
    expectKept(std::filesystem::file_type::symlink);
  }
  replaceWith(passwords, [](const auto& path) { std::filesystem::create_symlink(path, path); });
  expectCleanError(runLimited(arguments()), passwords.string());
  expectKept(std::filesystem::file_type::symlink);
}

TEST_F(HostileFileTest, SymbolicLinksToRegularFilesWork) {
  testing::TemporaryDirectory elsewhere;
  const auto realUsers = elsewhere.path() / "real-users.json";
  const auto realPasswords = elsewhere.path() / "real-passwords.json";
  std::filesystem::rename(installation_.usersPath(), realUsers);
  std::filesystem::rename(installation_.passwordsPath(), realPasswords);
  std::filesystem::create_symlink(realUsers, installation_.usersPath());
  std::filesystem::create_symlink(realPasswords, installation_.passwordsPath());
  expectSuccess(runLimited(arguments()));
  // The link still points at the file, which holds the new content.
  EXPECT_TRUE(std::filesystem::is_symlink(installation_.passwordsPath()));
  EXPECT_EQ(std::filesystem::read_symlink(installation_.passwordsPath()), realPasswords);
  bool found = false;
  for (const auto& entry : installation_.readEntries()) {
    if (entry.name == Installation::userUuid(0)) found = hashMatches(entry.value, strongPassword);
  }
  EXPECT_TRUE(found);
}

TEST_F(HostileFileTest, EndlessPasswordInput) {
  const Timed zeros = runLimited(arguments(), "/dev/zero");
  expectCleanError(zeros, "password is too long (at most 4095 bytes)", 2);
  expectPasswordsUnchanged();
  // Random bytes: the first line is whatever comes before the first line
  // end; it is refused (empty when the first byte ends the line, too weak,
  // too long, or holding a NUL byte) or taken, but at once.
  const Timed random = runLimited(arguments(), "/dev/urandom");
  EXPECT_FALSE(random.result.timedOut);
  EXPECT_EQ(random.result.signal, 0);
  EXPECT_LT(random.elapsed, timeLimit);
  if (random.result.exitStatus == 0) {
    expectSuccess(random);
    return;
  }
  for (const std::string_view refusal :
       {"empty password", "password is too long", "password contains a NUL character",
        "password is too weak"}) {
    if (random.result.err.find(refusal) != std::string::npos) {
      expectCleanError(random, refusal, 2);
      return;
    }
  }
  ADD_FAILURE() << "unexpected outcome: " << random.result.err.substr(0, 500);
}

}  // namespace
}  // namespace korvane::hardening
