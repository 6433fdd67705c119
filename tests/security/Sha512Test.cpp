#include "security/Sha512.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::security {
namespace {

std::string toHex(const Sha512::Digest& digest) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

// A message whose bytes take every value, so that byte order and sign
// mistakes show.
std::string patternMessage(std::size_t length) {
  std::string message(length, '\0');
  std::uint32_t value = 12345;
  for (char& c : message) {
    value = value * 1103515245U + 12345U;
    c = static_cast<char>(value >> 16);
  }
  return message;
}

TEST(Sha512Test, KnownAnswers) {
  EXPECT_EQ(toHex(Sha512::hash("")),
            "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
            "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
  EXPECT_EQ(toHex(Sha512::hash("abc")),
            "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
            "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f");
  EXPECT_EQ(toHex(Sha512::hash("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                               "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu")),
            "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
            "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909");
  EXPECT_EQ(toHex(Sha512::hash("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
            "204a8fc6dda82f0a0ced7beb8e08a41657c16ef468b228a8279be331a703c335"
            "96fd15c13b1b07f9aa1d3bea57789ca031ad85c7a71dd70354ec631238ca3445");
}

TEST(Sha512Test, MillionLettersInUnevenPieces) {
  const std::string piece(997, 'a');
  Sha512 context;
  std::size_t left = 1000000;
  for (std::size_t step = 1; left > 0; step = step % piece.size() + 37) {
    const std::size_t take = std::min({left, step, piece.size()});
    context.update(std::string_view(piece).substr(0, take));
    left -= take;
  }
  EXPECT_EQ(toHex(context.finish()),
            "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973eb"
            "de0ff244877ea60a4cb0432ce577c31beb009c5c2c49aa2e4eadb217ad8cc09b");
}

// Lengths around the points where the padding needs a second block.
TEST(Sha512Test, PaddingBoundaries) {
  const struct {
    std::size_t length;
    const char* digest;
  } kCases[] = {
      {111, "fa9121c7b32b9e01733d034cfc78cbf67f926c7ed83e82200ef86818196921760b4beff48404df811b953828274461673c68d04e297b0eb7b2b4d60fc6b566a2"},
      {112, "c01d080efd492776a1c43bd23dd99d0a2e626d481e16782e75d54c2503b5dc32bd05f0f1ba33e568b88fd2d970929b719ecbb152f58f130a407c8830604b70ca"},
      {119, "130396a75cb483f2eee8c56d8a668bb3d2641f5243212c0bee2bd33da096ad9eb8179fe18f9eaacf76e09fae9de4c3f14ba13341e345be05bf76c182cc3468cb"},
      {120, "f241de612b01aa2fa3cf01531d2a8e5e17fc761dfd48a704a834a47f57d6eade7804ecc39be42fdef16ec6adeaf7c01c2fd0c4cc97d3860907cfa4a3b36d0c05"},
      {127, "828613968b501dc00a97e08c73b118aa8876c26b8aac93df128502ab360f91bab50a51e088769a5c1eff4782ace147dce3642554199876374291f5d921629502"},
      {128, "b73d1929aa615934e61a871596b3f3b33359f42b8175602e89f7e06e5f658a243667807ed300314b95cacdd579f3e33abdfbe351909519a846d465c59582f321"},
      {239, "52c853cb8d907f3d4d6b889beb027985d7c273486d75f8baf26f80d24e90c74c6c3de3e22131582380a7d14d43f2941a31385439cd6ddc469f628015e50bf286"},
      {240, "4c296d90c61052a62ffb1dd196f1b7b09373b1f93e71836baebf89690546b7595684dbe9467a8e484fa0d1094272b4344a7c24f5fee8daedeb0bf549c985ab5f"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(toHex(Sha512::hash(std::string(c.length, 'a'))), c.digest) << c.length;
  }
}

TEST(Sha512Test, EverySplitPointGivesTheOneShotDigest) {
  const std::string message = patternMessage(3 * Sha512::kBlockLength + 17);
  const Sha512::Digest expected = Sha512::hash(message);
  for (std::size_t split = 0; split <= message.size(); ++split) {
    Sha512 context;
    context.update(std::string_view(message).substr(0, split));
    context.update(std::string_view());
    context.update(std::string_view(message).substr(split));
    ASSERT_EQ(context.finish(), expected) << split;
  }
  for (std::size_t first = 0; first <= message.size(); first += 13) {
    for (std::size_t second = first; second <= message.size(); second += 7) {
      Sha512 context;
      const std::string_view view(message);
      context.update(view.substr(0, first));
      context.update(view.substr(first, second - first));
      context.update(view.substr(second));
      ASSERT_EQ(context.finish(), expected) << first << ' ' << second;
    }
  }
}

TEST(Sha512Test, ByteByByteGivesTheOneShotDigest) {
  for (const std::size_t length : {0, 1, 111, 112, 128, 129, 255, 256, 1000}) {
    const std::string message = patternMessage(length);
    Sha512 context;
    for (const char c : message) context.update(std::string_view(&c, 1));
    EXPECT_EQ(context.finish(), Sha512::hash(message)) << length;
  }
}

TEST(Sha512Test, UnalignedInputs) {
  const std::string message = patternMessage(700);
  const Sha512::Digest expected = Sha512::hash(message);
  std::vector<unsigned char> storage(message.size() + 16);
  for (std::size_t offset = 0; offset < 16; ++offset) {
    std::copy(message.begin(), message.end(), storage.begin() + static_cast<std::ptrdiff_t>(offset));
    const std::span<const unsigned char> shifted(storage.data() + offset, message.size());
    EXPECT_EQ(Sha512::hash(shifted), expected) << offset;
    Sha512 context;
    context.update(shifted.first(3));
    context.update(shifted.subspan(3));
    EXPECT_EQ(context.finish(), expected) << offset;
  }
}

TEST(Sha512Test, InitStartsAFreshMessage) {
  Sha512 context;
  context.update("some earlier message that is left unfinished");
  context.init();
  context.update("abc");
  EXPECT_EQ(context.finish(), Sha512::hash("abc"));
  context.init();
  EXPECT_EQ(context.finish(), Sha512::hash(""));
}

TEST(Sha512Test, CompressMatchesThePaddedMessage) {
  // "abc" laid out by hand: 0x80, zeros, bit length 24 in the last byte.
  std::array<unsigned char, Sha512::kBlockLength> block{};
  block[0] = 'a';
  block[1] = 'b';
  block[2] = 'c';
  block[3] = 0x80;
  block[Sha512::kBlockLength - 1] = 24;
  Sha512::State state = Sha512::kInitialState;
  Sha512::compress(state, block.data(), 1);
  const Sha512::Digest expected = Sha512::hash("abc");
  for (std::size_t i = 0; i < state.size(); ++i) {
    std::uint64_t word = 0;
    for (std::size_t j = 0; j < 8; ++j) word = (word << 8) | expected[8 * i + j];
    EXPECT_EQ(state[i], word) << i;
  }
}

TEST(Sha512Test, ExpandedScheduleCompressesLikeTheBlock) {
  const std::string blocks = patternMessage(4 * Sha512::kBlockLength);
  const auto* bytes = reinterpret_cast<const unsigned char*>(blocks.data());
  Sha512::State chaining = Sha512::kInitialState;
  for (std::size_t i = 0; i < 4; ++i) {
    const unsigned char* block = bytes + i * Sha512::kBlockLength;
    Sha512::Schedule schedule;
    Sha512::expand(block, schedule);
    Sha512::State fromBlock = chaining;
    Sha512::compress(fromBlock, block, 1);
    Sha512::State fromSchedule = chaining;
    Sha512::compress(fromSchedule, schedule);
    ASSERT_EQ(fromSchedule, fromBlock) << i;
    ASSERT_NE(fromBlock, chaining);
    chaining = fromBlock;
  }
}

TEST(Sha512Test, WipeClearsTheContext) {
  Sha512 context;
  context.update("secret bytes that stay buffered");
  context.wipe();
  const auto* bytes = reinterpret_cast<const unsigned char*>(&context);
  for (std::size_t i = 0; i < sizeof context; ++i) ASSERT_EQ(bytes[i], 0) << i;
}

}  // namespace
}  // namespace korvane::security
