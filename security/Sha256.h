// Sha256: the SHA-256 message digest (FIPS 180-4) as a streaming context.
// Bytes are added in any number of calls of any size, partial blocks are
// buffered, and finish() pads the message and writes the 32-byte digest in
// big-endian byte order. Inputs are read byte-wise, so they may have any
// alignment.
//
// The context holds data derived from what was hashed (chaining words and
// buffered input); call wipe() when that data is secret.
//
// Thread safety: a value type; distinct objects may be used concurrently,
// one object needs external synchronisation.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace korvane::security {

class Sha256 {
 public:
  static constexpr std::size_t kDigestLength = 32;
  static constexpr std::size_t kBlockLength = 64;

  using Digest = std::array<unsigned char, kDigestLength>;
  using State = std::array<std::uint32_t, 8>;

  Sha256() noexcept { init(); }

  // Resets to the standard initial hash values with nothing processed.
  void init() noexcept;

  // Adds bytes to the message; an empty span is allowed.
  void update(std::span<const unsigned char> bytes) noexcept;
  void update(std::string_view bytes) noexcept;

  // Pads the message, writes the digest and leaves the context to be
  // re-initialised with init() before it is used again.
  void finish(std::span<unsigned char, kDigestLength> digest) noexcept;
  Digest finish() noexcept;

  // Overwrites the whole context with zero bytes in a way the compiler may
  // not remove.
  void wipe() noexcept;

  // The digest of one message.
  static Digest hash(std::span<const unsigned char> bytes) noexcept;
  static Digest hash(std::string_view bytes) noexcept;

  // The initial chaining words of the standard.
  static constexpr State kInitialState = {0x6a09e667, 0xbb67ae85, 0x3c6ef372,
                                          0xa54ff53a, 0x510e527f, 0x9b05688c,
                                          0x1f83d9ab, 0x5be0cd19};

  // Working space of the compression function. It holds words derived
  // from the message; wipe() it when that is secret.
  struct Scratch {
    std::array<std::uint32_t, 16> words;
    void wipe() noexcept;
  };

  // The compression function: folds `blockCount` whole 64-byte blocks
  // into `state`. For callers that lay out padded messages themselves.
  // This form wipes its working space before returning.
  // REQUIRES: blocks holds blockCount * kBlockLength bytes.
  static void compress(State& state, const unsigned char* blocks,
                       std::size_t blockCount) noexcept;

  // As above, with the caller's working space left as it is, so that a
  // caller compressing many messages wipes it once at the end.
  static void compress(State& state, const unsigned char* blocks, std::size_t blockCount,
                       Scratch& scratch) noexcept;

  // The message schedule of one block with the round constants added: for
  // a block that is compressed many times with different chaining values.
  // It holds words derived from the block; wipe it when that is secret.
  using Schedule = std::array<std::uint32_t, 64>;

  // Expands one block (kBlockLength bytes) into its schedule.
  static void expand(const unsigned char* block, Schedule& schedule) noexcept;

  // Compresses the block that `schedule` was expanded from.
  static void compress(State& state, const Schedule& schedule) noexcept;

 private:
  State state_;
  // Count of bytes processed, low half first.
  std::array<std::uint32_t, 2> total_;
  std::size_t buffered_;
  // Two blocks, so that the padding can spill into a second one.
  alignas(16) std::array<unsigned char, 2 * kBlockLength> buffer_;
};

}  // namespace korvane::security
