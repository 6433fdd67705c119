// KORVANE_SKIP_OR_FAIL_UNDER_CI: ends a test that cannot run here (not
// root, no access control lists, no mount namespace, ...). Skipped on a
// developer's machine; failed in continuous integration (the variable CI
// is set), where a skip would pass unseen.
//
// Thread safety: call from the test's own thread.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

namespace korvane::testing {

// Whether the tests run in continuous integration.
inline bool underContinuousIntegration() { return std::getenv("CI") != nullptr; }

}  // namespace korvane::testing

// `reason` is a string.
#define KORVANE_SKIP_OR_FAIL_UNDER_CI(reason)                    \
  do {                                                           \
    if (::korvane::testing::underContinuousIntegration()) {      \
      GTEST_FAIL() << "cannot run, and CI is set: " << (reason); \
    } else {                                                     \
      GTEST_SKIP() << (reason);                                  \
    }                                                            \
  } while (false)
