// Sha2: the SHA-2 message digests (FIPS 180-4) as one streaming context over
// a traits type. The traits give what differs between SHA-256 and SHA-512:
// the word type, the number of rounds, the constants, the sigma functions
// and the compression functions (Sha256Traits in Sha256.h, Sha512Traits in
// Sha512.h). Everything else is written here once: bytes are added in any
// number of calls of any size, partial blocks are buffered, and finish()
// pads the message and writes the digest in big-endian byte order. Inputs
// are read byte-wise, so they may have any alignment.
//
// The padding, the byte count and the byte order are public as well, for
// callers that lay out padded messages themselves and call the compression
// function directly (the SHA-crypt rounds loop).
//
// Each traits type lists the compression implementations this processor
// can run, best first (for example SHA instructions, then BMI2, then plain
// code); the first is used unless selectImplementation() chose another,
// which tests do to cover every one.
//
// The context holds data derived from what was hashed (chaining words and
// buffered input); call wipe() when that data is secret.
//
// Thread safety: a value type; distinct objects may be used concurrently,
// one object needs external synchronisation. selectImplementation()
// changes the implementation of every context of its kind; REQUIRES: no
// other thread hashes with that kind meanwhile.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "utils/core/SecureZero.h"

namespace korvane::security {

// Reads a word stored most significant byte first, at any alignment.
template <typename Word>
inline Word loadBigEndian(const unsigned char* bytes) noexcept {
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  if constexpr (std::endian::native == std::endian::little) word = std::byteswap(word);
  return word;
}

// Writes a word most significant byte first, at any alignment.
template <typename Word>
inline void storeBigEndian(unsigned char* bytes, Word word) noexcept {
  if constexpr (std::endian::native == std::endian::little) word = std::byteswap(word);
  std::memcpy(bytes, &word, sizeof word);
}

// One compression implementation of a SHA-2 kind, with words of type Word.
template <typename Word>
struct Sha2Implementation {
  using State = std::array<Word, 8>;
  // A short name for tests and benchmarks ("sha-ni", "bmi2", "portable").
  const char* name;
  // Folds `blockCount` whole blocks into `state`, using `scratch` (the
  // traits' scratchWords words, 64-byte aligned) as working space.
  void (*compressBlocks)(State& state, const unsigned char* blocks, std::size_t blockCount,
                         Word* scratch) noexcept;
};

template <typename Traits>
class Sha2 {
 public:
  using Word = typename Traits::Word;
  using Implementation = Sha2Implementation<Word>;
  static constexpr std::size_t digestLength = 8 * sizeof(Word);
  static constexpr std::size_t blockLength = 16 * sizeof(Word);
  static constexpr std::size_t rounds = Traits::rounds;

  using Digest = std::array<unsigned char, digestLength>;
  using State = std::array<Word, 8>;
  // The count of message bytes as two words, low word first.
  using ByteCount = std::array<Word, 2>;

  // The initial chaining words of the standard.
  static constexpr State initialState = Traits::initialState;

  Sha2() noexcept { init(); }

  // Resets to the standard initial hash values with nothing processed.
  void init() noexcept {
    state_ = initialState;
    total_ = {0, 0};
    buffered_ = 0;
  }

