// The command line, checked on the built program: every error text, the
// usage and version texts, where they go and the exit statuses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "setUserPassword/CommandLine.h"
#include "setUserPassword/Version.h"
#include "tests/support/ChildProcess.h"

namespace korvane::setUserPassword {
namespace {

using testing::ChildProcess;
using testing::ChildResult;
using testing::runProgram;

const std::string program = KORVANE_PASSWORD_PROGRAM;

// No standard location holds an installation.
const std::map<std::string, std::optional<std::string>> environment{
    {"XDG_CONFIG_DIRS", "/nonexistent-korvane-base"}};

ChildResult runRedirected(std::vector<std::string> arguments) {
  return runProgram(program, std::move(arguments), std::string_view{}, environment);
}

// Standard input on a terminal, standard output and error on pipes.
ChildResult runAtConsole(std::vector<std::string> arguments) {
  ChildProcess::Options options;
  options.arguments = std::move(arguments);
  options.input = ChildProcess::Stream::terminal;
  options.output = ChildProcess::Stream::pipe;
  options.environment = environment;
  ChildProcess child(program, std::move(options));
  return child.wait();
}

std::string commandLineError(std::string_view message) {
  return "COMMAND LINE ERROR: " + std::string(message) + "\n\n";
}

const std::string expectedUsage =
    "Usage: KorvanePassword.exe [options] <user name>\n"
    "\n"
    "Options:\n"
    "  -Help, /?                    Show this help and exit\n"
    "  -Version                     Print version information and exit\n"
    "  -Remove                      Remove the password instead of setting a new one\n"
    "  -ConfigDir <path>            Look for the configuration files in the directory <path> "
    "before the default locations. This option can be specified multiple times.\n"
    "                               These directories are not searched for files whose path "
    "has been specified using -Users or -Passwords.\n"
    "  -Users <path>                Load the user configuration from <path>\n"
    "  -Passwords <path>            Modify the password file located at <path>\n"
    "  -DontRejectInsecurePasswords Do not reject weak, insecure passwords\n";

void expectCommandLineError(std::vector<std::string> arguments, std::string_view message) {
  const ChildResult result = runRedirected(arguments);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, commandLineError(message));
}

// The parser returns what the command line asks for and leaves ending the
// process to its caller.
TEST(CommandLineTest, HelpVersionAndErrorsAreLeftToTheCaller) {
  using Request = ParsedCommandLine::Request;
  const auto parse = [](std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "KorvanePassword");
    return parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
  };
  EXPECT_EQ(parse({"-Help", "alice"}).request, Request::help);
  EXPECT_EQ(parse({"/?"}).request, Request::help);
  EXPECT_EQ(parse({"alice", "-Version"}).request, Request::version);
  const ParsedCommandLine unknown = parse({"-Unknown", "alice"});
  EXPECT_EQ(unknown.request, Request::error);
  EXPECT_EQ(unknown.error, "unknown option '-Unknown'");
  EXPECT_EQ(parse({}).error, "no user name specified");
  const ParsedCommandLine run = parse({"-Remove", "alice"});
  EXPECT_EQ(run.request, Request::run);
  EXPECT_EQ(run.commandLine.userName, "alice");
  EXPECT_TRUE(run.commandLine.remove);
}

TEST(CommandLineTest, UsageTextIsByteExact) {
  EXPECT_EQ(usageText(), expectedUsage);
  // Descriptions begin in column 32, the continuation line is indented by 31.
  EXPECT_EQ(expectedUsage.find("Show this help") - expectedUsage.find("  -Help"), 31u);
}

TEST(CommandLineTest, HelpPrintsUsageOnStandardOutput) {
  for (const char* option : {"-Help", "/?"}) {
    const ChildResult result = runRedirected({option});
    EXPECT_EQ(result.exitStatus, 0) << option;
    EXPECT_EQ(result.out, expectedUsage) << option;
    EXPECT_EQ(result.err, "") << option;
  }
}

TEST(CommandLineTest, HelpAtConsoleAlsoGoesToStandardOutput) {
  const ChildResult result = runAtConsole({"-Help"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.out, expectedUsage);
  EXPECT_EQ(result.err, "");
}

TEST(CommandLineTest, VersionBanner) {
  const ChildResult result = runRedirected({"-Version"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.err, "");
  ASSERT_EQ(result.out, versionText());
  // The number the build's CMake project declares.
  EXPECT_TRUE(result.out.starts_with("Korvane Password Tool " + std::string(versionNumber) + "\n"));
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 3);
}

TEST(CommandLineTest, NoArgumentsRedirected) {
  expectCommandLineError({}, "no user name specified");
}

TEST(CommandLineTest, NoArgumentsAtConsoleAddsUsageOnStandardError) {
  const ChildResult result = runAtConsole({});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, commandLineError("no user name specified") + expectedUsage);
}

