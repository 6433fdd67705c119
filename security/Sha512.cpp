#include "security/Sha512.h"

#include "security/ImplementationList.h"
#include "security/Sha2Rounds.h"
#include "security/Sha512Avx512.h"
#include "utils/core/Processor.h"
#include "utils/core/ProcessorFeatures.h"

#if KORVANE_SHA2_X86_VARIANTS
#include <immintrin.h>
#endif
#if KORVANE_X86_64
#include <emmintrin.h>
#define KORVANE_SHA512_SSE2 1
#else
#define KORVANE_SHA512_SSE2 0
#endif

namespace korvane::security {

template class Sha2<Sha512Traits>;

namespace {

using Word = Sha512Traits::Word;
using State = Sha512::State;
using Implementation = Sha2Implementation<Word>;

#if KORVANE_SHA512_SSE2

// The message schedule is expanded two words at a time in SSE2 registers
// (part of every x86-64 processor), two rounds ahead of its use, so that
// the vector unit works beside the integer rounds instead of adding to
// their load. The last sixteen words stay in eight registers, a pair in
// each, so that expanding loads nothing: only the words plus their round
// constants go to memory (the caller's scratch, which it wipes), where the
// rounds read them. Like the rounds' own variables, a pair the compiler
// spills is left on the stack.

template <int bits>
inline __m128i rotateRight(__m128i x) noexcept {
  return _mm_or_si128(_mm_srli_epi64(x, bits), _mm_slli_epi64(x, 64 - bits));
}

// The high word of `low` and the low word of `high`: the pair that
// straddles two pairs of the ring.
inline __m128i straddle(__m128i low, __m128i high) noexcept {
  return _mm_castpd_si128(_mm_shuffle_pd(_mm_castsi128_pd(low), _mm_castsi128_pd(high), 1));
}

inline void store(Word* words, __m128i value) noexcept {
  _mm_store_si128(reinterpret_cast<__m128i*>(words), value);
}

// Schedule words t and t + 1 (t even, 16 <= t < 80) from the ring, where
// pair k holds the words of the last sixteen whose index is 2k or 2k + 1
// mod 16; they replace words t - 16 and t - 15 there, and the same plus
// their round constants go to kw[t], kw[t + 1].
KORVANE_SHA2_BODY void expandPair(__m128i (&ring)[8], Word* kw, std::size_t t) noexcept {
  const std::size_t slot = (t / 2) & 7;
  const __m128i back16 = ring[slot];
  const __m128i back2 = ring[(slot + 7) & 7];
  const __m128i back15 = straddle(back16, ring[(slot + 1) & 7]);
  const __m128i back7 = straddle(ring[(slot + 4) & 7], ring[(slot + 5) & 7]);
  const __m128i sigma1 = _mm_xor_si128(
      _mm_xor_si128(rotateRight<19>(back2), rotateRight<61>(back2)), _mm_srli_epi64(back2, 6));
  const __m128i sigma0 = _mm_xor_si128(
      _mm_xor_si128(rotateRight<1>(back15), rotateRight<8>(back15)), _mm_srli_epi64(back15, 7));
  const __m128i word = _mm_add_epi64(_mm_add_epi64(sigma1, back7), _mm_add_epi64(sigma0, back16));
  ring[slot] = word;
  store(kw + t, _mm_add_epi64(word, _mm_load_si128(reinterpret_cast<const __m128i*>(
                                        Sha512Traits::roundConstants.data() + t))));
}

// Blocks with the schedule words plus their round constants in
// scratch[0, 80).
KORVANE_SHA2_BODY void compressSse2(State& state, const unsigned char* blocks,
                                    std::size_t blockCount, Word* scratch) noexcept {
  Word* const kw = scratch;
  for (; blockCount > 0; --blockCount, blocks += Sha512::blockLength) {
    __m128i ring[8];
    for (std::size_t k = 0; k < 8; ++k) {
      const Word low = loadBigEndian<Word>(blocks + 16 * k);
      const Word high = loadBigEndian<Word>(blocks + 16 * k + 8);
      ring[k] = _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
      kw[2 * k] = low + Sha512Traits::roundConstants[2 * k];
      kw[2 * k + 1] = high + Sha512Traits::roundConstants[2 * k + 1];
    }
    sha2rounds::allRounds<Sha512Traits>(
        state,
        [&](std::size_t j) KORVANE_SHA2_LAMBDA {
          if ((j & 1) == 0) expandPair(ring, kw, 16 + j);
          return kw[j];
        },
        [&](std::size_t r, std::size_t j) KORVANE_SHA2_LAMBDA {
          if ((j & 1) == 0) expandPair(ring, kw, r + 16 + j);
          return kw[r + j];
        },
        // The last sixteen words need no successors.
        [&](std::size_t j) KORVANE_SHA2_LAMBDA { return kw[Sha512Traits::rounds - 16 + j]; });
  }
}

#else

KORVANE_SHA2_BODY void compressSse2(State& state, const unsigned char* blocks,
                                    std::size_t blockCount, Word* scratch) noexcept {
  sha2rounds::compressRing<Sha512Traits>(state, blocks, blockCount, scratch);
}

#endif

void compressBlocksPortable(State& state, const unsigned char* blocks, std::size_t blockCount,
                            Word* scratch) noexcept {
  compressSse2(state, blocks, blockCount, scratch);
}

#if KORVANE_SHA2_X86_VARIANTS

__attribute__((target("bmi2"))) void compressBlocksBmi2(State& state, const unsigned char* blocks,
                                                        std::size_t blockCount,
                                                        Word* scratch) noexcept {
  compressSse2(state, blocks, blockCount, scratch);
}

// Two blocks at a time, for processors with AVX2: their schedules are
// expanded together in 256-bit registers, each holding two words of the
// first block (low half) and the same two of the second (high half),
// while the first block's rounds run; the second block's rounds then only
// read its prepared words. That halves the vector work per block. The
// pairs of schedule words go through a ring of eight in scratch[160, 192),
// the words plus round constants of the first block to scratch[0, 80),
// the second's to scratch[80, 160). An odd last block goes alone, with
// the SSE2 schedule. (Processors with AVX-512 run Sha512Avx512.cpp's
// assembly instead.)

#define KORVANE_SHA512_AVX2_PART __attribute__((target("avx2"))) inline

template <int bits>
KORVANE_SHA512_AVX2_PART __m256i rotateRight256(__m256i x) noexcept {
  return _mm256_or_si256(_mm256_srli_epi64(x, bits), _mm256_slli_epi64(x, 64 - bits));
}

KORVANE_SHA512_AVX2_PART __m256i loadRing(const Word* scratch, std::size_t slot) noexcept {
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(scratch + 160 + 4 * (slot & 7)));
}

// Stores the pair of schedule words t, t + 1 (t even) of both blocks in
// ring slot `slot`, and the same plus the round constants.
KORVANE_SHA512_AVX2_PART void storePair(Word* scratch, std::size_t t, std::size_t slot,
                                        __m256i pair) noexcept {
  _mm256_store_si256(reinterpret_cast<__m256i*>(scratch + 160 + 4 * (slot & 7)), pair);
  const __m256i constants = _mm256_broadcastsi128_si256(
      _mm_load_si128(reinterpret_cast<const __m128i*>(Sha512Traits::roundConstants.data() + t)));
  const __m256i kw = _mm256_add_epi64(pair, constants);
  _mm_store_si128(reinterpret_cast<__m128i*>(scratch + t), _mm256_castsi256_si128(kw));
  _mm_store_si128(reinterpret_cast<__m128i*>(scratch + 80 + t), _mm256_extracti128_si256(kw, 1));
}

// The pair t, t + 1 (t even, 16 <= t < 80), whose ring slot is t / 2 mod 8;
// `slot` is that slot, a constant after inlining.
KORVANE_SHA512_AVX2_PART void expandPair256(Word* scratch, std::size_t t,
                                            std::size_t slot) noexcept {
  const __m256i back16 = loadRing(scratch, slot);
  const __m256i back2 = loadRing(scratch, slot + 7);
  // Words t - 15, t - 14 and t - 7, t - 6 straddle two pairs.
  const __m256i back15 = _mm256_alignr_epi8(loadRing(scratch, slot + 1), back16, 8);
  const __m256i back7 =
      _mm256_alignr_epi8(loadRing(scratch, slot + 5), loadRing(scratch, slot + 4), 8);
  const __m256i sigma1 =
      _mm256_xor_si256(_mm256_xor_si256(rotateRight256<19>(back2), rotateRight256<61>(back2)),
                       _mm256_srli_epi64(back2, 6));
  const __m256i sigma0 =
      _mm256_xor_si256(_mm256_xor_si256(rotateRight256<1>(back15), rotateRight256<8>(back15)),
                       _mm256_srli_epi64(back15, 7));
  storePair(scratch, t, slot,
            _mm256_add_epi64(_mm256_add_epi64(sigma1, back7), _mm256_add_epi64(sigma0, back16)));
}

[[gnu::always_inline]] KORVANE_SHA512_AVX2_PART void compressTwo(State& state,
                                                                 const unsigned char* blocks,
                                                                 Word* scratch) noexcept {
  const __m256i byteSwap = _mm256_set_epi64x(0x08090a0b0c0d0e0fLL, 0x0001020304050607LL,
                                             0x08090a0b0c0d0e0fLL, 0x0001020304050607LL);
  for (std::size_t k = 0; k < 8; ++k) {
    const __m256i pair =
        _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(blocks + Sha512::blockLength + 16 * k),
                            reinterpret_cast<const __m128i*>(blocks + 16 * k));
    storePair(scratch, 2 * k, k, _mm256_shuffle_epi8(pair, byteSwap));
  }
  const Word* const first = scratch;
  sha2rounds::allRounds<Sha512Traits>(
      state,
      [&](std::size_t j) KORVANE_SHA2_LAMBDA {
        if ((j & 1) == 0) expandPair256(scratch, 16 + j, j / 2);
        return first[j];
      },
      [&](std::size_t r, std::size_t j) KORVANE_SHA2_LAMBDA {
        // r is a multiple of 16, so the slot of t = r + 16 + j is j / 2.
        if ((j & 1) == 0) expandPair256(scratch, r + 16 + j, j / 2);
        return first[r + j];
      },
      [&](std::size_t j) KORVANE_SHA2_LAMBDA { return first[Sha512Traits::rounds - 16 + j]; });
  sha2rounds::compressScheduled<Sha512Traits>(state, scratch + 80);
}