  // Adds bytes to the message; an empty span is allowed.
  void update(std::span<const unsigned char> bytes) noexcept;
  void update(std::string_view bytes) noexcept {
    update(std::span(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
  }

  // Pads the message, writes the digest and leaves the context to be
  // re-initialised with init() before it is used again.
  void finish(std::span<unsigned char, digestLength> digest) noexcept {
    compress(state_, buffer_.data(), pad(buffer_.data(), buffered_, total_));
    storeDigest(state_, digest);
  }
  Digest finish() noexcept {
    Digest digest;
    finish(digest);
    return digest;
  }

  // Overwrites the whole context with zero bytes in a way the compiler may
  // not remove.
  void wipe() noexcept { utils::core::secureZero(this, sizeof *this); }

  // The digest of one message.
  static Digest hash(std::span<const unsigned char> bytes) noexcept {
    Sha2 context;
    context.update(bytes);
    const Digest digest = context.finish();
    context.wipe();
    return digest;
  }
  static Digest hash(std::string_view bytes) noexcept {
    return hash(std::span(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
  }

  // Adds `bytes` to a byte count.
  static void addToCount(ByteCount& count, std::size_t bytes) noexcept {
    const auto low = static_cast<Word>(bytes);
    count[0] += low;
    count[1] += count[0] < low ? 1U : 0U;
    if constexpr (sizeof(Word) < sizeof(std::uint64_t)) {
      count[1] += static_cast<Word>(static_cast<std::uint64_t>(bytes) >> (8 * sizeof(Word)));
    }
  }

  // Writes the padding of a message of `count` bytes whose last `used`
  // bytes stand at the start of `area`: 0x80, zero bytes, then the
  // message length in bits (2 * sizeof(Word) bytes) at the end of the
  // first block that has room for it. Returns the number of blocks to
  // compress from `area`.
  // REQUIRES: used + 1 + 2 * sizeof(Word) <= 2 * blockLength, and area
  // holds that many blocks.
  static std::size_t pad(unsigned char* area, std::size_t used, const ByteCount& count) noexcept {
    constexpr std::size_t lengthField = 2 * sizeof(Word);
    constexpr unsigned wordBits = 8 * sizeof(Word);
    const std::size_t blocks = used + 1 + lengthField <= blockLength ? 1 : 2;
    const std::size_t end = blocks * blockLength;
    area[used] = 0x80;
    std::memset(area + used + 1, 0, end - lengthField - used - 1);
    storeBigEndian<Word>(area + end - lengthField,
                         static_cast<Word>((count[1] << 3) | (count[0] >> (wordBits - 3))));
    storeBigEndian<Word>(area + end - sizeof(Word), static_cast<Word>(count[0] << 3));
    return blocks;
  }

  // Writes the chaining words as the digest.
  static void storeDigest(const State& state,
                          std::span<unsigned char, digestLength> digest) noexcept {
    for (std::size_t i = 0; i < state.size(); ++i) {
      storeBigEndian<Word>(digest.data() + sizeof(Word) * i, state[i]);
    }
  }

  // Working space of the compression function. It holds words derived
  // from the message; wipe() it when that is secret.
  struct Scratch {
    alignas(64) std::array<Word, Traits::scratchWords> words;
    void wipe() noexcept {
      // Whole-word volatile stores: the same guarantee as a byte-wise wipe
      // at a fraction of its cost, which matters since every digest pays it.
      volatile Word* word = words.data();
      for (std::size_t i = 0; i < words.size(); ++i) word[i] = 0;
    }
  };

  // The compression function: folds `blockCount` whole blocks into
  // `state`. For callers that lay out padded messages themselves. This
  // form wipes its working space before returning.
  // REQUIRES: blocks holds blockCount * blockLength bytes.
  static void compress(State& state, const unsigned char* blocks, std::size_t blockCount) noexcept {
    Scratch scratch;
    compress(state, blocks, blockCount, scratch);
    scratch.wipe();
  }

  // As above, with the caller's working space left as it is, so that a
  // caller compressing many messages wipes it once at the end.
  static void compress(State& state, const unsigned char* blocks, std::size_t blockCount,
                       Scratch& scratch) noexcept {
    if (blockCount > 0)
      implementation().compressBlocks(state, blocks, blockCount, scratch.words.data());
  }

  // The implementations this processor can run, best first.
  static std::span<const Implementation> implementations() noexcept {
    return Traits::implementations();
  }

  // The implementation in use.
  static const Implementation& implementation() noexcept {
    return *selected().load(std::memory_order_relaxed);
  }

  // Uses `chosen` from now on.
  // REQUIRES: chosen is one of implementations(); no other thread hashes
  // with this kind meanwhile.
  static void selectImplementation(const Implementation& chosen) noexcept {
    selected().store(&chosen, std::memory_order_relaxed);
  }

 private:
  static std::atomic<const Implementation*>& selected() noexcept {
    static std::atomic<const Implementation*> chosen{&Traits::implementations().front()};
    return chosen;
  }

  State state_;
  ByteCount total_;
  std::size_t buffered_;
  // Two blocks, so that the padding can spill into a second one.
  alignas(16) std::array<unsigned char, 2 * blockLength> buffer_;
};

template <typename Traits>
void Sha2<Traits>::update(std::span<const unsigned char> bytes) noexcept {
  const unsigned char* data = bytes.data();
  std::size_t length = bytes.size();
  if (length == 0) return;
  addToCount(total_, length);
  if (buffered_ > 0) {
    const std::size_t take = std::min(length, blockLength - buffered_);
    std::memcpy(buffer_.data() + buffered_, data, take);
    buffered_ += take;
    data += take;
    length -= take;
    if (buffered_ < blockLength) return;
    compress(state_, buffer_.data(), 1);
    buffered_ = 0;
  }
  if (length >= blockLength) {
    compress(state_, data, length / blockLength);
    data += length - length % blockLength;
    length %= blockLength;
  }
  if (length > 0) {
    std::memcpy(buffer_.data(), data, length);
    buffered_ = length;
  }
}

}  // namespace korvane::security
