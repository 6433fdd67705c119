#include "security/Sha256.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::security {
namespace {

std::string toHex(const Sha256::Digest& digest) {
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

TEST(Sha256Test, KnownAnswers) {
  EXPECT_EQ(toHex(Sha256::hash("")),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(toHex(Sha256::hash("abc")),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(toHex(Sha256::hash("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                               "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu")),
            "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1");
  EXPECT_EQ(toHex(Sha256::hash("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Sha256Test, MillionLettersInUnevenPieces) {
  const std::string piece(997, 'a');
  Sha256 context;
  std::size_t left = 1000000;
  for (std::size_t step = 1; left > 0; step = step % piece.size() + 37) {
    const std::size_t take = std::min({left, step, piece.size()});
    context.update(std::string_view(piece).substr(0, take));
    left -= take;
  }
  EXPECT_EQ(toHex(context.finish()),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

// Lengths around the points where the padding needs a second block.
TEST(Sha256Test, PaddingBoundaries) {
  const struct {
    std::size_t length;
    const char* digest;
  } kCases[] = {
      {55, "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
      {56, "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
      {63, "7d3e74a05d7db15bce4ad9ec0658ea98e3f06eeecf16b4c6fff2da457ddc2f34"},
      {64, "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
      {111, "6374f73208854473827f6f6a3f43b1f53eaa3b82c21c1a6d69a2110b2a79baad"},
      {112, "f54353008a2553262ecdc4a34749563ba0950e8b0fc8652780b0a614b99683c1"},
      {119, "31eba51c313a5c08226adf18d4a359cfdfd8d2e816b13f4af952f7ea6584dcfb"},
      {120, "2f3d335432c70b580af0e8e1b3674a7c020d683aa5f73aaaedfdc55af904c21c"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(toHex(Sha256::hash(std::string(c.length, 'a'))), c.digest) << c.length;
  }
}

TEST(Sha256Test, EverySplitPointGivesTheOneShotDigest) {
  const std::string message = patternMessage(3 * Sha256::kBlockLength + 17);
  const Sha256::Digest expected = Sha256::hash(message);
  for (std::size_t split = 0; split <= message.size(); ++split) {
    Sha256 context;
    context.update(std::string_view(message).substr(0, split));
    context.update(std::string_view());
    context.update(std::string_view(message).substr(split));
    ASSERT_EQ(context.finish(), expected) << split;
  }
  for (std::size_t first = 0; first <= message.size(); first += 13) {
    for (std::size_t second = first; second <= message.size(); second += 7) {
      Sha256 context;
      const std::string_view view(message);
      context.update(view.substr(0, first));
      context.update(view.substr(first, second - first));
      context.update(view.substr(second));
      ASSERT_EQ(context.finish(), expected) << first << ' ' << second;
    }
  }
}

TEST(Sha256Test, ByteByByteGivesTheOneShotDigest) {
  for (const std::size_t length : {0, 1, 55, 56, 64, 65, 127, 128, 1000}) {
    const std::string message = patternMessage(length);
    Sha256 context;
    for (const char c : message) context.update(std::string_view(&c, 1));
    EXPECT_EQ(context.finish(), Sha256::hash(message)) << length;
  }
}

TEST(Sha256Test, UnalignedInputs) {
  const std::string message = patternMessage(700);
  const Sha256::Digest expected = Sha256::hash(message);
  std::vector<unsigned char> storage(message.size() + 16);
  for (std::size_t offset = 0; offset < 16; ++offset) {
    std::copy(message.begin(), message.end(), storage.begin() + static_cast<std::ptrdiff_t>(offset));
    const std::span<const unsigned char> shifted(storage.data() + offset, message.size());
    EXPECT_EQ(Sha256::hash(shifted), expected) << offset;
    Sha256 context;
    context.update(shifted.first(3));
    context.update(shifted.subspan(3));
    EXPECT_EQ(context.finish(), expected) << offset;
  }
}

TEST(Sha256Test, InitStartsAFreshMessage) {
  Sha256 context;
  context.update("some earlier message that is left unfinished");
  context.init();
  context.update("abc");
  EXPECT_EQ(context.finish(), Sha256::hash("abc"));
  context.init();
  EXPECT_EQ(context.finish(), Sha256::hash(""));
}

TEST(Sha256Test, CompressMatchesThePaddedMessage) {
  // "abc" laid out by hand: 0x80, zeros, bit length 24 in the last byte.
  std::array<unsigned char, Sha256::kBlockLength> block{};
  block[0] = 'a';
  block[1] = 'b';
  block[2] = 'c';
  block[3] = 0x80;
  block[Sha256::kBlockLength - 1] = 24;
  Sha256::State state = Sha256::kInitialState;
  Sha256::compress(state, block.data(), 1);
  const Sha256::Digest expected = Sha256::hash("abc");
  for (std::size_t i = 0; i < state.size(); ++i) {
    std::uint32_t word = 0;
    for (std::size_t j = 0; j < 4; ++j) word = (word << 8) | expected[4 * i + j];
    EXPECT_EQ(state[i], word) << i;
  }
}

TEST(Sha256Test, ExpandedScheduleCompressesLikeTheBlock) {
  const std::string blocks = patternMessage(4 * Sha256::kBlockLength);
  const auto* bytes = reinterpret_cast<const unsigned char*>(blocks.data());
  Sha256::State chaining = Sha256::kInitialState;
  for (std::size_t i = 0; i < 4; ++i) {
    const unsigned char* block = bytes + i * Sha256::kBlockLength;
    Sha256::Schedule schedule;
    Sha256::expand(block, schedule);
    Sha256::State fromBlock = chaining;
    Sha256::compress(fromBlock, block, 1);
    Sha256::State fromSchedule = chaining;
    Sha256::compress(fromSchedule, schedule);
    ASSERT_EQ(fromSchedule, fromBlock) << i;
    ASSERT_NE(fromBlock, chaining);
    chaining = fromBlock;
  }
}

TEST(Sha256Test, WipeClearsTheContext) {
  Sha256 context;
  context.update("secret bytes that stay buffered");
  context.wipe();
  const auto* bytes = reinterpret_cast<const unsigned char*>(&context);
  for (std::size_t i = 0; i < sizeof context; ++i) ASSERT_EQ(bytes[i], 0) << i;
}

}  // namespace
}  // namespace korvane::security
