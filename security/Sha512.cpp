#include "security/Sha512.h"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

#include "utils/core/SecureZero.h"

namespace korvane::security {

namespace {

// The first 64 bits of the fractional parts of the cube roots of the first
// 80 primes.
alignas(16) constexpr std::array<std::uint64_t, 80> kRoundConstants = {
    0x428a2f98d728ae22ULL, 0x7137449123ef65cdULL, 0xb5c0fbcfec4d3b2fULL, 0xe9b5dba58189dbbcULL,
    0x3956c25bf348b538ULL, 0x59f111f1b605d019ULL, 0x923f82a4af194f9bULL, 0xab1c5ed5da6d8118ULL,
    0xd807aa98a3030242ULL, 0x12835b0145706fbeULL, 0x243185be4ee4b28cULL, 0x550c7dc3d5ffb4e2ULL,
    0x72be5d74f27b896fULL, 0x80deb1fe3b1696b1ULL, 0x9bdc06a725c71235ULL, 0xc19bf174cf692694ULL,
    0xe49b69c19ef14ad2ULL, 0xefbe4786384f25e3ULL, 0x0fc19dc68b8cd5b5ULL, 0x240ca1cc77ac9c65ULL,
    0x2de92c6f592b0275ULL, 0x4a7484aa6ea6e483ULL, 0x5cb0a9dcbd41fbd4ULL, 0x76f988da831153b5ULL,
    0x983e5152ee66dfabULL, 0xa831c66d2db43210ULL, 0xb00327c898fb213fULL, 0xbf597fc7beef0ee4ULL,
    0xc6e00bf33da88fc2ULL, 0xd5a79147930aa725ULL, 0x06ca6351e003826fULL, 0x142929670a0e6e70ULL,
    0x27b70a8546d22ffcULL, 0x2e1b21385c26c926ULL, 0x4d2c6dfc5ac42aedULL, 0x53380d139d95b3dfULL,
    0x650a73548baf63deULL, 0x766a0abb3c77b2a8ULL, 0x81c2c92e47edaee6ULL, 0x92722c851482353bULL,
    0xa2bfe8a14cf10364ULL, 0xa81a664bbc423001ULL, 0xc24b8b70d0f89791ULL, 0xc76c51a30654be30ULL,
    0xd192e819d6ef5218ULL, 0xd69906245565a910ULL, 0xf40e35855771202aULL, 0x106aa07032bbd1b8ULL,
    0x19a4c116b8d2d0c8ULL, 0x1e376c085141ab53ULL, 0x2748774cdf8eeb99ULL, 0x34b0bcb5e19b48a8ULL,
    0x391c0cb3c5c95a63ULL, 0x4ed8aa4ae3418acbULL, 0x5b9cca4f7763e373ULL, 0x682e6ff3d6b2b8a3ULL,
    0x748f82ee5defb2fcULL, 0x78a5636f43172f60ULL, 0x84c87814a1f0ab72ULL, 0x8cc702081a6439ecULL,
    0x90befffa23631e28ULL, 0xa4506cebde82bde9ULL, 0xbef9a3f7b2c67915ULL, 0xc67178f2e372532bULL,
    0xca273eceea26619cULL, 0xd186b8c721c0c207ULL, 0xeada7dd6cde0eb1eULL, 0xf57d4f7fee6ed178ULL,
    0x06f067aa72176fbaULL, 0x0a637dc5a2c898a6ULL, 0x113f9804bef90daeULL, 0x1b710b35131c471bULL,
    0x28db77f523047d84ULL, 0x32caab7b40c72493ULL, 0x3c9ebe0a15c9bebcULL, 0x431d67c49c100d4cULL,
    0x4cc5d4becb3e42b6ULL, 0x597f299cfc657e2aULL, 0x5fcb6fab3ad6faecULL, 0x6c44198c4a475817ULL};

inline std::uint64_t loadBigEndian(const unsigned char* bytes) noexcept {
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  if constexpr (std::endian::native == std::endian::little) word = std::byteswap(word);
  return word;
}

inline void storeBigEndian(unsigned char* bytes, std::uint64_t word) noexcept {
  if constexpr (std::endian::native == std::endian::little) word = std::byteswap(word);
  std::memcpy(bytes, &word, sizeof word);
}

inline std::uint64_t bigSigma0(std::uint64_t x) noexcept {
  return std::rotr(x, 28) ^ std::rotr(x, 34) ^ std::rotr(x, 39);
}
inline std::uint64_t bigSigma1(std::uint64_t x) noexcept {
  return std::rotr(x, 14) ^ std::rotr(x, 18) ^ std::rotr(x, 41);
}
[[maybe_unused]] inline std::uint64_t smallSigma0(std::uint64_t x) noexcept {
  return std::rotr(x, 1) ^ std::rotr(x, 8) ^ (x >> 7);
}
[[maybe_unused]] inline std::uint64_t smallSigma1(std::uint64_t x) noexcept {
  return std::rotr(x, 19) ^ std::rotr(x, 61) ^ (x >> 6);
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
#define KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, kw, abOut, bc)            \
  do {                                                                      \
    const std::uint64_t t1 = h + bigSigma1(e) + (g ^ (e & (f ^ g))) + (kw); \
    d += t1;                                                                \
    abOut = a ^ b;                                                          \
    h = t1 + bigSigma0(a) + (b ^ (abOut & bc));                             \
  } while (false)
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

#if defined(__SSE2__) || defined(_M_X64)

// The message schedule is expanded two words at a time in SSE2 registers
// (part of every x86-64 processor), two rounds ahead of its use, so that
// the vector unit works beside the integer rounds instead of adding to
// their load.

template <int kBits>
inline __m128i rotateRight(__m128i x) noexcept {
  return _mm_or_si128(_mm_srli_epi64(x, kBits), _mm_slli_epi64(x, 64 - kBits));
}

inline __m128i load(const std::uint64_t* words) noexcept {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(words));
}

inline void store(std::uint64_t* words, __m128i value) noexcept {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(words), value);
}

// Schedule words t and t + 1, and the same plus their round constants.
inline void expandPair(std::uint64_t* w, std::uint64_t* kw, int t) noexcept {
  const __m128i x2 = load(w + t - 2);
  const __m128i x15 = load(w + t - 15);
  const __m128i sigma1 =
      _mm_xor_si128(_mm_xor_si128(rotateRight<19>(x2), rotateRight<61>(x2)), _mm_srli_epi64(x2, 6));
  const __m128i sigma0 =
      _mm_xor_si128(_mm_xor_si128(rotateRight<1>(x15), rotateRight<8>(x15)), _mm_srli_epi64(x15, 7));
  const __m128i word = _mm_add_epi64(_mm_add_epi64(sigma1, load(w + t - 7)),
                                     _mm_add_epi64(sigma0, load(w + t - 16)));
  store(w + t, word);
  store(kw + t, _mm_add_epi64(word, load(kRoundConstants.data() + t)));
}

#define KORVANE_SHA_EXPANDING_STEP(a, b, c, d, e, f, g, h, j, abOut, bc) \
  KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, kw[r + (j)], abOut, bc);     \
  if (((j) & 1) == 0) expandPair(w, kw, r + 16 + (j))
