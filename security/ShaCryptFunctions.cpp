#include "security/ShaCryptFunctions.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <span>

#include "security/Sha256.h"
#include "security/Sha512.h"
#include "utils/core/SecureZero.h"

namespace korvane::security {

namespace {

constexpr char roundsPrefix[] = "rounds=";

// The crypt flavour of base64, index 0 to 63.
constexpr char alphabet[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

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
  static constexpr char prefix[] = "$5$";
  static constexpr std::array<EncodingGroup, 11> encoding = {{
      {0, 10, 20, 4},
      {21, 1, 11, 4},
      {12, 22, 2, 4},
      {3, 13, 23, 4},
      {24, 4, 14, 4},
      {15, 25, 5, 4},
      {6, 16, 26, 4},
      {27, 7, 17, 4},
      {18, 28, 8, 4},
      {9, 19, 29, 4},
      {-1, 31, 30, 3},
  }};
};

struct Sha512Scheme {
  using Hash = Sha512;
  static constexpr char prefix[] = "$6$";
  static constexpr std::array<EncodingGroup, 22> encoding = {{
      {0, 21, 42, 4},  {22, 43, 1, 4},  {44, 2, 23, 4},  {3, 24, 45, 4},  {25, 46, 4, 4},
      {47, 5, 26, 4},  {6, 27, 48, 4},  {28, 49, 7, 4},  {50, 8, 29, 4},  {9, 30, 51, 4},
      {31, 52, 10, 4}, {53, 11, 32, 4}, {12, 33, 54, 4}, {34, 55, 13, 4}, {56, 14, 35, 4},
      {15, 36, 57, 4}, {37, 58, 16, 4}, {59, 17, 38, 4}, {18, 39, 60, 4}, {40, 61, 19, 4},
      {62, 20, 41, 4}, {-1, -1, 63, 2},
  }};
};

// Hashes a message assembled piece by piece, block by block in one fixed
// buffer, compressing each block as soon as it is full. Repeated digests
// (P and S) are fed as slices without ever being built, so nothing is
// sized by the key or salt.
template <typename Hash>
class MessageWriter {
 public:
  static constexpr std::size_t blockSize = Hash::blockLength;
  static constexpr std::size_t digestSize = Hash::digestLength;
  using Digest = typename Hash::Digest;

  void start() noexcept {
    state_ = Hash::initialState;
    filled_ = 0;
    total_ = {0, 0};
  }

  // Buffers up to two blocks and compresses them together, which lets the
  // compression expand both schedules at once.
  void add(const unsigned char* bytes, std::size_t length) noexcept {
    Hash::addToCount(total_, length);
    while (length > 0) {
      const std::size_t take = std::min(length, block_.size() - filled_);
      std::memcpy(block_.data() + filled_, bytes, take);
      filled_ += take;
      bytes += take;
      length -= take;
      if (filled_ == block_.size()) {
        Hash::compress(state_, block_.data(), 2, scratch_);
        filled_ = 0;
      }
    }
  }

  // Adds `length` bytes of `digest` repeated end to end.
  void addRepeated(const Digest& digest, std::size_t length) noexcept {
    for (; length > digestSize; length -= digestSize) add(digest.data(), digestSize);
    add(digest.data(), length);
  }

  // Compresses a whole block that is still buffered, so that less than
  // one block remains behind state().
  void settle() noexcept {
    if (filled_ < blockSize) return;
    Hash::compress(state_, block_.data(), 1, scratch_);
    filled_ -= blockSize;
    std::memmove(block_.data(), block_.data() + blockSize, filled_);
  }

  void finish(Digest& digest) noexcept {
    settle();
    const std::size_t blocks = Hash::pad(block_.data(), filled_, total_);
    Hash::compress(state_, block_.data(), blocks, scratch_);
    Hash::storeDigest(state_, digest);
  }

