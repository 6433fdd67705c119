// The whole program at a console (a pseudo-terminal): prompts, masked echo,
// the questions, cancelling, and what ends up in the password file.
#include <crypt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace korvane::setUserPassword {
namespace {

using korvane::testing::ChildProcess;
using korvane::testing::ChildResult;
using korvane::testing::readFile;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

const std::string program = KORVANE_PASSWORD_PROGRAM;
constexpr const char* strong = "Correct-Horse-Battery-Staple-91";
constexpr const char* aliceUuid = "3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b";
constexpr const char* header = "Please enter the new password for user \" alice\".";
constexpr const char* answerText =
    "Please answer \"y\" or \"n\", or press Return to accept the default of \"n\".";
constexpr const char* removalQuestion =
    "Are you sure you mant to remove the password for user \"alice\" (y|N)? ";
constexpr const char* weakQuestion =
    "The password you entered is too weak. Are you sure you want to use it (y|N)? ";

std::size_t occurrences(const std::string& text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

class InteractiveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(directory_.path() / "users.json",
              std::string(R"({"users": [{"userName": "alice", "UUID": ")") + aliceUuid + R"("}]})");
    writeFile(passwordsPath(), originalPasswords_);
  }

  std::unique_ptr<ChildProcess> start(std::vector<std::string> arguments) {
    ChildProcess::Options options;
    options.arguments = {"-ConfigDir", directory_.path().string()};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.input = ChildProcess::Stream::terminal;
    options.output = ChildProcess::Stream::terminal;
    options.environment = {{"XDG_CONFIG_DIRS", (directory_.path() / "none").string()}};
    return std::make_unique<ChildProcess>(program, std::move(options));
  }

  // Types a line at the prompt that has just appeared.
  static void answer(ChildProcess& child, std::string_view prompt, std::string_view line) {
    ASSERT_TRUE(child.expect(prompt)) << child.output();
    child.send(line);
    child.send("\r");
  }

  std::filesystem::path passwordsPath() const { return directory_.path() / "passwords.json"; }
  bool unchanged() const { return readFile(passwordsPath()) == originalPasswords_; }

  TemporaryDirectory directory_;
  const std::string originalPasswords_ = R"({"$schema": "s", "other": "o"})";
};

TEST_F(InteractiveTest, SetsAPasswordTypedTwiceWithMaskedEcho) {
  auto child = start({"alice"});
  answer(*child, "Password: ", strong);
  answer(*child, "Repeat password: ", strong);
  ASSERT_TRUE(child->expect("Password for user \"alice\" was updated."));
  const ChildResult result = child->wait();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out.find(strong), std::string::npos) << "the password was echoed";
  EXPECT_NE(result.out.find(std::string(std::strlen(strong), '*')), std::string::npos);
  // The file lines come first, then the header, once.
  EXPECT_TRUE(result.out.starts_with("Using user configuration file \"")) << result.out;
  EXPECT_LT(result.out.find("Using password file \""), result.out.find(header));
  EXPECT_EQ(occurrences(result.out, header), 1u);
  EXPECT_NE(result.out.find(std::string("\n") + header), std::string::npos);
  EXPECT_FALSE(unchanged());
  EXPECT_NE(readFile(passwordsPath()).find(aliceUuid), std::string::npos);
}

TEST_F(InteractiveTest, CtrlAtTypedInThePasswordIsNotPartOfIt) {
  // Ctrl+@ and Ctrl+Space send a NUL byte; the editor ignores it, so the
  // stored password is the one without it (and a login can match it).
  const std::string typed = std::string("Correct-Horse-\0Battery-Staple-91", 32);
  auto child = start({"alice"});
  answer(*child, "Password: ", typed);
  answer(*child, "Repeat password: ", typed);
  ASSERT_TRUE(child->expect("Password for user \"alice\" was updated.")) << child->output();
  const ChildResult result = child->wait();
  EXPECT_EQ(result.exitStatus, 0);
  // One mask for each character but the NUL.
  const std::string masks = "Password: " + std::string(std::strlen(strong), '*');
  const std::size_t echo = result.out.find(masks);
  ASSERT_NE(echo, std::string::npos) << result.out;
  EXPECT_NE(result.out[echo + masks.size()], '*') << result.out;
  const std::string file = readFile(passwordsPath());
  const std::string key = std::string("\"") + aliceUuid + "\": \"";
  const std::size_t at = file.find(key);
  ASSERT_NE(at, std::string::npos) << file;
  const std::size_t start = at + key.size();
  const std::string hash = file.substr(start, file.find('"', start) - start);
  crypt_data data{};
  const char* computed = ::crypt_r(strong, hash.c_str(), &data);
  ASSERT_NE(computed, nullptr);
  EXPECT_EQ(hash, computed);
}

