#include "security/ShaCryptFunctions.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>

#include "security/Sha256.h"
#include "security/Sha512.h"
#include "utils/core/SecureZero.h"

namespace korvane::security {

namespace {

constexpr std::size_t kLeastRounds = 1000;
constexpr std::size_t kMostRounds = 999999999;
constexpr char kRoundsPrefix[] = "rounds=";

// The crypt flavour of base64, index 0 to 63.
constexpr char kAlphabet[] =
    "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

// One group of the encoded digest: the digest bytes that form the high,
// middle and low byte of a 24-bit value (-1: none, taken as 0), and how
// many 6-bit characters of it are written.
struct EncodingGroup {
  std::int8_t high;
  std::int8_t middle;
  std::int8_t low;
  std::uint8_t characters;
};

struct Sha256Scheme {
  using Hash = Sha256;
  static constexpr char kPrefix[] = "$5$";
  static constexpr std::array<EncodingGroup, 11> kEncoding = {{
      {0, 10, 20, 4}, {21, 1, 11, 4}, {12, 22, 2, 4}, {3, 13, 23, 4},
      {24, 4, 14, 4}, {15, 25, 5, 4}, {6, 16, 26, 4}, {27, 7, 17, 4},
      {18, 28, 8, 4}, {9, 19, 29, 4}, {-1, 31, 30, 3},
  }};
};

struct Sha512Scheme {
  using Hash = Sha512;
  static constexpr char kPrefix[] = "$6$";
  static constexpr std::array<EncodingGroup, 22> kEncoding = {{
      {0, 21, 42, 4},  {22, 43, 1, 4},  {44, 2, 23, 4},  {3, 24, 45, 4},
      {25, 46, 4, 4},  {47, 5, 26, 4},  {6, 27, 48, 4},  {28, 49, 7, 4},
      {50, 8, 29, 4},  {9, 30, 51, 4},  {31, 52, 10, 4}, {53, 11, 32, 4},
      {12, 33, 54, 4}, {34, 55, 13, 4}, {56, 14, 35, 4}, {15, 36, 57, 4},
      {37, 58, 16, 4}, {59, 17, 38, 4}, {18, 39, 60, 4}, {40, 61, 19, 4},
      {62, 20, 41, 4}, {-1, -1, 63, 2},
  }};
};

template <typename Word>
inline void storeBigEndian(unsigned char* bytes, Word word) noexcept {
  if constexpr (std::endian::native == std::endian::little) word = std::byteswap(word);
  std::memcpy(bytes, &word, sizeof word);
}

// Hashes the messages of the rounds loop. Each message is assembled block
// by block in one fixed buffer and compressed as soon as a block is full,
// so that repeated digests (P and S) are fed as slices without ever being
// built, and nothing is sized by the key or salt.
template <typename Hash>
class RoundHasher {
 public:
  static constexpr std::size_t kBlock = Hash::kBlockLength;
  static constexpr std::size_t kDigest = Hash::kDigestLength;
  using Digest = typename Hash::Digest;
  using Word = typename Hash::State::value_type;

  void start() noexcept {
    state_ = Hash::kInitialState;
    filled_ = 0;
    total_ = 0;
  }

  void add(const unsigned char* bytes, std::size_t length) noexcept {
    total_ += length;
    while (length > 0) {
      const std::size_t take = std::min(length, kBlock - filled_);
      std::memcpy(block_.data() + filled_, bytes, take);
      filled_ += take;
      bytes += take;
      length -= take;
      if (filled_ == kBlock) {
        Hash::compress(state_, block_.data(), 1);
        filled_ = 0;
      }
    }
  }

  // Adds `length` bytes of `digest` repeated end to end.
  void addRepeated(const Digest& digest, std::size_t length) noexcept {
    for (; length > kDigest; length -= kDigest) add(digest.data(), kDigest);
    add(digest.data(), length);
  }

