// The strength policy: a password is strong enough when the zxcvbn
// estimate of its entropy is at least 60 bits. No user dictionary is given
// to the estimator (in particular not the user's name). An estimate that is
// not a number counts as weak.
//
// Thread safety: reentrant.
#pragma once

#include <string_view>

namespace korvane::setUserPassword {

inline constexpr double minimumPasswordEntropy = 60.0;

// The estimated entropy of `password` in bits.
// REQUIRES: `password` is NUL-terminated (c_str() of a string).
double estimatePasswordEntropy(const char* password);

bool isStrongEnough(double entropy) noexcept;

}  // namespace korvane::setUserPassword
