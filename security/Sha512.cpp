#include "security/Sha512.h"

#include "security/Sha2Rounds.h"

#if defined(__SSE2__) || defined(_M_X64)
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
// their load.

template <int kBits>
inline __m128i rotateRight(__m128i x) noexcept {
  return _mm_or_si128(_mm_srli_epi64(x, kBits), _mm_slli_epi64(x, 64 - kBits));
}

inline __m128i load(const Word* words) noexcept {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(words));
}

inline void store(Word* words, __m128i value) noexcept {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(words), value);
}

// Schedule words t and t + 1, and the same plus their round constants.
KORVANE_SHA2_BODY void expandPair(Word* w, Word* kw, std::size_t t) noexcept {
  const __m128i x2 = load(w + t - 2);
  const __m128i x15 = load(w + t - 15);
  const __m128i sigma1 =
      _mm_xor_si128(_mm_xor_si128(rotateRight<19>(x2), rotateRight<61>(x2)), _mm_srli_epi64(x2, 6));
  const __m128i sigma0 =
      _mm_xor_si128(_mm_xor_si128(rotateRight<1>(x15), rotateRight<8>(x15)), _mm_srli_epi64(x15, 7));
  const __m128i word = _mm_add_epi64(_mm_add_epi64(sigma1, load(w + t - 7)),
                                     _mm_add_epi64(sigma0, load(w + t - 16)));
  store(w + t, word);
  store(kw + t, _mm_add_epi64(word, load(Sha512Traits::kRoundConstants.data() + t)));
}

// Blocks with the schedule words in scratch[0, 80) and the same plus their
// round constants in scratch[80, 160).
KORVANE_SHA2_BODY void compressSse2(State& state, const unsigned char* blocks,
                                    std::size_t blockCount, Word* scratch) noexcept {
  Word* const w = scratch;
  Word* const kw = scratch + 80;
  for (; blockCount > 0; --blockCount, blocks += Sha512::kBlockLength) {
    for (std::size_t i = 0; i < 16; ++i) {
      w[i] = loadBigEndian<Word>(blocks + 8 * i);
      kw[i] = w[i] + Sha512Traits::kRoundConstants[i];
    }
    sha2rounds::allRounds<Sha512Traits>(
        state,
        [&](std::size_t j) KORVANE_SHA2_LAMBDA {
          if ((j & 1) == 0) expandPair(w, kw, 16 + j);
          return kw[j];
        },
        [&](std::size_t r, std::size_t j) KORVANE_SHA2_LAMBDA {
          // The last sixteen words need no successors.
          if ((j & 1) == 0 && r + 16 + j < Sha512Traits::kRounds) expandPair(w, kw, r + 16 + j);
          return kw[r + j];
        });
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

void compressSchedulePortable(State& state, const Word* schedule) noexcept {
  sha2rounds::compressScheduled<Sha512Traits>(state, schedule);
}

#if KORVANE_SHA2_X86_VARIANTS

__attribute__((target("bmi2"))) void compressBlocksBmi2(State& state, const unsigned char* blocks,
                                                        std::size_t blockCount,
                                                        Word* scratch) noexcept {
  compressSse2(state, blocks, blockCount, scratch);
}

__attribute__((target("bmi2"))) void compressScheduleBmi2(State& state,
                                                          const Word* schedule) noexcept {
  sha2rounds::compressScheduled<Sha512Traits>(state, schedule);
}

// The same compiled for AVX-512 (its 128-bit forms): the compiler turns
// each rotation's two shifts and or into one vprorq and each three-way
// exclusive or into one vpternlogq, halving the schedule's instructions,
// and the three-operand encoding drops the copies before the shifts.
__attribute__((target("avx512f,avx512vl,bmi2"))) void compressBlocksAvx512(
    State& state, const unsigned char* blocks, std::size_t blockCount, Word* scratch) noexcept {
  compressSse2(state, blocks, blockCount, scratch);
}

__attribute__((target("avx512f,avx512vl,bmi2"))) void compressScheduleAvx512(
    State& state, const Word* schedule) noexcept {
  sha2rounds::compressScheduled<Sha512Traits>(state, schedule);
}

#endif

struct Supported {
  std::array<Implementation, 3> list;
  std::size_t count = 0;
  void add(const Implementation& implementation) noexcept { list[count++] = implementation; }
};

Supported findSupported() noexcept {
  Supported supported;
#if KORVANE_SHA2_X86_VARIANTS
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
      __builtin_cpu_supports("bmi2")) {
    supported.add({"avx512", compressBlocksAvx512, compressScheduleAvx512});
  }
  if (__builtin_cpu_supports("bmi2")) {
    supported.add({"bmi2", compressBlocksBmi2, compressScheduleBmi2});
  }
#endif
  supported.add({"portable", compressBlocksPortable, compressSchedulePortable});
  return supported;
}

}  // namespace

std::span<const Implementation> Sha512Traits::implementations() noexcept {
  static const Supported supported = findSupported();
  return {supported.list.data(), supported.count};
}

}  // namespace korvane::security