  void finish(Digest& digest) noexcept {
    // 0x80, zero bytes and the bit length in the last 2 * sizeof(Word) bytes.
    constexpr std::size_t kLengthField = 2 * sizeof(Word);
    block_[filled_++] = 0x80;
    if (filled_ > kBlock - kLengthField) {
      std::memset(block_.data() + filled_, 0, kBlock - filled_);
      Hash::compress(state_, block_.data(), 1);
      filled_ = 0;
    }
    std::memset(block_.data() + filled_, 0, kBlock - kLengthField - filled_);
    const std::uint64_t bits = static_cast<std::uint64_t>(total_) << 3;
    if constexpr (sizeof(Word) == 8) {
      storeBigEndian<std::uint64_t>(block_.data() + kBlock - 16, static_cast<std::uint64_t>(total_) >> 61);
      storeBigEndian<std::uint64_t>(block_.data() + kBlock - 8, bits);
    } else {
      storeBigEndian<std::uint64_t>(block_.data() + kBlock - 8, bits);
    }
    Hash::compress(state_, block_.data(), 1);
    for (std::size_t i = 0; i < state_.size(); ++i) {
      storeBigEndian<Word>(digest.data() + sizeof(Word) * i, state_[i]);
    }
  }

  void wipe() noexcept { utils::core::secureZero(this, sizeof *this); }