  // The chaining value after the whole blocks compressed so far, and the
  // bytes buffered behind them.
  // REQUIRES (for a tail shorter than one block): settle() was called
  // after the last add().
  const typename Hash::State& state() const noexcept { return state_; }
  const unsigned char* tail() const noexcept { return block_.data(); }
  std::size_t tailLength() const noexcept { return filled_; }
  // Working space of the compression function, shared with the rounds loop.
  typename Hash::Scratch& scratch() noexcept { return scratch_; }

  void wipe() noexcept { utils::core::secureZero(this, sizeof *this); }

 private:
  typename Hash::State state_;
  // Two blocks, compressed together when full; finish() pads in place.
  alignas(16) std::array<unsigned char, 2 * blockSize> block_;
  std::size_t filled_ = 0;
  typename Hash::ByteCount total_ = {0, 0};
  typename Hash::Scratch scratch_;
};

// The last blocks of a round's message, laid out once with their
// padding: per round only the running digest R is copied in at its place,
// and the blocks are compressed from a chaining value computed beforehand.
template <typename Hash>
struct PreparedMessage {
  typename Hash::State start;
  // Up to four blocks: even shapes of keys up to about 200 bytes (SHA-512)
  // fit, so that their rounds copy nothing but R.
  alignas(16) std::array<unsigned char, 4 * Hash::blockLength> blocks;
  std::size_t digestOffset;
  std::size_t blockCount;  // 0: the message is too long to lay out
};

// The inputs of the rounds loop: P and S given by the digests DP and DS
// repeated to the key and salt lengths.
template <typename Hash>
struct RoundInputs {
  const typename Hash::Digest& keyDigest;
  std::size_t keyLength;
  const typename Hash::Digest& saltDigest;
  std::size_t saltLength;
};

// Round i hashes (odd i) P [S] [P] R or (even i) R [S] [P] P, with S when
// i is not a multiple of 3 and the middle P when i is not a multiple of 7.
// So there are eight message shapes, and in each only R changes. A shape's
// index is (i odd) | 2 (S) | 4 (middle P). ShapeSequence gives the shapes
// of rounds 0, 1, 2, ... in turn, counting the round modulo 2, 3 and 7
// instead of dividing it each time.
class ShapeSequence {
 public:
  std::size_t next() noexcept {
    const std::size_t shape = odd_ | (byThree_ != 0 ? 2U : 0U) | (bySeven_ != 0 ? 4U : 0U);
    odd_ ^= 1;
    byThree_ = byThree_ == 2 ? 0 : byThree_ + 1;
    bySeven_ = bySeven_ == 6 ? 0 : bySeven_ + 1;
    return shape;
  }

