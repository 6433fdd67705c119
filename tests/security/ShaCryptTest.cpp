#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "security/ShaCrypt.h"
#include "security/ShaCryptFunctions.h"

namespace korvane::security {
namespace {

using namespace std::string_view_literals;

template <typename Exception, typename Call>
std::string messageOf(Call&& call) {
  try {
    call();
  } catch (const Exception& error) {
    return error.what();
  } catch (...) {
    return "<other exception>";
  }
  return "<no exception>";
}

std::string directCrypt(CryptFunction* crypt, std::string_view key, std::string_view salt,
                        std::size_t rounds, bool roundsCustom) {
  std::array<char, 124> buffer{};
  const char* result = crypt(key.data(), key.size(), salt.data(), salt.size(), rounds, roundsCustom,
                             buffer.data(), buffer.size());
  return result == nullptr ? "<null>" : result;
}

bool inSaltAlphabet(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

TEST(ShaCryptTest, PublishedVectors) {
  EXPECT_EQ(ShaCrypt(6, 5000, "saltstring").hash("Hello world!"),
            "$6$saltstring$svn8UoSVapNtMuq1ukKS4tPQd8iKwSMHWjl/O817G3uBnIFNjnQJuesI68u4OTLiBFdc"
            "bYEdFCoEOfaS35inz1"sv);
  EXPECT_EQ(ShaCrypt(6, 10000, "saltstringsaltst").hash("Hello world!"),
            "$6$rounds=10000$saltstringsaltst$OW1/O6BYHV6BcXZu8QVeXbDWra3Oeqh0sbHbbMCVNSnCM/UrjmM0"
            "Dp8vOuZeHBy/YTBmSK6H9qs/y3RnOaw5v."sv);
  EXPECT_EQ(ShaCrypt(5, 5000, "saltstring").hash("Hello world!"),
            "$5$saltstring$5B8vYYiY.CVt1RlTTf8KbXBH3hsxY/GNooZaBBGWEc5"sv);
  EXPECT_EQ(ShaCrypt(5, 1400, "anotherlongsalts")
                .hash("a very much longer text to encrypt.  This one even stretches over morethan "
                      "one line."),
            "$5$rounds=1400$anotherlongsalts$Rx.j8H.h8HjEDGomFU8bDkXm3XIUnzyxf12oP84Bnq1"sv);
}

TEST(ShaCryptTest, RoundsLimits) {
  EXPECT_EQ(messageOf<std::out_of_range>([] { ShaCrypt(6, 999, "salt"); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"rounds\" parameter is out of range, "
            "rounds=999");
  EXPECT_EQ(messageOf<std::out_of_range>([] { ShaCrypt(6, 1000000000, "salt"); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"rounds\" parameter is out of range, "
            "rounds=1000000000");
  EXPECT_NO_THROW(ShaCrypt(6, 1000, "salt"));
  EXPECT_NO_THROW(ShaCrypt(6, 999999999, "salt"));
  // Checked on the full width, before narrowing to 32 bits.
  const std::size_t wraps = (std::size_t{1} << 32) + 5000;
  EXPECT_EQ(messageOf<std::out_of_range>([&] { ShaCrypt(6, wraps, "salt"); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"rounds\" parameter is out of range, "
            "rounds=4294972296");
}

TEST(ShaCryptTest, SaltChecks) {
  EXPECT_NO_THROW(ShaCrypt(6, 5000, "0123456789abcdef"));
  EXPECT_EQ(messageOf<std::invalid_argument>([] { ShaCrypt(6, 5000, "0123456789abcdefg"); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"salt\" parameter is invalid, "
            "salt=\"0123456789abcdefg\"");
  EXPECT_EQ(
      messageOf<std::invalid_argument>([] { ShaCrypt(6, 5000, ""); }),
      "korvane::security::ShaCrypt::ShaCrypt(): the \"salt\" parameter is invalid, salt=\"\"");
  for (const std::string_view salt : {"$"sv, "$abc"sv, "ab$c"sv, "abc$"sv}) {
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { ShaCrypt(6, 5000, salt); }),
              "korvane::security::ShaCrypt::ShaCrypt(): the \"salt\" parameter is invalid, "
              "salt=\"" +
                  std::string(salt) + "\"");
  }
  EXPECT_NO_THROW(ShaCrypt(6, 5000, "\x01\xff\0x"sv));
  // A refused salt shows its control characters and stray bytes as hex.
  EXPECT_EQ(messageOf<std::invalid_argument>([] { ShaCrypt(6, 5000, "\x1b]0;t\x07$\xff"sv); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"salt\" parameter is invalid, "
            "salt=\"\\x1b]0;t\\x07$\\xff\"");
}

TEST(ShaCryptTest, ColonAndSpaceStandUnchanged) {
  const auto hash = ShaCrypt(6, 5000, "a:b c").hash("password");
  EXPECT_EQ(hash.view().substr(0, 9), "$6$a:b c$");
  EXPECT_EQ(hash.size(), 9U + 86U);
}

TEST(ShaCryptTest, AlgorithmTagChecks) {
  EXPECT_EQ(messageOf<std::invalid_argument>([] { ShaCrypt(1, 5000, "salt"); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"algorithmTag\" parameter is invalid, "
            "algorithmTag=\"1\"");
  EXPECT_EQ(messageOf<std::invalid_argument>([] { ShaCrypt(7, 5000, "salt"); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"algorithmTag\" parameter is invalid, "
            "algorithmTag=\"7\"");
  EXPECT_EQ(messageOf<std::invalid_argument>([] { ShaCrypt(-1, 5000); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"algorithmTag\" parameter is invalid, "
            "algorithmTag=\"-1\"");
}

TEST(ShaCryptTest, ChecksRunInOrderRoundsSaltTag) {
  EXPECT_EQ(messageOf<std::out_of_range>([] { ShaCrypt(1, 10, "salt"); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"rounds\" parameter is out of range, "
            "rounds=10");
  EXPECT_EQ(messageOf<std::out_of_range>([] { ShaCrypt(1, 10, "bad$salt"); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"rounds\" parameter is out of range, "
            "rounds=10");
  EXPECT_EQ(messageOf<std::invalid_argument>([] { ShaCrypt(1, 5000, "bad$salt"); }),
            "korvane::security::ShaCrypt::ShaCrypt(): the \"salt\" parameter is invalid, "
            "salt=\"bad$salt\"");
}

TEST(ShaCryptTest, LengthsOfTheHashStrings) {
  const auto sha256 = ShaCrypt(5, 5000, "tenletters").hash("password");
  EXPECT_EQ(sha256.size(), 57U);
  EXPECT_EQ(sha256.view().substr(0, 14), "$5$tenletters$");
  const auto sha512 = ShaCrypt(6, 5000, "tenletters").hash("password");
  EXPECT_EQ(sha512.size(), 100U);
  EXPECT_EQ(sha512.view().substr(0, 14), "$6$tenletters$");
  EXPECT_EQ(sha512.view(), directCrypt(sha512Crypt, "password", "tenletters", 5000, false));
  EXPECT_EQ(sha256.view(), directCrypt(sha256Crypt, "password", "tenletters", 5000, false));
}

TEST(ShaCryptTest, RoundsFieldOnlyWhenNotTheDefault) {
  const auto custom = ShaCrypt(6, 5001, "salt").hash("password");
  EXPECT_EQ(custom.view().substr(0, 20), "$6$rounds=5001$salt$");
  EXPECT_EQ(custom.view(), directCrypt(sha512Crypt, "password", "salt", 5001, true));
  const auto least = ShaCrypt(6, 1000, "salt").hash("password");
  EXPECT_EQ(least.view().substr(0, 20), "$6$rounds=1000$salt$");
  EXPECT_EQ(ShaCrypt(6, 5000, "salt").hash("password").view().substr(0, 8), "$6$salt$");
}

TEST(ShaCryptTest, PasswordsAreBytesWithALength) {
  const ShaCrypt crypt(6, 1000, "salt");
  const auto empty = crypt.hash("");
  EXPECT_EQ(empty.size(), 3U + 12U + 5U + 86U);
  EXPECT_EQ(empty.view(), directCrypt(sha512Crypt, "", "salt", 1000, true));
  const std::string_view withNul = "pass\0word"sv;
  EXPECT_EQ(crypt.hash(withNul).view(), directCrypt(sha512Crypt, withNul, "salt", 1000, true));
  EXPECT_NE(crypt.hash(withNul), crypt.hash("pass"));
  // Only the given length counts, not what follows it in memory.
  const std::string longer = "password-and-more";
  EXPECT_EQ(crypt.hash(std::string_view(longer).substr(0, 8)), crypt.hash("password"));
  // Repeated hashing gives the same string.
  EXPECT_EQ(crypt.hash("password"), crypt.hash("password"));
}

TEST(ShaCryptTest, SaltWithNulByte) {
  const auto hash = ShaCrypt(6, 5000, "ab\0cd"sv).hash("password");
  EXPECT_EQ(hash.view().substr(0, 6), "$6$ab$");
  EXPECT_EQ(hash.size(), 6U + 86U);
  EXPECT_NE(hash, ShaCrypt(6, 5000, "ab").hash("password"));
}

TEST(ShaCryptTest, GeneratedSalt) {
  const auto first = ShaCrypt(6, 5000).hash("password");
  const auto second = ShaCrypt(6, 5000).hash("password");
  ASSERT_EQ(first.size(), 106U);
  ASSERT_EQ(second.size(), 106U);
  EXPECT_EQ(first.view().substr(0, 3), "$6$");
  EXPECT_EQ(first[19], '$');
  for (std::size_t i = 3; i < 19; ++i) EXPECT_TRUE(inSaltAlphabet(first[i])) << first.view();
  EXPECT_NE(first.view().substr(3, 16), second.view().substr(3, 16));
  EXPECT_NE(first, second);
  // The generated salt hashes like the same salt given explicitly.
  const std::string salt(first.view().substr(3, 16));
  EXPECT_EQ(ShaCrypt(6, 5000, salt).hash("password"), first);
}

TEST(ShaCryptTest, RandomSaltCharactersCoverTheAlphabet) {
  std::string seen;
  for (int i = 0; i < 4000 && seen.size() < ShaCrypt::saltAlphabet.size(); ++i) {
    const char c = ShaCrypt::randomSaltCharacter();
    ASSERT_TRUE(inSaltAlphabet(c)) << static_cast<int>(c);
    if (seen.find(c) == std::string::npos) seen += c;
  }
  // 62 values in 4000 draws: missing one by chance is below 1e-25.
  EXPECT_EQ(seen.size(), ShaCrypt::saltAlphabet.size());
}

TEST(ShaCryptTest, Constants) {
  EXPECT_EQ(ShaCrypt::defaultRounds, 5000U);
  EXPECT_EQ(ShaCrypt::leastRounds, 1000U);
  EXPECT_EQ(ShaCrypt::mostRounds, 999999999U);
  EXPECT_EQ(ShaCrypt::longestSalt, 16U);
  EXPECT_EQ(ShaCrypt::generatedSaltLength, 16U);
  EXPECT_EQ(ShaCrypt::saltAlphabet,
            "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");
  EXPECT_EQ(ShaCrypt::hashCapacity, 124U);
  EXPECT_EQ(ShaCrypt::HashString::capacity(), 124U);
}

TEST(ShaCryptTest, MovedFromObjectHasNoCryptFunction) {
  ShaCrypt crypt(6, 1000, "salt");
  const ShaCrypt moved(std::move(crypt));
  EXPECT_EQ(moved.hash("pw").size(), 3U + 12U + 5U + 86U);
  // NOLINTNEXTLINE(bugprone-use-after-move): the moved-from state is the point.
  EXPECT_THROW((void)crypt.hash("pw"), std::bad_function_call);
}

}  // namespace
}  // namespace korvane::security