TEST_F(InteractiveTest, MismatchAsksForBothAgainWithoutTheHeader) {
  auto child = start({"alice"});
  answer(*child, "Password: ", strong);
  answer(*child, "Repeat password: ", "Something-Else-Entirely-42");
  ASSERT_TRUE(child->expect("The passwords do not match."));
  answer(*child, "Password: ", strong);
  answer(*child, "Repeat password: ", strong);
  const ChildResult result = child->wait();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(occurrences(result.out, header), 1u);
}

TEST_F(InteractiveTest, EmptyAndWeakEntriesAreExplainedAndAskedAgain) {
  auto child = start({"alice"});
  answer(*child, "Password: ", "");
  ASSERT_TRUE(child->expect(
      "The password may not be empty. Please enter a password, or press \"Ctrl+C\" to exit."));
  answer(*child, "Password: ", "abc");
  ASSERT_TRUE(child->expect(
      "The password you entered is too weak. Please enter a stronger password, or use the "
      "command line option \"-DontRejectInsecurePasswords\" to allow weak passwords."));
  answer(*child, "Password: ", strong);
  answer(*child, "Repeat password: ", strong);
  EXPECT_EQ(child->wait().exitStatus, 0);
}

TEST_F(InteractiveTest, WeakPasswordQuestionWithTheOption) {
  auto child = start({"-DontRejectInsecurePasswords", "alice"});
  answer(*child, "Password: ", "abc");
  answer(*child, weakQuestion, "");  // Return: no, a new entry
  answer(*child, "Password: ", "abc");
  answer(*child, weakQuestion, "N");
  answer(*child, "Password: ", "abc");
  answer(*child, weakQuestion, "yes");
  ASSERT_TRUE(child->expect(answerText));
  answer(*child, weakQuestion, "Y");
  answer(*child, "Repeat password: ", "abc");
  const ChildResult result = child->wait();
  EXPECT_EQ(result.exitStatus, 0) << result.out;
  EXPECT_EQ(occurrences(result.out, header), 1u);
}

TEST_F(InteractiveTest, RemovalConfirmedWithY) {
  writeFile(passwordsPath(), std::string(R"({"$schema": "s", ")") + aliceUuid + R"(": "h"})");
  auto child = start({"-Remove", "alice"});
  answer(*child, removalQuestion, "Y");
  const ChildResult result = child->wait();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_NE(result.out.find("Password for user \"alice\" was removed."), std::string::npos);
  EXPECT_EQ(readFile(passwordsPath()).find(aliceUuid), std::string::npos);
}

TEST_F(InteractiveTest, AHostileUserNamePrintsEscapedInPromptsAndResults) {
  // A name that would set the terminal's title, and its printed form.
  const std::string name = "ev\x1b]0;owned\x07il";
  const std::string shown = "ev\\x1b]0;owned\\x07il";
  writeFile(directory_.path() / "users.json",
            std::string(R"({"users": [{"userName": "ev\u001b]0;owned\u0007il", "UUID": ")") +
                aliceUuid + R"("}]})");
  auto setting = start({name});
  ASSERT_TRUE(setting->expect("Please enter the new password for user \" " + shown + "\"."))
      << setting->output();
  answer(*setting, "Password: ", strong);
  answer(*setting, "Repeat password: ", strong);
  ASSERT_TRUE(setting->expect("Password for user \"" + shown + "\" was updated."));
  const ChildResult set = setting->wait();
  EXPECT_EQ(set.exitStatus, 0) << set.err;

  auto removing = start({"-Remove", name});
  answer(*removing,
         "Are you sure you mant to remove the password for user \"" + shown + "\" (y|N)? ", "y");
  const ChildResult removed = removing->wait();
  EXPECT_EQ(removed.exitStatus, 0) << removed.err;
  EXPECT_NE(removed.out.find("Password for user \"" + shown + "\" was removed."),
            std::string::npos);
  for (const ChildResult* result : {&set, &removed}) {
    EXPECT_EQ(result->out.find("\x1b]"), std::string::npos) << result->out;
    EXPECT_EQ(result->out.find('\x07'), std::string::npos) << result->out;
  }
}

