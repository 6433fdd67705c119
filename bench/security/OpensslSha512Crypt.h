// OpensslSha512Crypt: the SHA-512-crypt hash computed on OpenSSL's SHA-512
// compression, as the benchmarks' floor for sha512Crypt. It is a
// benchmark-only reference, never part of the tool.
//
// The rounds loop does the least that any implementation must: each of the
// eight message shapes of a round is laid out and padded once, the leading
// whole blocks that hold no part of the running digest are compressed once,
// and every round only copies the running digest into its shape and hands
// the remaining blocks in one call to OpenSSL's block function (its
// assembly, which on x86-64 also expands the schedules of two blocks at a
// time). What is left is the compression of about 9,300 dependent blocks
// per hash of 5000 rounds with a short key, at OpenSSL's speed.
//
// The buffers are sized once by the constructor, so hash() allocates
// nothing and can be timed like sha512Crypt.
//
// Thread safety: one object per thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::bench {

class OpensslSha512Crypt {
 public:
  OpensslSha512Crypt(std::string_view key, std::string_view salt, std::size_t rounds);

  // The hash string, as sha512Crypt writes it with the rounds field when
  // the rounds are not 5000.
  std::string_view hash();

 private:
  static constexpr std::size_t digestSize = 64;
  static constexpr std::size_t block = 128;
  using Digest = std::array<unsigned char, digestSize>;

  // One message shape: its padded blocks with a slot for the running
  // digest, and the chaining value after the blocks compressed once.
  struct Shape {
    std::vector<unsigned char> blocks;
    std::size_t firstBlock = 0;
    std::size_t digestOffset = 0;
    std::array<std::uint64_t, 8> start{};
  };

  void prepareShape(std::size_t shape, const Digest& keyDigest, const Digest& saltDigest);
  void encode(const Digest& digest);

  std::string key_;
  std::string salt_;
  std::size_t rounds_;
  std::array<Shape, 8> shapes_;
  std::string text_;
};

}  // namespace korvane::bench