 private:
  typename Hash::State state_;
  alignas(16) std::array<unsigned char, kBlock> block_;
  std::size_t filled_ = 0;
  std::size_t total_ = 0;
};

// Copies like stpncpy over `count` bytes: stops at a NUL of `source` (or
// after its `sourceLength` bytes), fills the rest of the span with NUL bytes
// and returns the position behind the last byte copied.
char* copyPadded(char* target, const char* source, std::size_t sourceLength,
                 std::size_t count) noexcept {
  const std::size_t readable = std::min(sourceLength, count);
  const void* nul = readable > 0 ? std::memchr(source, '\0', readable) : nullptr;
  const std::size_t copied =
      nul != nullptr ? static_cast<std::size_t>(static_cast<const char*>(nul) - source) : readable;
  if (copied > 0) std::memcpy(target, source, copied);
  if (count > copied) std::memset(target + copied, 0, count - copied);
  return target + copied;
}

template <typename Scheme>
char* writeHashString(const typename Scheme::Hash::Digest& digest, const char* salt,
                      std::size_t saltLength, std::size_t rounds, bool roundsCustom,
                      char* buffer, std::size_t bufferLength) noexcept {
  constexpr std::size_t kPrefixLength = sizeof Scheme::kPrefix - 1;
  // The prefix goes in with the rest of the buffer NUL-filled.
  char* out = copyPadded(buffer, Scheme::kPrefix, kPrefixLength, bufferLength);
  if (bufferLength < kPrefixLength) {
    errno = ERANGE;
    return nullptr;
  }
  std::size_t remaining = bufferLength - kPrefixLength;

  if (roundsCustom) {
    const int written = std::snprintf(out, remaining, "%s%zu$", kRoundsPrefix, rounds);
    const auto count = static_cast<std::size_t>(written);
    if (written < 0 || count > remaining) {
      errno = ERANGE;
      return nullptr;
    }
    out += count;
    remaining -= count;
  }

  const std::size_t saltSpan = std::min(remaining, saltLength);
  out = copyPadded(out, salt, saltLength, saltSpan);
  remaining -= saltSpan;

  if (remaining > 0) {
    *out++ = '$';
    --remaining;
  }

  for (const EncodingGroup& group : Scheme::kEncoding) {
    const auto byteAt = [&digest](std::int8_t index) -> std::uint32_t {
      return index < 0 ? 0U : digest[static_cast<std::size_t>(index)];
    };
    std::uint32_t value = (byteAt(group.high) << 16) | (byteAt(group.middle) << 8) | byteAt(group.low);
    for (unsigned i = 0; i < group.characters && remaining > 0; ++i, --remaining) {
      *out++ = kAlphabet[value & 0x3f];
      value >>= 6;
    }
  }

  if (remaining == 0) {
    errno = ERANGE;
    return nullptr;
  }
  *out = '\0';
  return buffer;
}

template <typename Scheme>
char* shaCrypt(const char* keyText, std::size_t keyLength, const char* saltText,
               std::size_t saltLength, std::size_t rounds, bool roundsCustom, char* buffer,
               std::size_t bufferLength) noexcept {
  using Hash = typename Scheme::Hash;
  using Digest = typename Hash::Digest;
  constexpr std::size_t kDigest = Hash::kDigestLength;

  rounds = std::max(std::min(rounds, kMostRounds), kLeastRounds);
  const std::span key(reinterpret_cast<const unsigned char*>(keyText), keyLength);
  const std::span salt(reinterpret_cast<const unsigned char*>(saltText), saltLength);

  Hash context;
  Hash alternate;
  Digest alternateDigest;
  Digest running;
  Digest keyDigest;
  Digest saltDigest;
  RoundHasher<Hash> hasher;

  // Digest B: key, salt, key.
  alternate.update(key);
  alternate.update(salt);
  alternate.update(key);
  alternate.finish(alternateDigest);

  // Context A: key, salt, B repeated to the key's length, then per bit of
  // the key length either B or the key.
  context.update(key);
  context.update(salt);
  std::size_t count = keyLength;
  for (; count > kDigest; count -= kDigest) context.update(alternateDigest);
  context.update(std::span(alternateDigest).first(count));
  for (count = keyLength; count > 0; count >>= 1) {
    if ((count & 1) != 0) {
      context.update(alternateDigest);
    } else {
      context.update(key);
    }
  }
  context.finish(running);

  // DP: the key once per key byte; P is DP repeated to the key's length.
  context.init();
  for (std::size_t i = 0; i < keyLength; ++i) context.update(key);
  context.finish(keyDigest);

  // DS: the salt 16 + R[0] times; S is DS repeated to the salt's length.
  context.init();
  for (std::size_t i = 0; i < 16U + running[0]; ++i) context.update(salt);
  context.finish(saltDigest);

  for (std::size_t i = 0; i < rounds; ++i) {
    const bool odd = (i & 1) != 0;
    hasher.start();
    if (odd) {
      hasher.addRepeated(keyDigest, keyLength);
    } else {
      hasher.add(running.data(), kDigest);
    }
    if (i % 3 != 0) hasher.addRepeated(saltDigest, saltLength);
    if (i % 7 != 0) hasher.addRepeated(keyDigest, keyLength);
    if (odd) {
      hasher.add(running.data(), kDigest);
    } else {
      hasher.addRepeated(keyDigest, keyLength);
    }
    hasher.finish(running);
  }

  char* const result =
      writeHashString<Scheme>(running, saltText, saltLength, rounds, roundsCustom, buffer, bufferLength);

  context.wipe();
  alternate.wipe();
  hasher.wipe();
  utils::core::secureZero(std::span(alternateDigest));
  utils::core::secureZero(std::span(running));
  utils::core::secureZero(std::span(keyDigest));
  utils::core::secureZero(std::span(saltDigest));
  return result;
}

}  // namespace

char* sha256Crypt(const char* key, std::size_t keyLength, const char* salt,
                  std::size_t saltLength, std::size_t rounds, bool roundsCustom, char* buffer,
                  std::size_t bufferLength) noexcept {
  return shaCrypt<Sha256Scheme>(key, keyLength, salt, saltLength, rounds, roundsCustom, buffer,
                                bufferLength);
}

char* sha512Crypt(const char* key, std::size_t keyLength, const char* salt,
                  std::size_t saltLength, std::size_t rounds, bool roundsCustom, char* buffer,
                  std::size_t bufferLength) noexcept {
  return shaCrypt<Sha512Scheme>(key, keyLength, salt, saltLength, rounds, roundsCustom, buffer,
                                bufferLength);
}

}  // namespace korvane::security
