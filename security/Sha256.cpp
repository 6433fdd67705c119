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

using Schedule = std::uint32_t[16];

// One round. Instead of shifting the eight working variables, the callers
// rotate the roles of the arguments, so only d and h are written.
template <int kIndex, bool kExpand>
inline void step(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t& d,
                 std::uint32_t e, std::uint32_t f, std::uint32_t g, std::uint32_t& h,
                 Schedule& w, const std::uint32_t* k) noexcept {
  if constexpr (kExpand) {
    w[kIndex] += smallSigma1(w[(kIndex + 14) & 15]) + w[(kIndex + 9) & 15] +
                 smallSigma0(w[(kIndex + 1) & 15]);
  }
  const std::uint32_t t1 = h + bigSigma1(e) + (g ^ (e & (f ^ g))) + k[kIndex] + w[kIndex];
  d += t1;
  h = t1 + bigSigma0(a) + ((a & b) | (c & (a | b)));
}

// Sixteen rounds over the sixteen schedule words, expanding each one first
// after the initial sixteen.
template <bool kExpand>
inline void sixteenRounds(std::uint32_t& a, std::uint32_t& b, std::uint32_t& c,
                          std::uint32_t& d, std::uint32_t& e, std::uint32_t& f,
                          std::uint32_t& g, std::uint32_t& h, Schedule& w,
                          const std::uint32_t* k) noexcept {
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

void Sha256::compress(State& state, const unsigned char* blocks,
                      std::size_t blockCount) noexcept {
  std::uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  std::uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
  Schedule w;
  for (; blockCount > 0; --blockCount, blocks += kBlockLength) {
    for (int i = 0; i < 16; ++i) w[i] = loadBigEndian(blocks + 4 * i);
    sixteenRounds<false>(a, b, c, d, e, f, g, h, w, kRoundConstants.data());
    for (int r = 16; r < 64; r += 16) {
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
  volatile std::uint32_t* scrub = w;
  for (int i = 0; i < 16; ++i) scrub[i] = 0;
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
