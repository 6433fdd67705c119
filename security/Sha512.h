// Sha512: the SHA-512 message digest (FIPS 180-4), the Sha2 context over
// Sha512Traits: 64-bit words, 128-byte blocks, 80 rounds, 64-byte digest.
// See Sha2.h for the interface (init/update/finish, the one-shot hash(),
// the compression function, padding and wiping).
//
// The compression expands the message schedule with vector instructions
// beside the scalar rounds. Where the processor has AVX2 (and BMI2), it
// takes blocks two at a time and expands both schedules at once in 256-bit
// registers; where it also has AVX-512 (F, VL and BW) and BMI1, that runs
// as assembly laid out by hand (Sha512Avx512.h). Else it expands one
// block's schedule with SSE2 (part of every x86-64 processor), compiled
// with or without BMI2. The choice is made at run time (Sha512.cpp).
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

struct Sha512Traits {
  using Word = std::uint64_t;
  static constexpr std::size_t rounds = 80;
  // The working space the implementations need: two blocks' worth of
  // schedule words plus round constants, and a ring of eight pairs of
  // schedule words.
  static constexpr std::size_t scratchWords = 2 * rounds + 32;

  static constexpr std::array<Word, 8> initialState = {
      0x6a09e667f3bcc908ULL, 0xbb67ae8584caa73bULL, 0x3c6ef372fe94f82bULL, 0xa54ff53a5f1d36f1ULL,
      0x510e527fade682d1ULL, 0x9b05688c2b3e6c1fULL, 0x1f83d9abfb41bd6bULL, 0x5be0cd19137e2179ULL};

  // The first 64 bits of the fractional parts of the cube roots of the
  // first 80 primes.
  alignas(64) static constexpr std::array<Word, rounds> roundConstants = {
      0x428a2f98d728ae22ULL, 0x7137449123ef65cdULL, 0xb5c0fbcfec4d3b2fULL, 0xe9b5dba58189dbbcULL,
      0x3956c25bf348b538ULL, 0x59f111f1b605d019ULL, 0x923f82a4af194f9bULL, 0xab1c5ed5da6d8118ULL,
      0xd807aa98a3030242ULL, 0x12835b0145706fbeULL, 0x243185be4ee4b28cULL, 0x550c7dc3d5ffb4e2ULL,
      0x72be5d74f27b896fULL, 0x80deb1fe3b1696b1ULL, 0x9bdc06a725c71235ULL, 0xc19bf174cf692694ULL,
      0xe49b69c19ef14ad2ULL, 0xefbe4786384f25e3ULL, 0x0fc19dc68b8cd5b5ULL, 0x240ca1cc77ac9c65ULL,
      0x2de92c6f592b0275ULL, 0x4a7484aa6ea6e483ULL, 0x5cb0a9dcbd41fbd4ULL, 0x76f988da831153b5ULL,
      0x983e5152ee66dfabULL, 0xa831c66d2db43210ULL, 0xb00327c898fb213fULL, 0xbf597fc7beef0ee4ULL,
      0xc6e00bf33da88fc2ULL, 0xd5a79147930aa725ULL, 0x06ca6351e003826fULL, 0x142929670a0e6e70ULL,
      0x27b70a8546d22ffcULL, 0x2e1b21385c26c926ULL, 0x4d2c6dfc5ac42aedULL, 0x53380d139d95b3dfULL,
      0x650a73548baf63deULL, 0x766a0abb3c77b2a8ULL, 0x81c2c92e47edaee6ULL, 0x92722c851482353bULL,
      0xa2bfe8a14cf10364ULL, 0xa81a664bbc423001ULL, 0xc24b8b70d0f89791ULL, 0xc76c51a30654be30ULL,
      0xd192e819d6ef5218ULL, 0xd69906245565a910ULL, 0xf40e35855771202aULL, 0x106aa07032bbd1b8ULL,
      0x19a4c116b8d2d0c8ULL, 0x1e376c085141ab53ULL, 0x2748774cdf8eeb99ULL, 0x34b0bcb5e19b48a8ULL,
      0x391c0cb3c5c95a63ULL, 0x4ed8aa4ae3418acbULL, 0x5b9cca4f7763e373ULL, 0x682e6ff3d6b2b8a3ULL,
      0x748f82ee5defb2fcULL, 0x78a5636f43172f60ULL, 0x84c87814a1f0ab72ULL, 0x8cc702081a6439ecULL,
      0x90befffa23631e28ULL, 0xa4506cebde82bde9ULL, 0xbef9a3f7b2c67915ULL, 0xc67178f2e372532bULL,
      0xca273eceea26619cULL, 0xd186b8c721c0c207ULL, 0xeada7dd6cde0eb1eULL, 0xf57d4f7fee6ed178ULL,
      0x06f067aa72176fbaULL, 0x0a637dc5a2c898a6ULL, 0x113f9804bef90daeULL, 0x1b710b35131c471bULL,
      0x28db77f523047d84ULL, 0x32caab7b40c72493ULL, 0x3c9ebe0a15c9bebcULL, 0x431d67c49c100d4cULL,
      0x4cc5d4becb3e42b6ULL, 0x597f299cfc657e2aULL, 0x5fcb6fab3ad6faecULL, 0x6c44198c4a475817ULL};

  static constexpr Word bigSigma0(Word x) noexcept {
    return std::rotr(x, 28) ^ std::rotr(x, 34) ^ std::rotr(x, 39);
  }
  static constexpr Word bigSigma1(Word x) noexcept {
    return std::rotr(x, 14) ^ std::rotr(x, 18) ^ std::rotr(x, 41);
  }
  static constexpr Word smallSigma0(Word x) noexcept {
    return std::rotr(x, 1) ^ std::rotr(x, 8) ^ (x >> 7);
  }
  static constexpr Word smallSigma1(Word x) noexcept {
    return std::rotr(x, 19) ^ std::rotr(x, 61) ^ (x >> 6);
  }

  // The compression implementations this processor can run, best first.
  static std::span<const Sha2Implementation<Word>> implementations() noexcept;
};

using Sha512 = Sha2<Sha512Traits>;
extern template class Sha2<Sha512Traits>;

}  // namespace korvane::security
