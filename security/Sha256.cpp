#include "security/Sha256.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "utils/core/SecureZero.h"

namespace korvane::security {

namespace {

// The first 32 bits of the fractional parts of the cube roots of the first
// 64 primes.
constexpr std::array<std::uint32_t, 64> kRoundConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

inline std::uint32_t loadBigEndian(const unsigned char* bytes) noexcept {
  std::uint32_t word;
  std::memcpy(&word, bytes, sizeof word);
  if constexpr (std::endian::native == std::endian::little) word = std::byteswap(word);
  return word;
}

inline void storeBigEndian(unsigned char* bytes, std::uint32_t word) noexcept {
  if constexpr (std::endian::native == std::endian::little) word = std::byteswap(word);
  std::memcpy(bytes, &word, sizeof word);
}

inline std::uint32_t bigSigma0(std::uint32_t x) noexcept {
  return std::rotr(x, 2) ^ std::rotr(x, 13) ^ std::rotr(x, 22);
}
inline std::uint32_t bigSigma1(std::uint32_t x) noexcept {
  return std::rotr(x, 6) ^ std::rotr(x, 11) ^ std::rotr(x, 25);
}
inline std::uint32_t smallSigma0(std::uint32_t x) noexcept {
  return std::rotr(x, 7) ^ std::rotr(x, 18) ^ (x >> 3);
}
inline std::uint32_t smallSigma1(std::uint32_t x) noexcept {
  return std::rotr(x, 17) ^ std::rotr(x, 19) ^ (x >> 10);
}

#if (defined(__GNUC__) || defined(__clang__)) && defined(__x86_64__)
// The body is compiled twice, for the baseline processor and for one with
// BMI2, whose rorx rotates without first copying its operand; that saves a
// move per rotation, and the rounds are bound by instruction throughput.
#define KORVANE_SHA_DISPATCH_BMI2 1
#define KORVANE_SHA_BODY [[gnu::always_inline]] inline
#else
#define KORVANE_SHA_DISPATCH_BMI2 0
#define KORVANE_SHA_BODY inline
#endif

// One round on the working variables, with their roles rotated by the
// caller instead of the values being shifted, so only d and h change.
// `kw` is the round constant plus the schedule word. Maj(a, b, c) is
// b ^ ((a ^ b) & (b ^ c)), where b ^ c is the previous round's a ^ b: each
// round leaves its a ^ b in `abOut` for the next one, which reads it as `bc`.
#define KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, kw, abOut, bc)                        \
  do {                                                                                   \
    const std::uint32_t t1 = h + bigSigma1(e) + (g ^ (e & (f ^ g))) + (kw);             \
    d += t1;                                                                            \
    abOut = a ^ b;                                                                      \
    h = t1 + bigSigma0(a) + (b ^ (abOut & bc));                                         \
  } while (false)
// Sixteen schedule words in a ring, each expanded just before its round.
#define KORVANE_SHA_EXPAND(j)                                                \
  (w[j] += smallSigma1(w[((j) + 14) & 15]) + w[((j) + 9) & 15] +             \
           smallSigma0(w[((j) + 1) & 15]))
#define KORVANE_SHA_SIXTEEN_ROUNDS(STEP) \
  STEP(a, b, c, d, e, f, g, h, 0, ab0, ab1); \
  STEP(h, a, b, c, d, e, f, g, 1, ab1, ab0); \
  STEP(g, h, a, b, c, d, e, f, 2, ab0, ab1); \
  STEP(f, g, h, a, b, c, d, e, 3, ab1, ab0); \
  STEP(e, f, g, h, a, b, c, d, 4, ab0, ab1); \
  STEP(d, e, f, g, h, a, b, c, 5, ab1, ab0); \
  STEP(c, d, e, f, g, h, a, b, 6, ab0, ab1); \
  STEP(b, c, d, e, f, g, h, a, 7, ab1, ab0); \
  STEP(a, b, c, d, e, f, g, h, 8, ab0, ab1); \
  STEP(h, a, b, c, d, e, f, g, 9, ab1, ab0); \
  STEP(g, h, a, b, c, d, e, f, 10, ab0, ab1); \
  STEP(f, g, h, a, b, c, d, e, 11, ab1, ab0); \
  STEP(e, f, g, h, a, b, c, d, 12, ab0, ab1); \
  STEP(d, e, f, g, h, a, b, c, 13, ab1, ab0); \
  STEP(c, d, e, f, g, h, a, b, 14, ab0, ab1); \
  STEP(b, c, d, e, f, g, h, a, 15, ab1, ab0)
#define KORVANE_SHA_PLAIN_STEP(a, b, c, d, e, f, g, h, j, abOut, bc) \
  KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, k[j] + w[j], abOut, bc)
#define KORVANE_SHA_EXPANDING_STEP(a, b, c, d, e, f, g, h, j, abOut, bc) \
  KORVANE_SHA_EXPAND(j);                                                \
  KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, k[j] + w[j], abOut, bc)

