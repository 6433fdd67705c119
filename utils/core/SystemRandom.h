// fillSystemRandom: bytes from the operating system's cryptographic random
// source (getrandom(2) on Linux, BCryptGenRandom on Windows).
// randomDeviceToken: the std::random_device token that draws from that
// same source.
//
// Thread safety: reentrant.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace korvane::utils::core {

// Fills every byte of `out`. Throws std::system_error when the source fails.
void fillSystemRandom(std::span<std::byte> out);

// The token to construct std::random_device with so that it reads the
// operating system's source: "getentropy" where the standard library has
// it (POSIX), else "/dev/urandom" where that can be read, else "default". On x86 the standard
// library's default asks the processor (RDSEED) instead, and probes the processor's features again
// for every device constructed, which costs a dozen microseconds each in a virtual machine; the
// kernel's source costs one open and one read.
const std::string& randomDeviceToken();

}  // namespace korvane::utils::core
