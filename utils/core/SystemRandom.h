// fillSystemRandom: bytes from the operating system's cryptographic random
// source (getrandom(2) on Linux, BCryptGenRandom on Windows).
//
// Thread safety: reentrant.
#pragma once

#include <cstddef>
#include <span>

namespace korvane::utils::core {

// Fills every byte of `out`. Throws std::system_error when the source fails.
void fillSystemRandom(std::span<std::byte> out);

}  // namespace korvane::utils::core