KORVANE_SHA_BODY void compressBody(Sha256::State& state, const unsigned char* blocks,
                                   std::size_t blockCount, Sha256::Scratch& scratch) noexcept {
  std::uint32_t* const w = scratch.words.data();
  std::uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  std::uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
  for (; blockCount > 0; --blockCount, blocks += Sha256::kBlockLength) {
    std::uint32_t ab0;
    std::uint32_t ab1 = b ^ c;
    for (int i = 0; i < 16; ++i) w[i] = loadBigEndian(blocks + 4 * i);
    const std::uint32_t* k = kRoundConstants.data();
    KORVANE_SHA_SIXTEEN_ROUNDS(KORVANE_SHA_PLAIN_STEP);
    for (int r = 16; r < 64; r += 16) {
      k += 16;
      KORVANE_SHA_SIXTEEN_ROUNDS(KORVANE_SHA_EXPANDING_STEP);
    }
    a = state[0] += a;
    b = state[1] += b;
    c = state[2] += c;
    d = state[3] += d;
    e = state[4] += e;
    f = state[5] += f;
    g = state[6] += g;
    h = state[7] += h;
  }
}

// Rounds over a block whose schedule, round constants included, was
// expanded beforehand.
#define KORVANE_SHA_SCHEDULED_STEP(a, b, c, d, e, f, g, h, j, abOut, bc) \
  KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, scheduled[r + (j)], abOut, bc)

KORVANE_SHA_BODY void compressScheduledBody(Sha256::State& state,
                                            const Sha256::Schedule& schedule) noexcept {
  const std::uint32_t* const scheduled = schedule.data();
  std::uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  std::uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
  std::uint32_t ab0;
  std::uint32_t ab1 = b ^ c;
  for (int r = 0; r < 64; r += 16) {
    KORVANE_SHA_SIXTEEN_ROUNDS(KORVANE_SHA_SCHEDULED_STEP);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
  state[4] += e;
  state[5] += f;
  state[6] += g;
  state[7] += h;
}

#undef KORVANE_SHA_SCHEDULED_STEP

// One entry for both kinds of compression, so that the processor-specific
// variants below are compiled from one place. A null `schedule` selects
// the blocks.
KORVANE_SHA_BODY void compressEither(Sha256::State& state, const unsigned char* blocks,
                                     std::size_t blockCount, Sha256::Scratch* scratch,
                                     const Sha256::Schedule* schedule) noexcept {
  if (schedule != nullptr) {
    compressScheduledBody(state, *schedule);
  } else {
    compressBody(state, blocks, blockCount, *scratch);
  }
}

#if KORVANE_SHA_DISPATCH_BMI2

__attribute__((target("bmi2"))) void compressBmi2(Sha256::State& state,
                                                  const unsigned char* blocks,
                                                  std::size_t blockCount,
                                                  Sha256::Scratch* scratch,
                                                  const Sha256::Schedule* schedule) noexcept {
  compressEither(state, blocks, blockCount, scratch, schedule);
}

void compressBaseline(Sha256::State& state, const unsigned char* blocks, std::size_t blockCount,
                      Sha256::Scratch* scratch, const Sha256::Schedule* schedule) noexcept {
  compressEither(state, blocks, blockCount, scratch, schedule);
}

bool processorHasBmi2() noexcept {
  __builtin_cpu_init();
  return __builtin_cpu_supports("bmi2") != 0;
}

void compressBlocks(Sha256::State& state, const unsigned char* blocks, std::size_t blockCount,
                    Sha256::Scratch* scratch, const Sha256::Schedule* schedule) noexcept {
  static const bool hasBmi2 = processorHasBmi2();
  if (hasBmi2) {
    compressBmi2(state, blocks, blockCount, scratch, schedule);
  } else {
    compressBaseline(state, blocks, blockCount, scratch, schedule);
  }
}

#else

void compressBlocks(Sha256::State& state, const unsigned char* blocks, std::size_t blockCount,
                    Sha256::Scratch* scratch, const Sha256::Schedule* schedule) noexcept {
  compressEither(state, blocks, blockCount, scratch, schedule);
}

#endif

#undef KORVANE_SHA_DISPATCH_BMI2
#undef KORVANE_SHA_BODY
#undef KORVANE_SHA_EXPANDING_STEP
#undef KORVANE_SHA_PLAIN_STEP
#undef KORVANE_SHA_SIXTEEN_ROUNDS
#undef KORVANE_SHA_EXPAND
#undef KORVANE_SHA_ROUND

}  // namespace