#define KORVANE_SHA_PLAIN_STEP(a, b, c, d, e, f, g, h, j, abOut, bc) \
  KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, kw[64 + (j)], abOut, bc)

KORVANE_SHA_BODY void compressBody(Sha512::State& state, const unsigned char* blocks,
                                   std::size_t blockCount, Sha512::Scratch& scratch) noexcept {
  std::uint64_t* const w = scratch.words.data();
  std::uint64_t* const kw = scratch.words.data() + 80;
  std::uint64_t a = state[0], b = state[1], c = state[2], d = state[3];
  std::uint64_t e = state[4], f = state[5], g = state[6], h = state[7];
  for (; blockCount > 0; --blockCount, blocks += Sha512::kBlockLength) {
    std::uint64_t ab0;
    std::uint64_t ab1 = b ^ c;
    for (int i = 0; i < 16; ++i) {
      w[i] = loadBigEndian(blocks + 8 * i);
      kw[i] = w[i] + kRoundConstants[static_cast<std::size_t>(i)];
    }
    for (int r = 0; r < 64; r += 16) {
      KORVANE_SHA_SIXTEEN_ROUNDS(KORVANE_SHA_EXPANDING_STEP);
    }
    KORVANE_SHA_SIXTEEN_ROUNDS(KORVANE_SHA_PLAIN_STEP);
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

#else

// Sixteen schedule words in a ring, each expanded just before its round.
#define KORVANE_SHA_EXPAND(j)                                               \
  (w[j] += smallSigma1(w[((j) + 14) & 15]) + w[((j) + 9) & 15] +            \
           smallSigma0(w[((j) + 1) & 15]))
#define KORVANE_SHA_PLAIN_STEP(a, b, c, d, e, f, g, h, j, abOut, bc) \
  KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, k[j] + w[j], abOut, bc)
#define KORVANE_SHA_EXPANDING_STEP(a, b, c, d, e, f, g, h, j, abOut, bc) \
  KORVANE_SHA_EXPAND(j);                                                \
  KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, k[j] + w[j], abOut, bc)

