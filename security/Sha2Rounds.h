// Sha2Rounds: the scalar rounds of the SHA-2 compression, written once for
// both word sizes over a Sha2 traits type, for the compression
// implementations in Sha256.cpp and Sha512.cpp to compile for each
// processor variant they choose from at run time.
//
// Everything here is inlined into its caller (KORVANE_SHA2_BODY), so that a
// caller compiled for a processor extension (target attribute) gets the
// rounds compiled for it too: with BMI2, rorx rotates without first copying
// its operand, which saves a move per rotation in rounds that are bound by
// instruction throughput.
//
// Internal to the security library. Thread safety: pure functions.
#pragma once

#include <array>
#include <cstddef>

#include "security/Sha2.h"
#include "utils/core/Processor.h"

#if KORVANE_X86_64_GNU
// Processor variants are compiled with target attributes and chosen at run
// time by utils/core's ProcessorFeatures.
#define KORVANE_SHA2_X86_VARIANTS 1
#else
#define KORVANE_SHA2_X86_VARIANTS 0
#endif
#if defined(__GNUC__) || defined(__clang__)
#define KORVANE_SHA2_BODY [[gnu::always_inline]] inline
#define KORVANE_SHA2_LAMBDA __attribute__((always_inline))
#else
#define KORVANE_SHA2_BODY inline
#define KORVANE_SHA2_LAMBDA
#endif

