// ScanKernels: the decoder's inner loops over buffered bytes, which measure
// runs of one kind of byte: plain string characters, whitespace, digits.
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
// Thread safety: the kernels are pure functions. setScanLevel() is for
// tests and must not race with the construction of a decoder Document.
#pragma once

#include <cstddef>
#include <cstdint>

namespace korvane::utils::json::decoder::detail {

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

}  // namespace korvane::utils::json::decoder::detail