__attribute__((target("avx2,bmi2"))) void compressBlocksAvx2(State& state,
                                                             const unsigned char* blocks,
                                                             std::size_t blockCount,
                                                             Word* scratch) noexcept {
  for (; blockCount >= 2; blockCount -= 2, blocks += 2 * Sha512::blockLength) {
    compressTwo(state, blocks, scratch);
  }
  if (blockCount > 0) compressSse2(state, blocks, 1, scratch);
}

#undef KORVANE_SHA512_AVX2_PART

#endif

using Supported = ImplementationList<Implementation, 4>;

Supported findSupported() noexcept {
  Supported supported;
#if KORVANE_SHA2_X86_VARIANTS
  const utils::core::ProcessorFeatures& processor = utils::core::processorFeatures();
#if KORVANE_SHA512_AVX512_ASSEMBLY
  if (processor.avx512f && processor.avx512vl && processor.avx512bw && processor.bmi1 &&
      processor.bmi2) {
    supported.add({"avx512", compressBlocksAvx512});
  }
#endif
  if (processor.avx2 && processor.bmi2) {
    supported.add({"avx2", compressBlocksAvx2});
  }
  if (processor.bmi2) {
    supported.add({"bmi2", compressBlocksBmi2});
  }
#endif
  supported.add({"portable", compressBlocksPortable});
  return supported;
}

}  // namespace

std::span<const Implementation> Sha512Traits::implementations() noexcept {
  static const Supported supported = findSupported();
  return supported.view();
}

}  // namespace korvane::security