namespace korvane::security::sha2rounds {

// One round on the working variables, with their roles rotated by the
// caller instead of the values being shifted, so only d and h change.
// `kw` is the round constant plus the schedule word. Maj(a, b, c) is
// b ^ ((a ^ b) & (b ^ c)), where b ^ c is the previous round's a ^ b: each
// round leaves its a ^ b in `abOut` for the next one, which reads it as `bc`.
template <typename Traits, typename Word = typename Traits::Word>
KORVANE_SHA2_BODY void round(Word a, Word b, Word c, Word& d, Word e, Word f, Word g, Word& h,
                             Word kw, Word& abOut, Word bc) noexcept {
  static_cast<void>(c);
  const Word t1 = static_cast<Word>(h + Traits::bigSigma1(e) + (g ^ (e & (f ^ g))) + kw);
  d = static_cast<Word>(d + t1);
  abOut = a ^ b;
  h = static_cast<Word>(t1 + Traits::bigSigma0(a) + (b ^ (abOut & bc)));
}

// Sixteen rounds j = 0..15; `kw(j)` gives round j's constant plus schedule
// word (and may expand the schedule on the way).
template <typename Traits, typename KW, typename Word = typename Traits::Word>
KORVANE_SHA2_BODY void sixteenRounds(Word& a, Word& b, Word& c, Word& d, Word& e, Word& f, Word& g,
                                     Word& h, Word& ab0, Word& ab1, KW&& kw) noexcept {
  round<Traits>(a, b, c, d, e, f, g, h, kw(0), ab0, ab1);
  round<Traits>(h, a, b, c, d, e, f, g, kw(1), ab1, ab0);
  round<Traits>(g, h, a, b, c, d, e, f, kw(2), ab0, ab1);
  round<Traits>(f, g, h, a, b, c, d, e, kw(3), ab1, ab0);
  round<Traits>(e, f, g, h, a, b, c, d, kw(4), ab0, ab1);
  round<Traits>(d, e, f, g, h, a, b, c, kw(5), ab1, ab0);
  round<Traits>(c, d, e, f, g, h, a, b, kw(6), ab0, ab1);
  round<Traits>(b, c, d, e, f, g, h, a, kw(7), ab1, ab0);
  round<Traits>(a, b, c, d, e, f, g, h, kw(8), ab0, ab1);
  round<Traits>(h, a, b, c, d, e, f, g, kw(9), ab1, ab0);
  round<Traits>(g, h, a, b, c, d, e, f, kw(10), ab0, ab1);
  round<Traits>(f, g, h, a, b, c, d, e, kw(11), ab1, ab0);
  round<Traits>(e, f, g, h, a, b, c, d, kw(12), ab0, ab1);
  round<Traits>(d, e, f, g, h, a, b, c, kw(13), ab1, ab0);
  round<Traits>(c, d, e, f, g, h, a, b, kw(14), ab0, ab1);
  round<Traits>(b, c, d, e, f, g, h, a, kw(15), ab1, ab0);
}

// All rounds of one block from the chaining value, which is then added.
// `first(j)` gives the constant plus schedule word of round j < 16,
// `later(r, j)` that of round r + j for r = 16, 32, ... up to the last
// sixteen rounds, and `last(j)` that of round rounds - 16 + j; j is a
// constant after inlining, r a multiple of 16. The last sixteen rounds are
// apart because they need no schedule words after them: a caller that
// expands the schedule ahead of its use then tests nothing in the loop.
template <typename Traits, typename First, typename Later, typename Last,
          typename Word = typename Traits::Word>
KORVANE_SHA2_BODY void allRounds(std::array<Word, 8>& state, First&& first, Later&& later,
                                 Last&& last) noexcept {
  Word a = state[0], b = state[1], c = state[2], d = state[3];
  Word e = state[4], f = state[5], g = state[6], h = state[7];
  Word ab0 = 0;
  Word ab1 = b ^ c;
  sixteenRounds<Traits>(a, b, c, d, e, f, g, h, ab0, ab1, first);
  for (std::size_t r = 16; r < Traits::rounds - 16; r += 16) {
    sixteenRounds<Traits>(a, b, c, d, e, f, g, h, ab0, ab1,
                          [&](std::size_t j) KORVANE_SHA2_LAMBDA { return later(r, j); });
  }
  sixteenRounds<Traits>(a, b, c, d, e, f, g, h, ab0, ab1, last);
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
  state[4] += e;
  state[5] += f;
  state[6] += g;
  state[7] += h;
}

// As above, with `later` giving the last sixteen rounds' words too.
template <typename Traits, typename First, typename Later, typename Word = typename Traits::Word>
KORVANE_SHA2_BODY void allRounds(std::array<Word, 8>& state, First&& first,
                                 Later&& later) noexcept {
  allRounds<Traits>(state, first, later, [&](std::size_t j) KORVANE_SHA2_LAMBDA {
    return later(Traits::rounds - 16, j);
  });
}

// Blocks with the schedule expanded in a ring of sixteen words (`w`, in
// the caller's scratch), each word just before its round.
template <typename Traits, typename Word = typename Traits::Word>
KORVANE_SHA2_BODY void compressRing(std::array<Word, 8>& state, const unsigned char* blocks,
                                    std::size_t blockCount, Word* w) noexcept {
  for (; blockCount > 0; --blockCount, blocks += Sha2<Traits>::blockLength) {
    for (std::size_t i = 0; i < 16; ++i) w[i] = loadBigEndian<Word>(blocks + sizeof(Word) * i);
    allRounds<Traits>(
        state,
        [&](std::size_t j)
            KORVANE_SHA2_LAMBDA { return static_cast<Word>(Traits::roundConstants[j] + w[j]); },
        [&](std::size_t r, std::size_t j) KORVANE_SHA2_LAMBDA {
          w[j] = static_cast<Word>(w[j] + Traits::smallSigma1(w[(j + 14) & 15]) + w[(j + 9) & 15] +
                                   Traits::smallSigma0(w[(j + 1) & 15]));
          return static_cast<Word>(Traits::roundConstants[r + j] + w[j]);
        });
  }
}

// One block from its expanded schedule (round constants included).
template <typename Traits, typename Word = typename Traits::Word>
KORVANE_SHA2_BODY void compressScheduled(std::array<Word, 8>& state,
                                         const Word* schedule) noexcept {
  allRounds<Traits>(
      state, [schedule](std::size_t j) KORVANE_SHA2_LAMBDA { return schedule[j]; },
      [schedule](std::size_t r, std::size_t j) KORVANE_SHA2_LAMBDA { return schedule[r + j]; });
}

}  // namespace korvane::security::sha2rounds
