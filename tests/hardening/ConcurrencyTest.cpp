// Several administrators at once: runs that change one password file at the
// same moment must not lose each other's changes, a run waiting for its
// user must not hold anything up, and a killed run must not leave the
// others waiting.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/hardening/Installation.h"
#include "utils/core/Format.h"

namespace korvane::hardening {
namespace {

using Clock = std::chrono::steady_clock;
using testing::ChildProcess;
using testing::ChildResult;

constexpr int userCount = 40;
constexpr int setters = 20;  // users 0..19 get a password, users 20..39 lose theirs
constexpr int unknownMembers = 30;
constexpr int rounds = 3;

std::string passwordOf(int user, int round) {
  return utils::core::format("Concurrent#{}-Run!{}x{}", round, user, user * 7 + 3);
}

std::unique_ptr<ChildProcess> start(const Installation& installation, int user, bool remove,
                                    ChildProcess::Stream input = ChildProcess::Stream::pipe) {
  ChildProcess::Options options;
  options.arguments = installation.arguments(user, remove);
  options.input = input;
  // A console run talks to its terminal in both directions.
  if (input == ChildProcess::Stream::terminal) options.output = input;
  options.environment = isolatedEnvironment();
  options.timeout = std::chrono::seconds(60);
  return std::make_unique<ChildProcess>(programPath(), std::move(options));
}

std::vector<int> removedUsers() {
  std::vector<int> users;
  for (int user = setters; user < userCount; ++user) users.push_back(user);
  return users;
}

TEST(ConcurrencyTest, SimultaneousRunsLoseNoChange) {
  Installation installation(userCount);
  int runsChecked = 0;
  for (int round = 0; round < rounds; ++round) {
    installation.writePasswords(removedUsers(), unknownMembers);
    const auto before = installation.readEntries();

    std::vector<std::unique_ptr<ChildProcess>> runs;
    for (int user = 0; user < userCount; ++user) {
      runs.push_back(start(installation, user, user >= setters));
    }
    // The setters wait for their password; let all of them reach that point
    // (and the removers run meanwhile), then release them together.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    for (int user = 0; user < setters; ++user) {
      runs[static_cast<std::size_t>(user)]->send(passwordOf(user, round) + "\n");
      runs[static_cast<std::size_t>(user)]->closeInput();
    }
    for (int user = 0; user < userCount; ++user) {
      const ChildResult result = runs[static_cast<std::size_t>(user)]->wait();
      EXPECT_EQ(result.exitStatus, 0) << Installation::userName(user) << ": " << result.err;
      EXPECT_NE(result.out.find(user >= setters ? "\" was removed." : "\" was updated."),
                std::string::npos)
          << result.out;
    }

    const auto after = installation.readEntries();
    // "$schema", the unknown members in their order, one entry per setter.
    std::vector<std::string> othersBefore;
    for (const auto& entry : before) {
      if (entry.uuid.isNull()) othersBefore.push_back(entry.name + "=" + entry.value);
    }
    std::vector<std::string> othersAfter;
    std::vector<int> seen(userCount, 0);
    for (const auto& entry : after) {
      if (entry.uuid.isNull()) {
        othersAfter.push_back(entry.name + "=" + entry.value);
        continue;
      }
      int user = -1;
      for (int candidate = 0; candidate < userCount; ++candidate) {
        if (entry.name == Installation::userUuid(candidate)) user = candidate;
      }
      ASSERT_GE(user, 0) << "unexpected entry " << entry.name;
      ++seen[static_cast<std::size_t>(user)];
      EXPECT_LT(user, setters) << "the entry of a removed user is back";
      if (user < setters) {
        EXPECT_TRUE(hashMatches(entry.value, passwordOf(user, round)))
            << Installation::userName(user);
      }
    }
    EXPECT_EQ(othersAfter, othersBefore);
    for (int user = 0; user < setters; ++user) {
      EXPECT_EQ(seen[static_cast<std::size_t>(user)], 1) << Installation::userName(user);
    }
    EXPECT_EQ(installation.fileNames(), (std::vector<std::string>{"passwords.json", "users.json"}));
    runsChecked += userCount;
    if (::testing::Test::HasFailure()) break;
  }
  std::cout << "concurrency: " << runsChecked << " simultaneous runs (" << rounds << " rounds of "
            << userCount << "), no change lost" << std::endl;
  ::testing::Test::RecordProperty("concurrentRuns", runsChecked);
}

TEST(ConcurrencyTest, RunWaitingAtThePromptBlocksNobody) {
  Installation installation(3);
  installation.writePasswords({0, 1, 2}, 5);

  auto waiting = start(installation, 0, false, ChildProcess::Stream::terminal);
  ASSERT_TRUE(waiting->expect("Password: ")) << waiting->output();

  const auto startTime = Clock::now();
  auto other = start(installation, 1, false);
  other->send(std::string(strongPassword) + "\n");
  other->closeInput();
  const ChildResult otherResult = other->wait();
  EXPECT_EQ(otherResult.exitStatus, 0) << otherResult.err;
  EXPECT_LT(Clock::now() - startTime, std::chrono::seconds(10));

  const std::string typed = "Typed-At-The-Console!42";
  waiting->send(typed + "\r");
  ASSERT_TRUE(waiting->expect("Repeat password: ")) << waiting->output();
  waiting->send(typed + "\r");
  const ChildResult waitingResult = waiting->wait();
  EXPECT_EQ(waitingResult.exitStatus, 0) << waitingResult.out << waitingResult.err;

  // Both changes are in the file: the later replacement read the earlier one.
  const auto entries = installation.readEntries();
  int checked = 0;
  for (const auto& entry : entries) {
    if (entry.name == Installation::userUuid(0)) {
      EXPECT_TRUE(hashMatches(entry.value, typed));
      ++checked;
    } else if (entry.name == Installation::userUuid(1)) {
      EXPECT_TRUE(hashMatches(entry.value, strongPassword));
      ++checked;
    } else if (entry.name == Installation::userUuid(2)) {
      EXPECT_EQ(entry.value, Installation::initialHash(2));
      ++checked;
    }
  }
  EXPECT_EQ(checked, 3);
}

// A run is stopped while it holds the replacement lock (its sync of the
// temporary file never returns), so that a second run has to wait; when the
// first is killed, the second goes on at once, and later runs are not held
// up by anything left behind.
TEST(ConcurrencyTest, KilledRunLeavesNoStaleLock) {
  Installation installation(3);
  installation.writePasswords({0, 1, 2}, 5);
  const std::string before = testing::readFile(installation.passwordsPath());
  testing::TemporaryDirectory reportDirectory;
  const auto report = reportDirectory.path() / "report";

  ChildProcess::Options options;
  options.arguments = installation.arguments(0, false);
  options.environment = isolatedEnvironment();
  options.environment["LD_PRELOAD"] = KORVANE_FAULT_LIBRARY;
  options.environment["KORVANE_FAULT"] = "fsync:1:STALL";
  options.environment["KORVANE_FAULT_DIR"] = installation.directory().string();
  options.environment["KORVANE_FAULT_REPORT"] = report.string();
  options.environment["ASAN_OPTIONS"] = "verify_asan_link_order=0";
  ChildProcess stalled(programPath(), std::move(options));
  stalled.send(std::string(strongPassword) + "\n");
  stalled.closeInput();
  const auto stallDeadline = Clock::now() + std::chrono::seconds(30);
  while (!std::filesystem::exists(report) && Clock::now() < stallDeadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_TRUE(std::filesystem::exists(report)) << "the run never reached its sync";

  auto second = start(installation, 1, true);
  EXPECT_FALSE(second->expect("was removed.", std::chrono::milliseconds(500)))
      << "the second run did not wait for the first";
  stalled.signal(SIGKILL);
  EXPECT_EQ(stalled.wait().signal, SIGKILL);
  const auto killedAt = Clock::now();
  const ChildResult secondResult = second->wait();
  EXPECT_EQ(secondResult.exitStatus, 0) << secondResult.err;
  EXPECT_LT(Clock::now() - killedAt, std::chrono::seconds(10));

  // The killed run changed nothing; the second run's removal is in place.
  const auto entries = installation.readEntries();
  for (const auto& entry : entries) {
    EXPECT_NE(entry.name, Installation::userUuid(1));
    if (entry.name == Installation::userUuid(0)) {
      EXPECT_EQ(entry.value, Installation::initialHash(0));
    }
  }

  const auto thirdStart = Clock::now();
  auto third = start(installation, 2, false);
  third->send(std::string(strongPassword) + "\n");
  third->closeInput();
  EXPECT_EQ(third->wait().exitStatus, 0);
  EXPECT_LT(Clock::now() - thirdStart, std::chrono::seconds(10));
  EXPECT_NE(testing::readFile(installation.passwordsPath()), before);
}

}  // namespace
}  // namespace korvane::hardening