TEST(CommandLineTest, ErrorAtConsoleAddsUsage) {
  const ChildResult result = runAtConsole({"-Bogus"});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, commandLineError("unknown option '-Bogus'") + expectedUsage);
}

TEST(CommandLineTest, EmptyValues) {
  expectCommandLineError({"-ConfigDir", "", "alice"}, "empty string specified as config directory");
  expectCommandLineError({"-Users", "", "alice"},
                         "empty string specified for user configuration file");
  expectCommandLineError({"-Passwords", "", "alice"}, "empty string specified for password file");
}

TEST(CommandLineTest, ValueOptionInLastPlaceHasEmptyValue) {
  expectCommandLineError({"alice", "-Users"}, "empty string specified for user configuration file");
  expectCommandLineError({"alice", "-Passwords"}, "empty string specified for password file");
  expectCommandLineError({"alice", "-ConfigDir"}, "empty string specified as config directory");
}

TEST(CommandLineTest, DuplicateSingleUseOptions) {
  expectCommandLineError({"-Users", "a", "-Users", "b", "alice"},
                         "duplicate user configuration file option");
  expectCommandLineError({"-Passwords", "a", "-Passwords", "b", "alice"},
                         "duplicate password file option");
}

TEST(CommandLineTest, DuplicateTestComesBeforeEmptyTest) {
  expectCommandLineError({"-Users", "a", "-Users", "", "alice"},
                         "duplicate user configuration file option");
  expectCommandLineError({"-Passwords", "a", "-Passwords"}, "duplicate password file option");
}

TEST(CommandLineTest, OtherSpellingsAreUnknownOptions) {
  for (const char* spelling : {"-remove", "--Remove", "-Users=x", "-REMOVE", "-Rem", "-", "/",
                               "/Help", "/Remove", "-?", "-help"}) {
    expectCommandLineError({spelling, "alice"}, std::string("unknown option '") + spelling + "'");
  }
}

TEST(CommandLineTest, TooManyArguments) {
  expectCommandLineError({"alice", "bob"}, "too many arguments");
  expectCommandLineError({"alice", ""}, "too many arguments");
}

TEST(CommandLineTest, EmptyUserName) {
  expectCommandLineError({""}, "empty string specified as user name");
}

TEST(CommandLineTest, FirstErrorLeftToRightWins) {
  expectCommandLineError({"-Bogus", "-Help"}, "unknown option '-Bogus'");
  expectCommandLineError({"alice", "bob", "-Bogus"}, "too many arguments");
}

TEST(CommandLineTest, HelpStopsTheParse) {
  const ChildResult result = runRedirected({"-Help", "-Bogus", "alice", "bob"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.out, expectedUsage);
  const ChildResult version = runRedirected({"-Version", "-Bogus"});
  EXPECT_EQ(version.exitStatus, 0);
  EXPECT_EQ(version.out, versionText());
}

TEST(CommandLineTest, OptionValueMayLookLikeAnOption) {
  // "-Remove" is the value of -Users, so the last argument is the user name
  // and nothing else is an error; the run then fails on the missing file.
  const ChildResult result = runRedirected({"-Users", "-Remove", "alice"});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.out,
            "Using user configuration file \"-Remove\"\n"
            "Will create new password file at "
            "\"/nonexistent-korvane-base/Korvane/Config/passwords.json\"\n");
  EXPECT_TRUE(result.err.starts_with("ERROR: ")) << result.err;
}

TEST(CommandLineTest, UserNameMayContainDashesAndSlashesAfterItsStart) {
  const ChildResult result = runRedirected({"-Users", "/nonexistent/users.json", "a-b/c"});
  EXPECT_TRUE(result.err.starts_with("ERROR: ")) << result.err;
  EXPECT_EQ(result.err.find("COMMAND LINE ERROR"), std::string::npos);
}

TEST(CommandLineTest, FlagsMayBeRepeated) {
  const ChildResult result =
      runRedirected({"-Remove", "-Remove", "-DontRejectInsecurePasswords",
                     "-DontRejectInsecurePasswords", "-Users", "/nonexistent/users.json", "alice"});
  EXPECT_EQ(result.err.find("COMMAND LINE ERROR"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace korvane::setUserPassword
