#include <gtest/gtest.h>

#include "security/Sha2.h"

#if (defined(__GNUC__) || defined(__clang__)) && defined(__x86_64__)
#include <cpuid.h>
#endif

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "security/Sha256.h"
#include "security/Sha512.h"
#include "utils/core/ProcessorFeatures.h"

namespace korvane::security {
namespace {

// The published answers for each digest.
template <typename Hash>
struct Answers;

template <>
struct Answers<Sha256> {
  static constexpr const char* empty =
      "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
  static constexpr const char* abc =
      "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  static constexpr const char* twoBlocks896 =
      "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1";
  static constexpr const char* twoBlocks448 =
      "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1";
  static constexpr const char* millionLetters =
      "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";
  // Lengths around the points where the padding needs a second block.
  static constexpr std::pair<std::size_t, const char*> padding[] = {
      {55, "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
      {56, "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
      {63, "7d3e74a05d7db15bce4ad9ec0658ea98e3f06eeecf16b4c6fff2da457ddc2f34"},
      {64, "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
      {111, "6374f73208854473827f6f6a3f43b1f53eaa3b82c21c1a6d69a2110b2a79baad"},
      {112, "f54353008a2553262ecdc4a34749563ba0950e8b0fc8652780b0a614b99683c1"},
      {119, "31eba51c313a5c08226adf18d4a359cfdfd8d2e816b13f4af952f7ea6584dcfb"},
      {120, "2f3d335432c70b580af0e8e1b3674a7c020d683aa5f73aaaedfdc55af904c21c"},
  };
};

template <>
struct Answers<Sha512> {
  static constexpr const char* empty =
      "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
      "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e";
  static constexpr const char* abc =
      "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
      "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f";
  static constexpr const char* twoBlocks896 =
      "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
      "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909";
  static constexpr const char* twoBlocks448 =
      "204a8fc6dda82f0a0ced7beb8e08a41657c16ef468b228a8279be331a703c335"
      "96fd15c13b1b07f9aa1d3bea57789ca031ad85c7a71dd70354ec631238ca3445";
  static constexpr const char* millionLetters =
      "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973eb"
      "de0ff244877ea60a4cb0432ce577c31beb009c5c2c49aa2e4eadb217ad8cc09b";
  static constexpr std::pair<std::size_t, const char*> padding[] = {
      {111,
       "fa9121c7b32b9e01733d034cfc78cbf67f926c7ed83e82200ef86818196921760b4beff48404df811b953828274"
       "461673c68d04e297b0eb7b2b4d60fc6b566a2"},
      {112,
       "c01d080efd492776a1c43bd23dd99d0a2e626d481e16782e75d54c2503b5dc32bd05f0f1ba33e568b88fd2d9709"
       "29b719ecbb152f58f130a407c8830604b70ca"},
      {119,
       "130396a75cb483f2eee8c56d8a668bb3d2641f5243212c0bee2bd33da096ad9eb8179fe18f9eaacf76e09fae9de"
       "4c3f14ba13341e345be05bf76c182cc3468cb"},
      {120,
       "f241de612b01aa2fa3cf01531d2a8e5e17fc761dfd48a704a834a47f57d6eade7804ecc39be42fdef16ec6adeaf"
       "7c01c2fd0c4cc97d3860907cfa4a3b36d0c05"},
      {127,
       "828613968b501dc00a97e08c73b118aa8876c26b8aac93df128502ab360f91bab50a51e088769a5c1eff4782ace"
       "147dce3642554199876374291f5d921629502"},
      {128,
       "b73d1929aa615934e61a871596b3f3b33359f42b8175602e89f7e06e5f658a243667807ed300314b95cacdd579f"
       "3e33abdfbe351909519a846d465c59582f321"},
      {239,
       "52c853cb8d907f3d4d6b889beb027985d7c273486d75f8baf26f80d24e90c74c6c3de3e22131582380a7d14d43f"
       "2941a31385439cd6ddc469f628015e50bf286"},
      {240,
       "4c296d90c61052a62ffb1dd196f1b7b09373b1f93e71836baebf89690546b7595684dbe9467a8e484fa0d109427"
       "2b4344a7c24f5fee8daedeb0bf549c985ab5f"},
  };
};

template <std::size_t length>
std::string toHex(const std::array<unsigned char, length>& digest) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : digest) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
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

// Every test runs once per implementation that this processor supports,
// each forced in turn, so that all paths meet the same answers.
template <typename Hash>
class Sha2Test : public ::testing::Test {
 protected:
  void TearDown() override { Hash::selectImplementation(Hash::implementations().front()); }

  template <typename Check>
  void forEachImplementation(Check check) {
    for (const auto& implementation : Hash::implementations()) {
      Hash::selectImplementation(implementation);
      SCOPED_TRACE(implementation.name);
      check();
    }
  }
};

using Digests = ::testing::Types<Sha256, Sha512>;
TYPED_TEST_SUITE(Sha2Test, Digests);

TYPED_TEST(Sha2Test, ListsAPortableImplementationLast) {
  const auto implementations = TypeParam::implementations();
  ASSERT_FALSE(implementations.empty());
  EXPECT_EQ(std::string_view(implementations.back().name), "portable");
  EXPECT_EQ(&TypeParam::implementation(), &implementations.front());
}

TYPED_TEST(Sha2Test, KnownAnswers) {
  using A = Answers<TypeParam>;
  this->forEachImplementation([] {
    EXPECT_EQ(toHex(TypeParam::hash("")), A::empty);
    EXPECT_EQ(toHex(TypeParam::hash("abc")), A::abc);
    EXPECT_EQ(toHex(TypeParam::hash("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                                    "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu")),
              A::twoBlocks896);
    EXPECT_EQ(toHex(TypeParam::hash("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
              A::twoBlocks448);
  });
}

TYPED_TEST(Sha2Test, MillionLettersInUnevenPieces) {
  this->forEachImplementation([] {
    const std::string piece(997, 'a');
    TypeParam context;
    std::size_t left = 1000000;
    for (std::size_t step = 1; left > 0; step = step % piece.size() + 37) {
      const std::size_t take = std::min({left, step, piece.size()});
      context.update(std::string_view(piece).substr(0, take));
      left -= take;
    }
    EXPECT_EQ(toHex(context.finish()), Answers<TypeParam>::millionLetters);
  });
}

TYPED_TEST(Sha2Test, PaddingBoundaries) {
  this->forEachImplementation([] {
    for (const auto& [length, digest] : Answers<TypeParam>::padding) {
      EXPECT_EQ(toHex(TypeParam::hash(std::string(length, 'a'))), digest) << length;
    }
  });
}

TYPED_TEST(Sha2Test, EverySplitPointGivesTheOneShotDigest) {
  const std::string message = patternMessage(3 * TypeParam::blockLength + 17);
  TypeParam::selectImplementation(TypeParam::implementations().back());
  const typename TypeParam::Digest expected = TypeParam::hash(message);
  this->forEachImplementation([&] {
    ASSERT_EQ(TypeParam::hash(message), expected);
    for (std::size_t split = 0; split <= message.size(); ++split) {
      TypeParam context;
      context.update(std::string_view(message).substr(0, split));
      context.update(std::string_view());
      context.update(std::string_view(message).substr(split));
      ASSERT_EQ(context.finish(), expected) << split;
    }
    for (std::size_t first = 0; first <= message.size(); first += 13) {
      for (std::size_t second = first; second <= message.size(); second += 7) {
        TypeParam context;
        const std::string_view view(message);
        context.update(view.substr(0, first));
        context.update(view.substr(first, second - first));
        context.update(view.substr(second));
        ASSERT_EQ(context.finish(), expected) << first << ' ' << second;
      }
    }
  });
}

TYPED_TEST(Sha2Test, ByteByByteGivesTheOneShotDigest) {
  constexpr std::size_t block = TypeParam::blockLength;
  this->forEachImplementation([] {
    for (const std::size_t length : {std::size_t{0}, std::size_t{1}, block - 17, block - 16, block,
                                     block + 1, 2 * block - 1, 2 * block, std::size_t{1000}}) {
      const std::string message = patternMessage(length);
      TypeParam context;
      for (const char c : message) context.update(std::string_view(&c, 1));
      EXPECT_EQ(context.finish(), TypeParam::hash(message)) << length;
    }
  });
}

TYPED_TEST(Sha2Test, ImplementationsAgreeOnManyBlocks) {
  // Runs of blocks of every count up to 9, so that implementations working
  // on several blocks at a time meet their odd remainders.
  const std::string message = patternMessage(9 * TypeParam::blockLength + 5);
  for (std::size_t length = 0; length <= message.size(); length += TypeParam::blockLength / 2 + 3) {
    const std::string_view part = std::string_view(message).substr(0, length);
    TypeParam::selectImplementation(TypeParam::implementations().back());
    const typename TypeParam::Digest expected = TypeParam::hash(part);
    this->forEachImplementation([&] { ASSERT_EQ(TypeParam::hash(part), expected) << length; });
  }
}

TYPED_TEST(Sha2Test, UnalignedInputs) {
  this->forEachImplementation([] {
    const std::string message = patternMessage(700);
    const typename TypeParam::Digest expected = TypeParam::hash(message);
    std::vector<unsigned char> storage(message.size() + 16);
    for (std::size_t offset = 0; offset < 16; ++offset) {
      std::copy(message.begin(), message.end(),
                storage.begin() + static_cast<std::ptrdiff_t>(offset));
      const std::span<const unsigned char> shifted(storage.data() + offset, message.size());
      EXPECT_EQ(TypeParam::hash(shifted), expected) << offset;
      TypeParam context;
      context.update(shifted.first(3));
      context.update(shifted.subspan(3));
      EXPECT_EQ(context.finish(), expected) << offset;
    }
  });
}

TYPED_TEST(Sha2Test, InitStartsAFreshMessage) {
  TypeParam context;
  context.update("some earlier message that is left unfinished");
  context.init();
  context.update("abc");
  EXPECT_EQ(context.finish(), TypeParam::hash("abc"));
  context.init();
  EXPECT_EQ(context.finish(), TypeParam::hash(""));
}

TYPED_TEST(Sha2Test, CompressMatchesThePaddedMessage) {
  using Word = typename TypeParam::Word;
  this->forEachImplementation([] {
    // "abc" laid out by hand: 0x80, zeros, bit length 24 in the last byte.
    std::array<unsigned char, TypeParam::blockLength> block{};
    block[0] = 'a';
    block[1] = 'b';
    block[2] = 'c';
    block[3] = 0x80;
    block[TypeParam::blockLength - 1] = 24;
    typename TypeParam::State state = TypeParam::initialState;
    TypeParam::compress(state, block.data(), 1);
    const typename TypeParam::Digest expected = TypeParam::hash("abc");
    for (std::size_t i = 0; i < state.size(); ++i) {
      Word word = 0;
      for (std::size_t j = 0; j < sizeof(Word); ++j) {
        word = static_cast<Word>((word << 8) | expected[sizeof(Word) * i + j]);
      }
      EXPECT_EQ(state[i], word) << i;
    }
  });
}

TYPED_TEST(Sha2Test, PadLaysOutTheStandardPadding) {
  // The padding of "abc" in one block; of a message whose last 120 bytes
  // (SHA-256: 56) leave no room for the length field, in two.
  using Count = typename TypeParam::ByteCount;
  constexpr std::size_t block = TypeParam::blockLength;
  std::array<unsigned char, 2 * block> area{};
  area.fill(0xEE);
  std::copy_n("abc", 3, area.begin());
  Count count = {0, 0};
  TypeParam::addToCount(count, 3);
  ASSERT_EQ(TypeParam::pad(area.data(), 3, count), 1U);
  typename TypeParam::State state = TypeParam::initialState;
  TypeParam::compress(state, area.data(), 1);
  typename TypeParam::Digest digest;
  TypeParam::storeDigest(state, digest);
  EXPECT_EQ(digest, TypeParam::hash("abc"));

  const std::string message = patternMessage(block + block - 8);
  area.fill(0xEE);
  std::copy(message.begin() + block, message.end(), area.begin());
  count = {0, 0};
  TypeParam::addToCount(count, message.size());
  ASSERT_EQ(TypeParam::pad(area.data(), block - 8, count), 2U);
  state = TypeParam::initialState;
  TypeParam::compress(state, reinterpret_cast<const unsigned char*>(message.data()), 1);
  TypeParam::compress(state, area.data(), 2);
  TypeParam::storeDigest(state, digest);
  EXPECT_EQ(digest, TypeParam::hash(message));
}

TYPED_TEST(Sha2Test, ByteCountCarriesIntoTheHighWord) {
  using Word = typename TypeParam::Word;
  typename TypeParam::ByteCount count = {static_cast<Word>(~Word{0} - 1), 5};
  TypeParam::addToCount(count, 3);
  EXPECT_EQ(count[0], Word{1});
  EXPECT_EQ(count[1], Word{6});
}

TYPED_TEST(Sha2Test, WipeClearsTheContext) {
  TypeParam context;
  context.update("secret bytes that stay buffered");
  context.wipe();
  const auto* bytes = reinterpret_cast<const unsigned char*>(&context);
  for (std::size_t i = 0; i < sizeof context; ++i) ASSERT_EQ(bytes[i], 0) << i;
}

TEST(Sha2Test, ProcessorsWithShaInstructionsUseThem) {
  // Where the processor has them, the SHA instructions come first.
  const auto implementations = Sha256::implementations();
  EXPECT_GE(implementations.size(), 1U);
#if (defined(__GNUC__) || defined(__clang__)) && defined(__x86_64__)
  // CPUID leaf 7, sub-leaf 0: EBX bit 29 is SHA.
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & (1U << 29)) != 0) {
    EXPECT_EQ(std::string_view(implementations.front().name), "sha-ni");
  }
#endif
}

TEST(Sha2Test, Sha512OffersEveryVariantThisProcessorCanRun) {
  // The variants in name only, best first: a variant dropped from the list
  // would pass every comparison above and only run slower.
  std::vector<std::string_view> expected;
#if (defined(__GNUC__) || defined(__clang__)) && defined(__x86_64__)
  const utils::core::ProcessorFeatures& processor = utils::core::processorFeatures();
  if (processor.avx512f && processor.avx512vl && processor.avx512bw && processor.bmi1 &&
      processor.bmi2) {
    expected.push_back("avx512");
  }
  if (processor.avx2 && processor.bmi2) expected.push_back("avx2");
  if (processor.bmi2) expected.push_back("bmi2");
#endif
  expected.push_back("portable");
  std::vector<std::string_view> names;
  for (const auto& implementation : Sha512::implementations()) names.push_back(implementation.name);
  EXPECT_EQ(names, expected);
}

}  // namespace
}  // namespace korvane::security