KORVANE_SHA_BODY void compressBody(Sha512::State& state, const unsigned char* blocks,
                                   std::size_t blockCount, Sha512::Scratch& scratch) noexcept {
  std::uint64_t* const w = scratch.words.data();
  std::uint64_t a = state[0], b = state[1], c = state[2], d = state[3];
  std::uint64_t e = state[4], f = state[5], g = state[6], h = state[7];
  for (; blockCount > 0; --blockCount, blocks += Sha512::kBlockLength) {
    std::uint64_t ab0;
    std::uint64_t ab1 = b ^ c;
    for (int i = 0; i < 16; ++i) w[i] = loadBigEndian(blocks + 8 * i);
    const std::uint64_t* k = kRoundConstants.data();
    KORVANE_SHA_SIXTEEN_ROUNDS(KORVANE_SHA_PLAIN_STEP);
    for (int r = 16; r < 80; r += 16) {
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

#undef KORVANE_SHA_EXPAND
#endif

// Rounds over a block whose schedule, round constants included, was
// expanded beforehand.
#define KORVANE_SHA_SCHEDULED_STEP(a, b, c, d, e, f, g, h, j, abOut, bc) \
  KORVANE_SHA_ROUND(a, b, c, d, e, f, g, h, scheduled[r + (j)], abOut, bc)

KORVANE_SHA_BODY void compressScheduledBody(Sha512::State& state,
                                            const Sha512::Schedule& schedule) noexcept {
  const std::uint64_t* const scheduled = schedule.data();
  std::uint64_t a = state[0], b = state[1], c = state[2], d = state[3];
  std::uint64_t e = state[4], f = state[5], g = state[6], h = state[7];
  std::uint64_t ab0;
  std::uint64_t ab1 = b ^ c;
  for (int r = 0; r < 80; r += 16) {
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
KORVANE_SHA_BODY void compressEither(Sha512::State& state, const unsigned char* blocks,
                                     std::size_t blockCount, Sha512::Scratch* scratch,
                                     const Sha512::Schedule* schedule) noexcept {
  if (schedule != nullptr) {
    compressScheduledBody(state, *schedule);
  } else {
    compressBody(state, blocks, blockCount, *scratch);
  }
}

#if KORVANE_SHA_DISPATCH_BMI2

__attribute__((target("bmi2"))) void compressBmi2(Sha512::State& state,
                                                  const unsigned char* blocks,
                                                  std::size_t blockCount,
                                                  Sha512::Scratch* scratch,
                                                  const Sha512::Schedule* schedule) noexcept {
  compressEither(state, blocks, blockCount, scratch, schedule);
}

void compressBaseline(Sha512::State& state, const unsigned char* blocks, std::size_t blockCount,
                      Sha512::Scratch* scratch, const Sha512::Schedule* schedule) noexcept {
  compressEither(state, blocks, blockCount, scratch, schedule);
}

bool processorHasBmi2() noexcept {
  __builtin_cpu_init();
  return __builtin_cpu_supports("bmi2") != 0;
}

void compressBlocks(Sha512::State& state, const unsigned char* blocks, std::size_t blockCount,
                    Sha512::Scratch* scratch, const Sha512::Schedule* schedule) noexcept {
  static const bool hasBmi2 = processorHasBmi2();
  if (hasBmi2) {
    compressBmi2(state, blocks, blockCount, scratch, schedule);
  } else {
    compressBaseline(state, blocks, blockCount, scratch, schedule);
  }
}

#else

void compressBlocks(Sha512::State& state, const unsigned char* blocks, std::size_t blockCount,
                    Sha512::Scratch* scratch, const Sha512::Schedule* schedule) noexcept {
  compressEither(state, blocks, blockCount, scratch, schedule);
}

#endif

#undef KORVANE_SHA_DISPATCH_BMI2
#undef KORVANE_SHA_BODY
#undef KORVANE_SHA_EXPANDING_STEP
#undef KORVANE_SHA_PLAIN_STEP
#undef KORVANE_SHA_SIXTEEN_ROUNDS
#undef KORVANE_SHA_ROUND

}  // namespace

void Sha512::compress(State& state, const unsigned char* blocks, std::size_t blockCount,
                      Scratch& scratch) noexcept {
  compressBlocks(state, blocks, blockCount, &scratch, nullptr);
}

void Sha512::compress(State& state, const unsigned char* blocks,
                      std::size_t blockCount) noexcept {
  Scratch scratch;
  compressBlocks(state, blocks, blockCount, &scratch, nullptr);
  scratch.wipe();
}

void Sha512::compress(State& state, const Schedule& schedule) noexcept {
  compressBlocks(state, nullptr, 0, nullptr, &schedule);
}

void Sha512::expand(const unsigned char* block, Schedule& schedule) noexcept {
  for (std::size_t t = 0; t < 16; ++t) schedule[t] = loadBigEndian(block + sizeof(std::uint64_t) * t);
  for (std::size_t t = 16; t < schedule.size(); ++t) {
    schedule[t] = smallSigma1(schedule[t - 2]) + schedule[t - 7] + smallSigma0(schedule[t - 15]) +
                  schedule[t - 16];
  }
  for (std::size_t t = 0; t < schedule.size(); ++t) schedule[t] += kRoundConstants[t];
}

void Sha512::Scratch::wipe() noexcept {
  // Whole-word volatile stores: the same guarantee as a byte-wise wipe at a
  // fraction of its cost, which matters since every digest pays it.
  volatile std::uint64_t* word = words.data();
  for (std::size_t i = 0; i < words.size(); ++i) word[i] = 0;
}

void Sha512::init() noexcept {
  state_ = kInitialState;
  total_ = {0, 0};
  buffered_ = 0;
}

void Sha512::update(std::span<const unsigned char> bytes) noexcept {
  const unsigned char* data = bytes.data();
  std::size_t length = bytes.size();
  if (length == 0) return;
  total_[0] += length;
  if (total_[0] < length) ++total_[1];

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

void Sha512::update(std::string_view bytes) noexcept {
  update(std::span(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
}

void Sha512::finish(std::span<unsigned char, kDigestLength> digest) noexcept {
  // 0x80, zero bytes, then the message length in bits as 128 bits: one
  // block when 17 bytes still fit behind the buffered ones, else two.
  constexpr std::size_t kLengthField = 16;
  const std::size_t padded =
      buffered_ + 1 + kLengthField <= kBlockLength ? kBlockLength : 2 * kBlockLength;
  buffer_[buffered_] = 0x80;
  std::memset(buffer_.data() + buffered_ + 1, 0, padded - kLengthField - buffered_ - 1);
  storeBigEndian(buffer_.data() + padded - 16, (total_[1] << 3) | (total_[0] >> 61));
  storeBigEndian(buffer_.data() + padded - 8, total_[0] << 3);
  compress(state_, buffer_.data(), padded / kBlockLength);
  for (std::size_t i = 0; i < state_.size(); ++i) storeBigEndian(digest.data() + 8 * i, state_[i]);
}

Sha512::Digest Sha512::finish() noexcept {
  Digest digest;
  finish(digest);
  return digest;
}

void Sha512::wipe() noexcept { utils::core::secureZero(this, sizeof *this); }

Sha512::Digest Sha512::hash(std::span<const unsigned char> bytes) noexcept {
  Sha512 context;
  context.update(bytes);
  const Digest digest = context.finish();
  context.wipe();
  return digest;
}

Sha512::Digest Sha512::hash(std::string_view bytes) noexcept {
  return hash(std::span(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
}

}  // namespace korvane::security
