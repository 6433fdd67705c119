// ScanKernels: the JSON code's inner loops over buffered bytes, which
// measure runs of one kind of byte: plain string characters, whitespace,
// digits. The decoder reads with them, the encoder finds
// the bytes it must escape with them.
// Each comes in three variants with the same results: plain (a byte at a
// time), SSE2 (16 bytes at a time; every x86-64 processor has it) and AVX2
// (32 bytes at a time, compiled with GCC and Clang for x86-64 and used only
// where the processor reports it). The fastest the processor runs is chosen
// once; tests choose each in turn to compare them on the same input.
//
// The kernels only measure: what a run ends at (a quote, an escape, a
// control character, a non-ASCII byte, any other byte) is left to the
// parser's plain code, so errors and their locations do not depend on the
// variant.
//
// measurePlainString() tests the first bytes of a run inline before it
// calls the kernel: most strings (names, short values) end within them, and
// the kernel's call then costs more than the test.
//
// Thread safety: the kernels are pure functions. setScanLevel() is for
// tests and must not race with any use of the kernels (a decoder Document
// being made, an encoder writing).
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "utils/core/Processor.h"

#if KORVANE_X86_64
#include <emmintrin.h>
#define KORVANE_JSON_SSE2 1
#else
#define KORVANE_JSON_SSE2 0
#endif

namespace korvane::utils::json::detail {

// Bytes that a string may hold as they are: printable ASCII except '"' and
// '\\' (0x20 to 0x7F, DEL included).
constexpr bool isPlainStringByte(unsigned char c) noexcept {
  return c >= 0x20 && c < 0x80 && c != '"' && c != '\\';
}

// A run of whitespace: its length, and the line feeds in it.
struct WhitespaceRun {
  std::size_t length = 0;
  std::size_t lineFeeds = 0;
  std::size_t afterLastLineFeed = 0;  // offset just past the last line feed; 0 if none
};

enum class ScanLevel : std::uint8_t { plain, sse2, avx2 };

struct ScanKernels {
  ScanLevel level;
  // The number of plain string bytes that [begin, end) starts with.
  std::size_t (*plainStringLength)(const char* begin, const char* end) noexcept;
  // The whitespace (space, tab, CR, LF) that [begin, end) starts with.
  WhitespaceRun (*whitespace)(const char* begin, const char* end) noexcept;
  // The number of ASCII digits that [begin, end) starts with.
  std::size_t (*digitLength)(const char* begin, const char* end) noexcept;
};

// The kernels of the current level: the best one the processor runs,
// unless a test chose another.
const ScanKernels& scanKernels() noexcept;

// The best level this processor runs.
ScanLevel bestScanLevel() noexcept;

// Makes `level` current (at most bestScanLevel()); returns the level that
// was current. For tests that compare the variants.
ScanLevel setScanLevel(ScanLevel level) noexcept;

#if KORVANE_JSON_SSE2
// Bits set for the bytes of the 16 at `p` that end a plain run: below 0x20
// or from 0x80 on (negative as signed bytes), '"' and '\\'.
inline unsigned specialStringBytes16(const char* p) noexcept {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i low = _mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20));
  const __m128i quote = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('"'));
  const __m128i backslash = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'));
  return static_cast<unsigned>(
      _mm_movemask_epi8(_mm_or_si128(low, _mm_or_si128(quote, backslash))));
}
#endif

// The number of plain string bytes that the 16 at `p` start with (16 when
// all are plain), whatever the level: every level counts alike.
[[gnu::always_inline]] inline std::size_t plainLength16(const char* p) noexcept {
#if KORVANE_JSON_SSE2
  const unsigned special = specialStringBytes16(p);
  return special == 0 ? 16 : static_cast<std::size_t>(std::countr_zero(special));
#else
  std::size_t count = 0;
  while (count != 16 && isPlainStringByte(static_cast<unsigned char>(p[count]))) ++count;
  return count;
#endif
}

// The number of plain string bytes that [begin, end) starts with, as
// kernels.plainStringLength counts them; the first `inlineBytes` (a
// multiple of 16) are tested here, 16 at a time, above the plain level.
// REQUIRES: `inlineBytes` bytes can be read from `begin`, and where fewer
// than that lie before `end`, a byte that ends a run (a NUL) stands at `end`.
template <std::size_t inlineBytes>
[[gnu::always_inline]] inline std::size_t measurePlainString(const ScanKernels& kernels,
                                                             const char* begin,
                                                             const char* end) noexcept {
  static_assert(inlineBytes % 16 == 0);
#if KORVANE_JSON_SSE2
  if (kernels.level != ScanLevel::plain) {
    for (std::size_t offset = 0; offset != inlineBytes; offset += 16) {
      const unsigned special = specialStringBytes16(begin + offset);
      if (special != 0) return offset + static_cast<std::size_t>(std::countr_zero(special));
    }
    return inlineBytes + kernels.plainStringLength(begin + inlineBytes, end);
  }
#endif
  return kernels.plainStringLength(begin, end);
}

}  // namespace korvane::utils::json::detail