TEST_F(InteractiveTest, RemovalDeclinedEndsSilentlyWithStatus1) {
  for (const char* reply : {"", "n", "N"}) {
    auto child = start({"-Remove", "alice"});
    answer(*child, removalQuestion, reply);
    const ChildResult result = child->wait();
    EXPECT_EQ(result.exitStatus, 1) << reply;
    EXPECT_EQ(result.err, "") << reply;
    EXPECT_EQ(result.out.find("was removed"), std::string::npos);
    EXPECT_TRUE(unchanged());
  }
}

TEST_F(InteractiveTest, RemovalQuestionRepeatsOnOtherAnswers) {
  auto child = start({"-Remove", "alice"});
  answer(*child, removalQuestion, "yes");
  ASSERT_TRUE(child->expect(answerText));
  answer(*child, removalQuestion, " y");
  ASSERT_TRUE(child->expect(answerText));
  answer(*child, removalQuestion, "y");
  EXPECT_EQ(child->wait().exitStatus, 0);
}

TEST_F(InteractiveTest, RedirectedOutputStillPromptsOnTheTerminal) {
  ChildProcess::Options options;
  options.arguments = {"-ConfigDir", directory_.path().string(), "alice"};
  options.input = ChildProcess::Stream::terminal;
  options.output = ChildProcess::Stream::pipe;
  options.environment = {{"XDG_CONFIG_DIRS", (directory_.path() / "none").string()}};
  ChildProcess child(program, std::move(options));
  ASSERT_TRUE(child.expect(header)) << child.output();
  for (int entry = 0; entry < 2; ++entry) {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the editor takes the terminal
    child.send(strong);
    child.send("\r");
  }
  const ChildResult result = child.wait();
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitStatus, 0) << result.out;
  EXPECT_EQ(result.out.find("Password: "), std::string::npos) << "prompts belong on the terminal";
  EXPECT_EQ(result.out.find("may not be empty"), std::string::npos);
  EXPECT_NE(result.out.find("Password for user \"alice\" was updated."), std::string::npos);
}

TEST_F(InteractiveTest, CancelAtEveryPromptLeavesTheFilesAlone) {
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::pair<std::string, std::string>> steps;  // prompt, line typed
    std::string lastPrompt;
  };
  const std::vector<Case> cases = {
      {{"alice"}, {}, "Password: "},
      {{"alice"}, {{"Password: ", strong}}, "Repeat password: "},
      {{"-DontRejectInsecurePasswords", "alice"}, {{"Password: ", "abc"}}, weakQuestion},
      {{"-Remove", "alice"}, {}, removalQuestion},
  };
  for (const Case& c : cases) {
    for (const char* cancel : {"\x03", "\x1b", "\x04"}) {
      auto child = start(c.arguments);
      for (const auto& [prompt, line] : c.steps) answer(*child, prompt, line);
      ASSERT_TRUE(child->expect(c.lastPrompt)) << child->output();
      child->send(cancel);
      const ChildResult result = child->wait();
      EXPECT_EQ(result.exitStatus, 1) << c.lastPrompt << " " << static_cast<int>(cancel[0]);
      EXPECT_EQ(result.err, "");
      EXPECT_TRUE(unchanged());
      EXPECT_FALSE(result.timedOut);
    }
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_.path()),
                          std::filesystem::directory_iterator()),
            2);
}

}  // namespace
}  // namespace korvane::setUserPassword
