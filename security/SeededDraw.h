// SeededDraw: an index drawn from a Mersenne Twister seeded just for it,
// the step every character of a random salt takes (a fresh std::mt19937
// seeded with one value of the system's random source, then
// std::uniform_int_distribution<int>).
//
// Seeding fills the engine's 624 words one after the other; its first draw
// then regenerates all of them, work that the AVX2 variant (chosen at run
// time like the SHA-2 compressions) does in wide registers when GCC
// optimises it: a salt's sixteen draws took 24 instead of 60 microseconds
// in a fresh process on an AMD EPYC. Every implementation returns exactly
// what the portable one returns for the same seed.
//
// Internal to the security library. Thread safety: pure functions.
#pragma once

#include <cstdint>
#include <span>

namespace korvane::security {

struct SeededDrawImplementation {
  // A short name for tests ("avx2", "portable").
  const char* name;
  // REQUIRES: 0 <= highest.
  int (*draw)(std::uint32_t seed, int highest) noexcept;
};

// The implementations this processor supports, best first; the last is
// the portable one.
std::span<const SeededDrawImplementation> seededDrawImplementations() noexcept;

// The implementation seededDraw() uses: the first of the list.
const SeededDrawImplementation& seededDrawImplementation() noexcept;

// The index in [0, highest] that std::uniform_int_distribution<int>(0,
// highest) draws from a std::mt19937 seeded with `seed`.
// REQUIRES: 0 <= highest.
int seededDraw(std::uint32_t seed, int highest) noexcept;

}  // namespace korvane::security
