// The strength policy: a password is strong enough when the estimate of its
// entropy is at least 60 bits. An estimate that is not a number counts as
// weak.
//
// estimatePasswordEntropy is defined by the library korvane_passwordStrength,
// the zxcvbn estimator with its built-in dictionaries and no user dictionary
// (in particular not the user's name); that library is the only code that
// knows zxcvbn. The test variant of the program, built where zxcvbn is not
// available, links a deterministic test estimator instead
// (tests/strengthEstimator/).
//
// Thread safety: reentrant.
#pragma once

namespace korvane::setUserPassword {

inline constexpr double minimumPasswordEntropy = 60.0;

// The estimated entropy of `password` in bits.
// REQUIRES: `password` is NUL-terminated (c_str() of a string).
double estimatePasswordEntropy(const char* password);

// Written so that NaN fails the test.
constexpr bool isStrongEnough(double entropy) noexcept { return entropy >= minimumPasswordEntropy; }

}  // namespace korvane::setUserPassword
