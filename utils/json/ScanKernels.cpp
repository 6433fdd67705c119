#include "utils/json/ScanKernels.h"

#include <atomic>
#include <bit>

#if KORVANE_JSON_SSE2
#include <immintrin.h>
#endif

#if KORVANE_JSON_SSE2 && (defined(__GNUC__) || defined(__clang__))
// The AVX2 variants are compiled for that processor by function attribute
// and called only after the processor said it has AVX2.
#define KORVANE_JSON_AVX2 1
#define KORVANE_JSON_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define KORVANE_JSON_AVX2 0
#endif

#include "utils/core/ProcessorFeatures.h"

namespace korvane::utils::json::detail {

namespace {

bool isWhitespace(char c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// ---- plain: one byte at a time; also the tails of the wider variants

std::size_t plainStringLengthFrom(const char* begin, const char* p, const char* end) noexcept {
  while (p != end && isPlainStringByte(static_cast<unsigned char>(*p))) ++p;
  return static_cast<std::size_t>(p - begin);
}

WhitespaceRun whitespaceFrom(const char* begin, const char* p, const char* end,
                             WhitespaceRun run) noexcept {
  for (; p != end && isWhitespace(*p); ++p) {
    if (*p == '\n') {
      ++run.lineFeeds;
      run.afterLastLineFeed = static_cast<std::size_t>(p - begin) + 1;
    }
  }
  run.length = static_cast<std::size_t>(p - begin);
  return run;
}

std::size_t digitLengthFrom(const char* begin, const char* p, const char* end) noexcept {
  while (p != end && isDigit(*p)) ++p;
  return static_cast<std::size_t>(p - begin);
}

std::size_t plainStringLengthPlain(const char* begin, const char* end) noexcept {
  return plainStringLengthFrom(begin, begin, end);
}

WhitespaceRun whitespacePlain(const char* begin, const char* end) noexcept {
  return whitespaceFrom(begin, begin, end, {});
}

std::size_t digitLengthPlain(const char* begin, const char* end) noexcept {
  return digitLengthFrom(begin, begin, end);
}

constexpr ScanKernels plainKernels{ScanLevel::plain, plainStringLengthPlain, whitespacePlain,
                                   digitLengthPlain};

// Adds the line feeds among the first `length` bytes of a block at `offset`
// (their bits in `lineFeeds`) to `run`.
template <typename Mask>
void addLineFeeds(WhitespaceRun& run, std::size_t offset, Mask lineFeeds,
                  unsigned length) noexcept {
  if (length < sizeof(Mask) * 8) lineFeeds &= static_cast<Mask>((Mask{1} << length) - 1);
  if (lineFeeds == 0) return;
  run.lineFeeds += static_cast<std::size_t>(std::popcount(lineFeeds));
  run.afterLastLineFeed =
      offset + sizeof(Mask) * 8 - static_cast<std::size_t>(std::countl_zero(lineFeeds));
}

#if KORVANE_JSON_SSE2

// ---- SSE2: 16 bytes at a time

std::size_t plainStringLengthSse2(const char* begin, const char* end) noexcept {
  const char* p = begin;
  for (; end - p >= 16; p += 16) {
    const unsigned special = specialStringBytes16(p);
    if (special != 0)
      return static_cast<std::size_t>(p - begin) +
             static_cast<std::size_t>(std::countr_zero(special));
  }
  return plainStringLengthFrom(begin, p, end);
}

WhitespaceRun whitespaceSse2(const char* begin, const char* end) noexcept {
  WhitespaceRun run;
  const char* p = begin;
  for (; end - p >= 16; p += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i lineFeed = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n'));
    const __m128i space =
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(' ')),
                                  _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\t'))),
                     _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\r')), lineFeed));
    const auto other = static_cast<std::uint16_t>(~_mm_movemask_epi8(space));
    const auto lineFeeds = static_cast<std::uint16_t>(_mm_movemask_epi8(lineFeed));
    const auto offset = static_cast<std::size_t>(p - begin);
    if (other != 0) {
      const auto length = static_cast<unsigned>(std::countr_zero(other));
      addLineFeeds(run, offset, lineFeeds, length);
      run.length = offset + length;
      return run;
    }
    addLineFeeds(run, offset, lineFeeds, 16);
  }
  return whitespaceFrom(begin, p, end, run);
}

std::size_t digitLengthSse2(const char* begin, const char* end) noexcept {
  const char* p = begin;
  for (; end - p >= 16; p += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i digit = _mm_and_si128(_mm_cmpgt_epi8(bytes, _mm_set1_epi8('0' - 1)),
                                        _mm_cmplt_epi8(bytes, _mm_set1_epi8('9' + 1)));
    const auto other = static_cast<std::uint16_t>(~_mm_movemask_epi8(digit));
    if (other != 0)
      return static_cast<std::size_t>(p - begin) +
             static_cast<std::size_t>(std::countr_zero(other));
  }
  return digitLengthFrom(begin, p, end);
}

constexpr ScanKernels sse2Kernels{ScanLevel::sse2, plainStringLengthSse2, whitespaceSse2,
                                  digitLengthSse2};

#endif

#if KORVANE_JSON_AVX2

// ---- AVX2: 32 bytes at a time

KORVANE_JSON_TARGET_AVX2 std::size_t plainStringLengthAvx2(const char* begin,
                                                           const char* end) noexcept {
  const char* p = begin;
  for (; end - p >= 32; p += 32) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i low = _mm256_cmpgt_epi8(_mm256_set1_epi8(0x20), bytes);
    const __m256i quote = _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8('"'));
    const __m256i backslash = _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8('\\'));
    const auto special = static_cast<std::uint32_t>(
        _mm256_movemask_epi8(_mm256_or_si256(low, _mm256_or_si256(quote, backslash))));
    if (special != 0)
      return static_cast<std::size_t>(p - begin) +
             static_cast<std::size_t>(std::countr_zero(special));
  }
  if (end - p >= 16) {
    const unsigned special = specialStringBytes16(p);
    if (special != 0)
      return static_cast<std::size_t>(p - begin) +
             static_cast<std::size_t>(std::countr_zero(special));
    p += 16;
  }
  return plainStringLengthFrom(begin, p, end);
}

