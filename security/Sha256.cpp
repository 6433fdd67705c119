#include "security/Sha256.h"

#include "security/ImplementationList.h"
#include "security/Sha2Rounds.h"
#include "utils/core/ProcessorFeatures.h"

#if KORVANE_SHA2_X86_VARIANTS
#include <immintrin.h>
#endif

namespace korvane::security {

template class Sha2<Sha256Traits>;

namespace {

using Word = Sha256Traits::Word;
using State = Sha256::State;
using Implementation = Sha2Implementation<Word>;

void compressBlocksPortable(State& state, const unsigned char* blocks, std::size_t blockCount,
                            Word* scratch) noexcept {
  sha2rounds::compressRing<Sha256Traits>(state, blocks, blockCount, scratch);
}

#if KORVANE_SHA2_X86_VARIANTS

__attribute__((target("bmi2"))) void compressBlocksBmi2(State& state, const unsigned char* blocks,
                                                        std::size_t blockCount,
                                                        Word* scratch) noexcept {
  sha2rounds::compressRing<Sha256Traits>(state, blocks, blockCount, scratch);
}

// The SHA instructions keep the working variables in two registers,
// {A, B, E, F} and {C, D, G, H} (from the high word down), do two rounds
// per sha256rnds2 and expand four schedule words with sha256msg1 and
// sha256msg2.
#define KORVANE_SHA_NI __attribute__((target("sha,sse4.1,ssse3")))

struct ShaNiState {
  __m128i abef;
  __m128i cdgh;
};

KORVANE_SHA_NI inline ShaNiState loadShaNiState(const State& state) noexcept {
  // Words in memory order: {A, B, C, D} and {E, F, G, H}, A lowest.
  const __m128i abcd =
      _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(&state[0])), 0xB1);
  const __m128i hgfe =
      _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(&state[4])), 0x1B);
  return {_mm_alignr_epi8(abcd, hgfe, 8), _mm_blend_epi16(hgfe, abcd, 0xF0)};
}

KORVANE_SHA_NI inline void storeShaNiState(const ShaNiState& s, State& state) noexcept {
  const __m128i feba = _mm_shuffle_epi32(s.abef, 0x1B);
  const __m128i dchg = _mm_shuffle_epi32(s.cdgh, 0xB1);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(&state[0]), _mm_blend_epi16(feba, dchg, 0xF0));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(&state[4]), _mm_alignr_epi8(dchg, feba, 8));
}

// Four rounds with `kw` holding their constants plus schedule words.
KORVANE_SHA_NI inline void fourRounds(ShaNiState& s, __m128i kw) noexcept {
  s.cdgh = _mm_sha256rnds2_epu32(s.cdgh, s.abef, kw);
  s.abef = _mm_sha256rnds2_epu32(s.abef, s.cdgh, _mm_shuffle_epi32(kw, 0x0E));
}

KORVANE_SHA_NI inline __m128i roundConstants(std::size_t group) noexcept {
  return _mm_load_si128(
      reinterpret_cast<const __m128i*>(Sha256Traits::roundConstants.data() + 4 * group));
}

KORVANE_SHA_NI void compressBlocksShaNi(State& state, const unsigned char* blocks,
                                        std::size_t blockCount, Word*) noexcept {
  const __m128i byteSwap = _mm_set_epi64x(0x0c0d0e0f08090a0bLL, 0x0405060700010203LL);
  ShaNiState s = loadShaNiState(state);
  for (; blockCount > 0; --blockCount, blocks += Sha256::blockLength) {
    const ShaNiState saved = s;
    // m[g & 3] holds the schedule words 4g..4g+3 of group g.
    __m128i m[4];
    for (std::size_t i = 0; i < 4; ++i) {
      m[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks + 16 * i)),
                              byteSwap);
    }
#pragma GCC unroll 16
    for (std::size_t g = 0; g < 16; ++g) {
      if (g >= 4) {
        const __m128i previous = m[(g + 3) & 3];
        const __m128i sevenBack = _mm_alignr_epi8(previous, m[(g + 2) & 3], 4);
        m[g & 3] = _mm_sha256msg2_epu32(
            _mm_add_epi32(_mm_sha256msg1_epu32(m[g & 3], m[(g + 1) & 3]), sevenBack), previous);
      }
      fourRounds(s, _mm_add_epi32(m[g & 3], roundConstants(g)));
    }
    s.abef = _mm_add_epi32(s.abef, saved.abef);
    s.cdgh = _mm_add_epi32(s.cdgh, saved.cdgh);
  }
  storeShaNiState(s, state);
}

#undef KORVANE_SHA_NI

#endif

using Supported = ImplementationList<Implementation, 3>;

Supported findSupported() noexcept {
  Supported supported;
#if KORVANE_SHA2_X86_VARIANTS
  const utils::core::ProcessorFeatures& processor = utils::core::processorFeatures();
  if (processor.sha && processor.sse41 && processor.ssse3) {
    supported.add({"sha-ni", compressBlocksShaNi});
  }
  if (processor.bmi2) {
    supported.add({"bmi2", compressBlocksBmi2});
  }
#endif
  supported.add({"portable", compressBlocksPortable});
  return supported;
}

}  // namespace

std::span<const Implementation> Sha256Traits::implementations() noexcept {
  static const Supported supported = findSupported();
  return supported.view();
}

}  // namespace korvane::security
