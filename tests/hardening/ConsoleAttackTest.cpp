// The built program at a console that misbehaves or is attacked while it
// asks: the terminal hangs up with SIGHUP ignored (nohup), a signal comes
// from outside while the terminal is in raw mode, or the terminal sends
// bytes that are not UTF-8. None of them may change the password file, loop,
// or leave the terminal without echo.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/hardening/Installation.h"

namespace korvane::hardening {
namespace {

using testing::ChildProcess;
using testing::ChildResult;
using testing::readFile;
using Clock = std::chrono::steady_clock;

constexpr std::string_view notUtf8Error =
    "ERROR: the terminal sent bytes that are not UTF-8; set the terminal to UTF-8, or give the "
    "password on redirected input\n";
constexpr std::string_view emptyPasswordText = "may not be empty";
constexpr std::string_view weakQuestion =
    "The password you entered is too weak. Are you sure you want to use it (y|N)? ";

// Starts the program under a shell that ignores SIGHUP first, as nohup does;
// the ignored disposition survives exec.
constexpr std::string_view ignoreHangUp = "trap '' HUP; exec \"$0\" \"$@\"";

// The program ends at once when its console goes; this bounds the wait.
constexpr std::chrono::milliseconds endsWithin{3000};

std::size_t occurrences(const std::string& text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

std::string withLatin1Byte(std::string_view password) {
  std::string typed(password);
  typed.insert(typed.size() / 2, "\xf6");  // "ö" in Latin-1
  return typed;
}

// How a run is started.
struct Start {
  std::vector<std::string> options{};  // before the user name
  bool remove = false;
  bool hangUpIgnored = false;
  // Standard output on a pipe (as nohup redirects it); the prompts then go
  // to the terminal itself.
  bool outputOnPipe = false;
};

class ConsoleAttackTest : public ::testing::Test {
 protected:
  ConsoleAttackTest() : installation_(2) {
    installation_.writePasswords({0, 1}, 1);
    original_ = readFile(installation_.passwordsPath());
  }

  std::unique_ptr<ChildProcess> start(const Start& how) const {
    ChildProcess::Options options;
    options.arguments = how.options;
    const std::vector<std::string> rest = installation_.arguments(0, how.remove);
    options.arguments.insert(options.arguments.end(), rest.begin(), rest.end());
    std::filesystem::path program = programPath();
    if (how.hangUpIgnored) {
      options.arguments.insert(options.arguments.begin(),
                               {"-c", std::string(ignoreHangUp), program.string()});
      program = "/bin/sh";
    }
    options.input = ChildProcess::Stream::terminal;
    options.output = how.outputOnPipe ? ChildProcess::Stream::pipe : ChildProcess::Stream::terminal;
    options.environment = isolatedEnvironment();
    options.timeout = endsWithin;
    return std::make_unique<ChildProcess>(program, std::move(options));
  }

  // Waits for `prompt` where the program shows its prompts.
  static bool expectPrompt(ChildProcess& child, const Start& how, std::string_view prompt) {
    return how.outputOnPipe ? child.expectOnTerminal(prompt) : child.expect(prompt);
  }

  static void answer(ChildProcess& child, const Start& how, std::string_view prompt,
                     std::string_view line) {
    ASSERT_TRUE(expectPrompt(child, how, prompt)) << child.output() << child.terminalOutput();
    child.send(line);
    child.send("\r");
  }

  bool unchanged() const { return readFile(installation_.passwordsPath()) == original_; }

  // The terminal's modes after a run that ends normally: the cooked modes
  // the program saved and restored.
  std::string cookedModes() const {
    auto child = start({});
    EXPECT_TRUE(child->expect("Password: ")) << child->output();
    child->send("\x03");
    EXPECT_EQ(child->wait().exitStatus, 1);
    return child->terminalModes();
  }

  Installation installation_;
  std::string original_;
};

// One prompt at which the terminal hangs up: the steps that lead there, and
// what the user had typed at it without pressing Enter.
struct HangUpCase {
  std::string name;
  Start how;
  std::vector<std::pair<std::string, std::string>> steps;  // prompt, line typed
  std::string prompt;
  std::string typed;
  std::string echo;  // what the prompt shows of it
};

std::vector<HangUpCase> hangUpCases() {
  const std::string strong(strongPassword);
  std::vector<HangUpCase> cases;
  for (const bool outputOnPipe : {true, false}) {
    const std::string output = outputOnPipe ? " (output on a pipe)" : " (output on the terminal)";
    const Start how{.hangUpIgnored = true, .outputOnPipe = outputOnPipe};
    cases.push_back({"password" + output, how, {}, "Password: ", strong.substr(0, 6), "******"});
    cases.push_back({"repeat" + output,
                     how,
                     {{"Password: ", strong}},
                     "Repeat password: ",
                     strong.substr(0, 6),
                     "******"});
    Start weak = how;
    weak.options = {"-DontRejectInsecurePasswords"};
    cases.push_back({"weak question" + output,
                     weak,
                     {{"Password: ", "abc"}},
                     std::string(weakQuestion),
                     "y",
                     "y"});
    Start removal = how;
    removal.remove = true;
    // "y" typed but not entered must not remove the password. The prompt is
    // expected to its end: its own "(y|N)" must not pass for the echo.
    cases.push_back({"removal" + output, removal, {}, "(y|N)? ", "y", "y"});
  }
  return cases;
}

// Under nohup a closed terminal window makes every read return the end of
// input. The run must end as cancelled, at once, without taking what was
// typed for an entry and without asking again.
TEST_F(ConsoleAttackTest, HangUpWithSighupIgnoredEndsTheRun) {
  for (const HangUpCase& c : hangUpCases()) {
    SCOPED_TRACE(c.name);
    auto child = start(c.how);
    for (const auto& [prompt, line] : c.steps) answer(*child, c.how, prompt, line);
    ASSERT_TRUE(expectPrompt(*child, c.how, c.prompt))
        << child->output() << child->terminalOutput();
    child->send(c.typed);
    // Echoed: the program has taken the keys before the terminal goes.
    ASSERT_TRUE(expectPrompt(*child, c.how, c.echo)) << child->output() << child->terminalOutput();
    const auto hungUp = Clock::now();
    child->hangUp();
    const ChildResult result = child->wait();
    EXPECT_FALSE(result.timedOut) << "still running after " << endsWithin.count() << " ms; "
                                  << occurrences(result.out, emptyPasswordText)
                                  << " empty-password complaints";
    EXPECT_LT(Clock::now() - hungUp, endsWithin);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.err, "") << "a cancellation is quiet";
    EXPECT_EQ(occurrences(result.out, emptyPasswordText), 0u) << result.out;
    EXPECT_EQ(result.out.find("do not match"), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find(" was "), std::string::npos) << result.out;
    EXPECT_TRUE(unchanged());
  }
}

// Raw mode has ISIG off, so these can only come from outside (kill). Each
// ends the program by default; the terminal must get its modes back first,
// or the user's shell is left without echo.
TEST_F(ConsoleAttackTest, SignalFromOutsideRestoresTheTerminal) {
  const std::string cooked = cookedModes();
  for (const int number : {SIGINT, SIGUSR1, SIGALRM, SIGPIPE}) {
    SCOPED_TRACE(number);
    auto child = start({});
    ASSERT_TRUE(child->expect("Password: ")) << child->output();
    child->send("Vq7");
    ASSERT_TRUE(child->expect("***")) << child->output();
    ASSERT_NE(child->terminalModes(), cooked) << "raw mode is on while the program asks";
    child->signal(number);
    const ChildResult result = child->wait();
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.signal, number);
    EXPECT_EQ(child->terminalModes(), cooked);
    EXPECT_TRUE(unchanged());
  }
}

// On a Latin-1 terminal "ö" is the byte F6. Dropping it would store another
// password than the one typed (and one a UTF-8 login form never sends): the
// entry is refused instead, with a message that says what to do.
TEST_F(ConsoleAttackTest, PasswordTypedOnALatin1TerminalIsRefused) {
  const std::string typed = withLatin1Byte(strongPassword);
  const Start how{};
  auto child = start(how);
  answer(*child, how, "Password: ", typed);
  // A user who is asked again types the same once more.
  if (child->expect("Repeat password: ", std::chrono::milliseconds(1000))) {
    child->send(typed);
    child->send("\r");
  }
  const ChildResult result = child->wait();
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, notUtf8Error);
  EXPECT_EQ(result.out.find("Repeat password: "), std::string::npos) << result.out;
  EXPECT_TRUE(unchanged());
}

TEST_F(ConsoleAttackTest, RepeatedPasswordTypedOnALatin1TerminalIsRefused) {
  const Start how{};
  auto child = start(how);
  answer(*child, how, "Password: ", strongPassword);
  answer(*child, how, "Repeat password: ", withLatin1Byte(strongPassword));
  const ChildResult result = child->wait();
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, notUtf8Error);
  EXPECT_TRUE(unchanged());
}

// "y" followed by a stray byte is no "y": the password stays.
TEST_F(ConsoleAttackTest, RemovalAnswerWithALatin1ByteIsRefused) {
  const Start how{.remove = true};
  auto child = start(how);
  answer(*child, how, "Are you sure you mant to remove", "y\xf6");
  const ChildResult result = child->wait();
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, notUtf8Error);
  EXPECT_EQ(result.out.find("was removed"), std::string::npos) << result.out;
  EXPECT_TRUE(unchanged());
}

}  // namespace
}  // namespace korvane::hardening