KORVANE_JSON_TARGET_AVX2 WhitespaceRun whitespaceAvx2(const char* begin, const char* end) noexcept {
  WhitespaceRun run;
  const char* p = begin;
  for (; end - p >= 32; p += 32) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i lineFeed = _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8('\n'));
    const __m256i space = _mm256_or_si256(
        _mm256_or_si256(_mm256_cmpeq_epi8(bytes, _mm256_set1_epi8(' ')),
                        _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8('\t'))),
        _mm256_or_si256(_mm256_cmpeq_epi8(bytes, _mm256_set1_epi8('\r')), lineFeed));
    const auto other = ~static_cast<std::uint32_t>(_mm256_movemask_epi8(space));
    const auto lineFeeds = static_cast<std::uint32_t>(_mm256_movemask_epi8(lineFeed));
    const auto offset = static_cast<std::size_t>(p - begin);
    if (other != 0) {
      const auto length = static_cast<unsigned>(std::countr_zero(other));
      addLineFeeds(run, offset, lineFeeds, length);
      run.length = offset + length;
      return run;
    }
    addLineFeeds(run, offset, lineFeeds, 32);
  }
  return whitespaceFrom(begin, p, end, run);
}

KORVANE_JSON_TARGET_AVX2 std::size_t digitLengthAvx2(const char* begin, const char* end) noexcept {
  const char* p = begin;
  for (; end - p >= 32; p += 32) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i digit = _mm256_and_si256(_mm256_cmpgt_epi8(bytes, _mm256_set1_epi8('0' - 1)),
                                           _mm256_cmpgt_epi8(_mm256_set1_epi8('9' + 1), bytes));
    const auto other = ~static_cast<std::uint32_t>(_mm256_movemask_epi8(digit));
    if (other != 0)
      return static_cast<std::size_t>(p - begin) +
             static_cast<std::size_t>(std::countr_zero(other));
  }
  return digitLengthFrom(begin, p, end);
}

constexpr ScanKernels avx2Kernels{ScanLevel::avx2, plainStringLengthAvx2, whitespaceAvx2,
                                  digitLengthAvx2};

#endif

ScanLevel detectBestLevel() noexcept {
#if KORVANE_JSON_AVX2
  if (core::processorFeatures().avx2) return ScanLevel::avx2;
#endif
#if KORVANE_JSON_SSE2
  return ScanLevel::sse2;
#else
  return ScanLevel::plain;
#endif
}

const ScanKernels* kernelsOf(ScanLevel level) noexcept {
  switch (level) {
#if KORVANE_JSON_AVX2
    case ScanLevel::avx2:
      return &avx2Kernels;
#endif
#if KORVANE_JSON_SSE2
    case ScanLevel::sse2:
      return &sse2Kernels;
#endif
    default:
      return &plainKernels;
  }
}

std::atomic<ScanLevel>& currentLevel() noexcept {
  static std::atomic<ScanLevel> level{bestScanLevel()};
  return level;
}

}  // namespace

ScanLevel bestScanLevel() noexcept {
  static const ScanLevel best = detectBestLevel();
  return best;
}

const ScanKernels& scanKernels() noexcept {
  return *kernelsOf(currentLevel().load(std::memory_order_relaxed));
}

ScanLevel setScanLevel(ScanLevel level) noexcept {
  if (level > bestScanLevel()) level = bestScanLevel();
  return currentLevel().exchange(level, std::memory_order_relaxed);
}

}  // namespace korvane::utils::json::detail
