#include <gtest/gtest.h>

#include <cerrno>
#include <type_traits>

#include "utils/core/PosixCall.h"

namespace korvane::utils::core {
namespace {

// A call that fails with each of `errors` in turn, then returns `result`.
struct FailingCall {
  int* calls;
  const int* errors;
  int errorCount;
  long long result;

  long long operator()() const {
    const int index = (*calls)++;
    if (index < errorCount) {
      errno = errors[index];
      return -1;
    }
    return result;
  }
};

TEST(PosixCallTest, SuccessIsReturnedAtOnce) {
  int calls = 0;
  EXPECT_EQ(retryOnInterrupt(FailingCall{&calls, nullptr, 0, 7}), 7);
  EXPECT_EQ(calls, 1);
}

TEST(PosixCallTest, InterruptedCallIsMadeAgain) {
  int calls = 0;
  const int errors[] = {EINTR, EINTR, EINTR};
  EXPECT_EQ(retryOnInterrupt(FailingCall{&calls, errors, 3, 0}), 0);
  EXPECT_EQ(calls, 4);
}

TEST(PosixCallTest, OtherFailureIsReturnedWithItsError) {
  int calls = 0;
  const int errors[] = {EINTR, EIO};
  EXPECT_EQ(retryOnInterrupt(FailingCall{&calls, errors, 2, 0}), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(calls, 2);
}

TEST(PosixCallTest, ResultKeepsTheCallsType) {
  int calls = 0;
  const auto result = retryOnInterrupt(FailingCall{&calls, nullptr, 0, 1LL << 40});
  static_assert(std::is_same_v<decltype(result), const long long>);
  EXPECT_EQ(result, 1LL << 40);
}

}  // namespace
}  // namespace korvane::utils::core