void Sha256::compress(State& state, const unsigned char* blocks, std::size_t blockCount,
                      Scratch& scratch) noexcept {
  compressBlocks(state, blocks, blockCount, &scratch, nullptr);
}

void Sha256::compress(State& state, const unsigned char* blocks,
                      std::size_t blockCount) noexcept {
  Scratch scratch;
  compressBlocks(state, blocks, blockCount, &scratch, nullptr);
  scratch.wipe();
}

void Sha256::compress(State& state, const Schedule& schedule) noexcept {
  compressBlocks(state, nullptr, 0, nullptr, &schedule);
}

void Sha256::expand(const unsigned char* block, Schedule& schedule) noexcept {
  for (std::size_t t = 0; t < 16; ++t) schedule[t] = loadBigEndian(block + sizeof(std::uint32_t) * t);
  for (std::size_t t = 16; t < schedule.size(); ++t) {
    schedule[t] = smallSigma1(schedule[t - 2]) + schedule[t - 7] + smallSigma0(schedule[t - 15]) +
                  schedule[t - 16];
  }
  for (std::size_t t = 0; t < schedule.size(); ++t) schedule[t] += kRoundConstants[t];
}

void Sha256::Scratch::wipe() noexcept {
  // Whole-word volatile stores: the same guarantee as a byte-wise wipe at a
  // fraction of its cost, which matters since every digest pays it.
  volatile std::uint32_t* word = words.data();
  for (std::size_t i = 0; i < words.size(); ++i) word[i] = 0;
}

void Sha256::init() noexcept {
  state_ = kInitialState;
  total_ = {0, 0};
  buffered_ = 0;
}

void Sha256::update(std::span<const unsigned char> bytes) noexcept {
  const unsigned char* data = bytes.data();
  std::size_t length = bytes.size();
  if (length == 0) return;
  // The byte count as two 32-bit halves.
  const auto low = static_cast<std::uint32_t>(length);
  total_[0] += low;
  total_[1] += static_cast<std::uint32_t>(static_cast<std::uint64_t>(length) >> 32) +
               (total_[0] < low ? 1U : 0U);

  if (buffered_ > 0) {
    const std::size_t take = std::min(length, kBlockLength - buffered_);
    std::memcpy(buffer_.data() + buffered_, data, take);
    buffered_ += take;
    data += take;
    length -= take;
    if (buffered_ < kBlockLength) return;
    compress(state_, buffer_.data(), 1);
    buffered_ = 0;
  }
  if (length >= kBlockLength) {
    compress(state_, data, length / kBlockLength);
    data += length - length % kBlockLength;
    length %= kBlockLength;
  }
  if (length > 0) {
    std::memcpy(buffer_.data(), data, length);
    buffered_ = length;
  }
}

void Sha256::update(std::string_view bytes) noexcept {
  update(std::span(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
}

void Sha256::finish(std::span<unsigned char, kDigestLength> digest) noexcept {
  // 0x80, zero bytes, then the message length in bits as 64 bits: one
  // block when 9 bytes still fit behind the buffered ones, else two.
  constexpr std::size_t kLengthField = 8;
  const std::size_t padded =
      buffered_ + 1 + kLengthField <= kBlockLength ? kBlockLength : 2 * kBlockLength;
  buffer_[buffered_] = 0x80;
  std::memset(buffer_.data() + buffered_ + 1, 0, padded - kLengthField - buffered_ - 1);
  storeBigEndian(buffer_.data() + padded - 8, (total_[1] << 3) | (total_[0] >> 29));
  storeBigEndian(buffer_.data() + padded - 4, total_[0] << 3);
  compress(state_, buffer_.data(), padded / kBlockLength);
  for (std::size_t i = 0; i < state_.size(); ++i) storeBigEndian(digest.data() + 4 * i, state_[i]);
}

Sha256::Digest Sha256::finish() noexcept {
  Digest digest;
  finish(digest);
  return digest;
}

void Sha256::wipe() noexcept { utils::core::secureZero(this, sizeof *this); }

Sha256::Digest Sha256::hash(std::span<const unsigned char> bytes) noexcept {
  Sha256 context;
  context.update(bytes);
  const Digest digest = context.finish();
  context.wipe();
  return digest;
}

Sha256::Digest Sha256::hash(std::string_view bytes) noexcept {
  return hash(std::span(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
}

}  // namespace korvane::security
