#include "security/Sha512.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "utils/core/SecureZero.h"

namespace korvane::security {

namespace {

// The first 64 bits of the fractional parts of the cube roots of the first
// 80 primes.
constexpr std::array<std::uint64_t, 80> kRoundConstants = {
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
inline std::uint64_t smallSigma0(std::uint64_t x) noexcept {
  return std::rotr(x, 1) ^ std::rotr(x, 8) ^ (x >> 7);
}
inline std::uint64_t smallSigma1(std::uint64_t x) noexcept {
  return std::rotr(x, 19) ^ std::rotr(x, 61) ^ (x >> 6);
}

using Schedule = std::uint64_t[16];

// One round. Instead of shifting the eight working variables, the callers
// rotate the roles of the arguments, so only d and h are written.
template <int kIndex, bool kExpand>
inline void step(std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t& d,
                 std::uint64_t e, std::uint64_t f, std::uint64_t g, std::uint64_t& h,
                 Schedule& w, const std::uint64_t* k) noexcept {
  if constexpr (kExpand) {
    w[kIndex] += smallSigma1(w[(kIndex + 14) & 15]) + w[(kIndex + 9) & 15] +
                 smallSigma0(w[(kIndex + 1) & 15]);
  }
  const std::uint64_t t1 = h + bigSigma1(e) + (g ^ (e & (f ^ g))) + k[kIndex] + w[kIndex];
  d += t1;
  h = t1 + bigSigma0(a) + ((a & b) | (c & (a | b)));
}

// Sixteen rounds over the sixteen schedule words, expanding each one first
// after the initial sixteen.
template <bool kExpand>
inline void sixteenRounds(std::uint64_t& a, std::uint64_t& b, std::uint64_t& c,
                          std::uint64_t& d, std::uint64_t& e, std::uint64_t& f,
                          std::uint64_t& g, std::uint64_t& h, Schedule& w,
                          const std::uint64_t* k) noexcept {
  step<0, kExpand>(a, b, c, d, e, f, g, h, w, k);
  step<1, kExpand>(h, a, b, c, d, e, f, g, w, k);
  step<2, kExpand>(g, h, a, b, c, d, e, f, w, k);
  step<3, kExpand>(f, g, h, a, b, c, d, e, w, k);
  step<4, kExpand>(e, f, g, h, a, b, c, d, w, k);
  step<5, kExpand>(d, e, f, g, h, a, b, c, w, k);
  step<6, kExpand>(c, d, e, f, g, h, a, b, w, k);
  step<7, kExpand>(b, c, d, e, f, g, h, a, w, k);
  step<8, kExpand>(a, b, c, d, e, f, g, h, w, k);
  step<9, kExpand>(h, a, b, c, d, e, f, g, w, k);
  step<10, kExpand>(g, h, a, b, c, d, e, f, w, k);
  step<11, kExpand>(f, g, h, a, b, c, d, e, w, k);
  step<12, kExpand>(e, f, g, h, a, b, c, d, w, k);
  step<13, kExpand>(d, e, f, g, h, a, b, c, w, k);
  step<14, kExpand>(c, d, e, f, g, h, a, b, w, k);
  step<15, kExpand>(b, c, d, e, f, g, h, a, w, k);
}

}  // namespace

void Sha512::compress(State& state, const unsigned char* blocks,
                      std::size_t blockCount) noexcept {
  std::uint64_t a = state[0], b = state[1], c = state[2], d = state[3];
  std::uint64_t e = state[4], f = state[5], g = state[6], h = state[7];
  Schedule w;
  for (; blockCount > 0; --blockCount, blocks += kBlockLength) {
    for (int i = 0; i < 16; ++i) w[i] = loadBigEndian(blocks + 8 * i);
    sixteenRounds<false>(a, b, c, d, e, f, g, h, w, kRoundConstants.data());
    for (int r = 16; r < 80; r += 16) {
      sixteenRounds<true>(a, b, c, d, e, f, g, h, w, kRoundConstants.data() + r);
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
  // The schedule words are message words or derived from them. Whole-word
  // volatile stores: cheaper than a byte-wise wipe on every call.
  volatile std::uint64_t* scrub = w;
  for (int i = 0; i < 16; ++i) scrub[i] = 0;
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
