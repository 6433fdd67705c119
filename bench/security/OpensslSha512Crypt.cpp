#include "bench/security/OpensslSha512Crypt.h"

// The low-level SHA-512 interface is the only public way to OpenSSL's
// block function; it is deprecated, not gone.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/sha.h>

#include <algorithm>
#include <cstring>

namespace korvane::bench {

namespace {

constexpr char alphabet[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

// The bytes of the shapes' messages: (odd) P [S] [P] R or (even) R [S] [P] P,
// with S when bit 1 of the shape is set and the middle P when bit 2 is.
std::size_t messageLength(std::size_t shape, std::size_t keyLength, std::size_t saltLength) {
  return 64 + keyLength + ((shape & 2) != 0 ? saltLength : 0) + ((shape & 4) != 0 ? keyLength : 0);
}

std::size_t paddedLength(std::size_t length) { return (length + 17 + 127) / 128 * 128; }

unsigned char* appendRepeated(unsigned char* out, const unsigned char* digest, std::size_t length) {
  for (; length > 64; length -= 64) out = std::copy_n(digest, 64, out);
  return std::copy_n(digest, length, out);
}

void addRepeated(SHA512_CTX& context, const unsigned char* digest, std::size_t length) {
  for (; length > 64; length -= 64) SHA512_Update(&context, digest, 64);
  SHA512_Update(&context, digest, length);
}

}  // namespace

OpensslSha512Crypt::OpensslSha512Crypt(std::string_view key, std::string_view salt,
                                       std::size_t rounds)
    : key_(key), salt_(salt), rounds_(std::clamp<std::size_t>(rounds, 1000, 999999999)) {
  for (std::size_t shape = 0; shape < shapes_.size(); ++shape) {
    shapes_[shape].blocks.resize(paddedLength(messageLength(shape, key.size(), salt.size())));
  }
  text_.reserve(124);
}

void OpensslSha512Crypt::prepareShape(std::size_t shape, const Digest& keyDigest,
                                      const Digest& saltDigest) {
  Shape& s = shapes_[shape];
  const std::size_t length = messageLength(shape, key_.size(), salt_.size());
  unsigned char* out = s.blocks.data();
  const bool odd = (shape & 1) != 0;
  if (odd) out = appendRepeated(out, keyDigest.data(), key_.size());
  if (!odd) out += digestSize;
  if ((shape & 2) != 0) out = appendRepeated(out, saltDigest.data(), salt_.size());
  if ((shape & 4) != 0) out = appendRepeated(out, keyDigest.data(), key_.size());
  if (odd) {
    s.digestOffset = static_cast<std::size_t>(out - s.blocks.data());
    out += digestSize;
  } else {
    s.digestOffset = 0;
    out = appendRepeated(out, keyDigest.data(), key_.size());
  }
  *out++ = 0x80;
  std::fill(out, s.blocks.data() + s.blocks.size(), static_cast<unsigned char>(0));
  std::uint64_t bits = static_cast<std::uint64_t>(length) << 3;
  for (std::size_t i = 0; i < 8; ++i, bits >>= 8) {
    s.blocks[s.blocks.size() - 1 - i] = static_cast<unsigned char>(bits);
  }
  // The whole blocks in front of the digest's slot are the same in every
  // round: compressed once here.
  SHA512_CTX context;
  SHA512_Init(&context);
  s.firstBlock = s.digestOffset / block;
  if (s.firstBlock > 0) SHA512_Update(&context, s.blocks.data(), s.firstBlock * block);
  std::copy(std::begin(context.h), std::end(context.h), s.start.begin());
}

std::string_view OpensslSha512Crypt::hash() {
  const auto* key = reinterpret_cast<const unsigned char*>(key_.data());
  const auto* salt = reinterpret_cast<const unsigned char*>(salt_.data());
  const std::size_t keyLength = key_.size();
  const std::size_t saltLength = salt_.size();
  SHA512_CTX context;
  Digest alternate;
  Digest running;
  Digest keyDigest;
  Digest saltDigest;

  SHA512_Init(&context);
  SHA512_Update(&context, key, keyLength);
  SHA512_Update(&context, salt, saltLength);
  SHA512_Update(&context, key, keyLength);
  SHA512_Final(alternate.data(), &context);

  SHA512_Init(&context);
  SHA512_Update(&context, key, keyLength);
  SHA512_Update(&context, salt, saltLength);
  addRepeated(context, alternate.data(), keyLength);
  for (std::size_t n = keyLength; n > 0; n >>= 1) {
    if ((n & 1) != 0) {
      SHA512_Update(&context, alternate.data(), digestSize);
    } else {
      SHA512_Update(&context, key, keyLength);
    }
  }
  SHA512_Final(running.data(), &context);

  SHA512_Init(&context);
  for (std::size_t i = 0; i < keyLength; ++i) SHA512_Update(&context, key, keyLength);
  SHA512_Final(keyDigest.data(), &context);

  SHA512_Init(&context);
  for (std::size_t i = 0; i < 16U + running[0]; ++i) SHA512_Update(&context, salt, saltLength);
  SHA512_Final(saltDigest.data(), &context);

  for (std::size_t shape = 0; shape < shapes_.size(); ++shape) {
    prepareShape(shape, keyDigest, saltDigest);
  }

  for (std::size_t i = 0; i < rounds_; ++i) {
    const std::size_t shape = (i & 1) | (i % 3 != 0 ? 2U : 0U) | (i % 7 != 0 ? 4U : 0U);
    Shape& s = shapes_[shape];
    std::memcpy(s.blocks.data() + s.digestOffset, running.data(), digestSize);
    std::copy(s.start.begin(), s.start.end(), std::begin(context.h));
    context.num = 0;
    const std::size_t skipped = s.firstBlock * block;
    SHA512_Update(&context, s.blocks.data() + skipped, s.blocks.size() - skipped);
    for (std::size_t w = 0; w < 8; ++w) {
      for (std::size_t b = 0; b < 8; ++b) {
        running[8 * w + b] = static_cast<unsigned char>(context.h[w] >> (56 - 8 * b));
      }
    }
  }
  encode(running);
  return text_;
}

void OpensslSha512Crypt::encode(const Digest& digest) {
  text_ = "$6$";
  if (rounds_ != 5000) {
    text_ += "rounds=";
    text_ += std::to_string(rounds_);
    text_ += '$';
  }
  text_ += salt_;
  text_ += '$';
  const auto put = [this](std::uint32_t value, int count) {
    for (int i = 0; i < count; ++i, value >>= 6) text_ += alphabet[value & 63];
  };
  // Group k takes the bytes k, k + 21 and k + 42, rotated by k mod 3.
  for (std::size_t k = 0; k < 21; ++k) {
    std::array<std::size_t, 3> order = {k, k + 21, k + 42};
    std::rotate(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(k % 3), order.end());
    put((std::uint32_t{digest[order[0]]} << 16) | (std::uint32_t{digest[order[1]]} << 8) |
            digest[order[2]],
        4);
  }
  put(digest[63], 2);
}

}  // namespace korvane::bench