 private:
  std::size_t odd_ = 0;
  std::size_t byThree_ = 0;
  std::size_t bySeven_ = 0;
};

template <typename Hash>
typename Hash::ByteCount byteCount(std::size_t bytes) noexcept {
  typename Hash::ByteCount count = {0, 0};
  Hash::addToCount(count, bytes);
  return count;
}

// Writes `length` bytes of `digest` repeated end to end; returns the end.
template <typename Hash>
unsigned char* copyRepeated(unsigned char* out, const typename Hash::Digest& digest,
                            std::size_t length) noexcept {
  for (; length > digest.size(); length -= digest.size()) {
    out = std::copy(digest.begin(), digest.end(), out);
  }
  return std::copy_n(digest.begin(), length, out);
}

// Lays out the message of one shape. Odd shapes start with constant bytes:
// their whole blocks are compressed here once, leaving at most one partial
// block, R and the padding. Even shapes start with R; they are laid out
// only when R, the rest and the padding fit in four blocks.
template <typename Hash>
void prepare(std::size_t shape, const RoundInputs<Hash>& in, MessageWriter<Hash>& writer,
             PreparedMessage<Hash>& message) noexcept {
  constexpr std::size_t digestSize = Hash::digestLength;
  const bool odd = (shape & 1) != 0;
  const std::size_t middle =
      ((shape & 2) != 0 ? in.saltLength : 0) + ((shape & 4) != 0 ? in.keyLength : 0);
  const std::size_t total = digestSize + in.keyLength + middle;
  writer.start();
  if (odd) {
    writer.addRepeated(in.keyDigest, in.keyLength);
    if ((shape & 2) != 0) writer.addRepeated(in.saltDigest, in.saltLength);
    if ((shape & 4) != 0) writer.addRepeated(in.keyDigest, in.keyLength);
    writer.settle();
    message.start = writer.state();
    const std::size_t tail = writer.tailLength();
    std::memcpy(message.blocks.data(), writer.tail(), tail);
    message.digestOffset = tail;
    message.blockCount =
        Hash::pad(message.blocks.data(), tail + digestSize, byteCount<Hash>(total));
    return;
  }
  constexpr std::size_t lengthField = 2 * sizeof(typename Hash::State::value_type);
  if (total + 1 + lengthField > message.blocks.size()) {
    message.blockCount = 0;
    return;
  }
  unsigned char* out = message.blocks.data() + digestSize;
  if ((shape & 2) != 0) out = copyRepeated<Hash>(out, in.saltDigest, in.saltLength);
  if ((shape & 4) != 0) out = copyRepeated<Hash>(out, in.keyDigest, in.keyLength);
  copyRepeated<Hash>(out, in.keyDigest, in.keyLength);
  message.start = Hash::initialState;
  message.digestOffset = 0;
  // The padding goes behind the last whole block.
  const std::size_t whole = total / Hash::blockLength;
  message.blockCount = whole + Hash::pad(message.blocks.data() + whole * Hash::blockLength,
                                         total % Hash::blockLength, byteCount<Hash>(total));
}

// The laid-out messages of the eight shapes.
template <typename Hash>
struct Shapes {
  std::array<PreparedMessage<Hash>, 8> messages;
};

// Runs the rounds loop on the running digest R.
template <typename Hash>
void runRounds(std::size_t rounds, const RoundInputs<Hash>& in, typename Hash::Digest& running,
               MessageWriter<Hash>& writer, Shapes<Hash>& shapes) noexcept {
  constexpr std::size_t digestSize = Hash::digestLength;
  for (std::size_t shape = 0; shape < shapes.messages.size(); ++shape) {
    prepare(shape, in, writer, shapes.messages[shape]);
  }
  // The compression is looked up once, not in each of the thousands of
  // rounds (the implementation in use may not change during a hash).
  const auto compressBlocks = Hash::implementation().compressBlocks;
  auto* const scratch = writer.scratch().words.data();
  typename Hash::State state;
  ShapeSequence sequence;
  for (std::size_t i = 0; i < rounds; ++i) {
    PreparedMessage<Hash>& message = shapes.messages[sequence.next()];
    if (message.blockCount != 0) {
      std::memcpy(message.blocks.data() + message.digestOffset, running.data(), digestSize);
      state = message.start;
      compressBlocks(state, message.blocks.data(), message.blockCount, scratch);
      Hash::storeDigest(state, running);
      continue;
    }
    // An even round whose message is too long to lay out: R [S] [P] P.
    writer.start();
    writer.add(running.data(), digestSize);
    if (i % 3 != 0) writer.addRepeated(in.saltDigest, in.saltLength);
    if (i % 7 != 0) writer.addRepeated(in.keyDigest, in.keyLength);
    writer.addRepeated(in.keyDigest, in.keyLength);
    writer.finish(running);
  }
  utils::core::secureZero(&state, sizeof state);
}

// Copies at most `count` bytes of `source` into `target`: stops at a NUL of
// `source` (or after its `sourceLength` bytes), fills the rest of the
// `count` bytes with NUL bytes, so that no byte of the field is left
// undefined, and returns the position behind the last byte copied, where the
// next part of the hash string goes.
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
                      std::size_t saltLength, std::size_t rounds, bool roundsCustom, char* buffer,
                      std::size_t bufferLength) noexcept {
  constexpr std::size_t prefixLength = sizeof Scheme::prefix - 1;
  // The prefix goes in with the rest of the buffer NUL-filled.
  char* out = copyPadded(buffer, Scheme::prefix, prefixLength, bufferLength);
  if (bufferLength < prefixLength) {
    errno = ERANGE;
    return nullptr;
  }
  std::size_t remaining = bufferLength - prefixLength;

  if (roundsCustom) {
    // "rounds=<decimal>$": as much of it as fits before a terminating NUL
    // is written, and the position advances by the whole field's length, so
    // that a buffer too small shows as a position past its end. Formatted
    // by hand to keep the stack small.
    std::array<char, sizeof roundsPrefix + 21> field;
    std::memcpy(field.data(), roundsPrefix, sizeof roundsPrefix - 1);
    char* end = std::to_chars(field.data() + sizeof roundsPrefix - 1,
                              field.data() + field.size() - 1, rounds)
                    .ptr;
    *end++ = '$';
    const auto count = static_cast<std::size_t>(end - field.data());
    if (remaining > 0) {
      const std::size_t copied = std::min(count, remaining - 1);
      std::memcpy(out, field.data(), copied);
      out[copied] = '\0';
    }
    if (count > remaining) {
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

  for (const EncodingGroup& group : Scheme::encoding) {
    const auto byteAt = [&digest](std::int8_t index) -> std::uint32_t {
      return index < 0 ? 0U : digest[static_cast<std::size_t>(index)];
    };
    std::uint32_t value =
        (byteAt(group.high) << 16) | (byteAt(group.middle) << 8) | byteAt(group.low);
    for (unsigned i = 0; i < group.characters && remaining > 0; ++i, --remaining) {
      *out++ = alphabet[value & 0x3f];
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
  constexpr std::size_t digestSize = Hash::digestLength;

  rounds = std::max(std::min(rounds, shaCryptMostRounds), shaCryptLeastRounds);
  const std::span key(reinterpret_cast<const unsigned char*>(keyText), keyLength);
  const std::span salt(reinterpret_cast<const unsigned char*>(saltText), saltLength);

  Hash context;
  Hash alternate;
  Digest alternateDigest;
  Digest running;
  Digest keyDigest;
  Digest saltDigest;
  MessageWriter<Hash> writer;
  Shapes<Hash> shapes;

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
  for (; count > digestSize; count -= digestSize) context.update(alternateDigest);
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

  runRounds<Hash>(rounds, {keyDigest, keyLength, saltDigest, saltLength}, running, writer, shapes);

  char* const result = writeHashString<Scheme>(running, saltText, saltLength, rounds, roundsCustom,
                                               buffer, bufferLength);

  context.wipe();
  alternate.wipe();
  writer.wipe();
  utils::core::secureZero(&shapes, sizeof shapes);
  utils::core::secureZero(std::span(alternateDigest));
  utils::core::secureZero(std::span(running));
  utils::core::secureZero(std::span(keyDigest));
  utils::core::secureZero(std::span(saltDigest));
  return result;
}

}  // namespace

char* sha256Crypt(const char* key, std::size_t keyLength, const char* salt, std::size_t saltLength,
                  std::size_t rounds, bool roundsCustom, char* buffer,
                  std::size_t bufferLength) noexcept {
  return shaCrypt<Sha256Scheme>(key, keyLength, salt, saltLength, rounds, roundsCustom, buffer,
                                bufferLength);
}

char* sha512Crypt(const char* key, std::size_t keyLength, const char* salt, std::size_t saltLength,
                  std::size_t rounds, bool roundsCustom, char* buffer,
                  std::size_t bufferLength) noexcept {
  return shaCrypt<Sha512Scheme>(key, keyLength, salt, saltLength, rounds, roundsCustom, buffer,
                                bufferLength);
}

}  // namespace korvane::security
