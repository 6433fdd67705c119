// Sha256: the SHA-256 message digest (FIPS 180-4), the Sha2 context over
// Sha256Traits: 32-bit words, 64-byte blocks, 64 rounds, 32-byte digest.
// See Sha2.h for the interface (init/update/finish, the one-shot hash(),
// the compression function, padding and wiping).
//
// The compression runs on the processor's SHA instructions where it has
// them, else on plain code compiled for BMI2 or for any x86-64 (chosen at
// run time; Sha256.cpp).
//
// Thread safety: as Sha2.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "security/Sha2.h"

namespace korvane::security {

struct Sha256Traits {
  using Word = std::uint32_t;
  static constexpr std::size_t rounds = 64;
  // The working space the implementations need: a ring of sixteen words.
  static constexpr std::size_t scratchWords = 16;

  static constexpr std::array<Word, 8> initialState = {0x6a09e667, 0xbb67ae85, 0x3c6ef372,
                                                       0xa54ff53a, 0x510e527f, 0x9b05688c,
                                                       0x1f83d9ab, 0x5be0cd19};

  // The first 32 bits of the fractional parts of the cube roots of the
  // first 64 primes.
  alignas(64) static constexpr std::array<Word, rounds> roundConstants = {
      0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4,
      0xab1c5ed5, 0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe,
      0x9bdc06a7, 0xc19bf174, 0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f,
      0x4a7484aa, 0x5cb0a9dc, 0x76f988da, 0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7,
      0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967, 0x27b70a85, 0x2e1b2138, 0x4d2c6dfc,
      0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85, 0xa2bfe8a1, 0xa81a664b,
      0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070, 0x19a4c116,
      0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
      0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7,
      0xc67178f2};

  static constexpr Word bigSigma0(Word x) noexcept {
    return std::rotr(x, 2) ^ std::rotr(x, 13) ^ std::rotr(x, 22);
  }
  static constexpr Word bigSigma1(Word x) noexcept {
    return std::rotr(x, 6) ^ std::rotr(x, 11) ^ std::rotr(x, 25);
  }
  static constexpr Word smallSigma0(Word x) noexcept {
    return std::rotr(x, 7) ^ std::rotr(x, 18) ^ (x >> 3);
  }
  static constexpr Word smallSigma1(Word x) noexcept {
    return std::rotr(x, 17) ^ std::rotr(x, 19) ^ (x >> 10);
  }

  // The compression implementations this processor can run, best first.
  static std::span<const Sha2Implementation<Word>> implementations() noexcept;
};

using Sha256 = Sha2<Sha256Traits>;
extern template class Sha2<Sha256Traits>;

}  // namespace korvane::security
