// Cross-checks the SHA-crypt functions against the system's libcrypt.
#include <crypt.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>
#include <string>

#include "security/ShaCryptFunctions.h"

namespace korvane::security {
namespace {

constexpr std::string_view saltAlphabet =
    "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

std::string systemCrypt(int tag, const std::string& key, const std::string& salt,
                        std::size_t rounds, bool roundsField) {
  // Built by appending: GCC 12 warns wrongly (-Wrestrict) about the
  // temporaries of a chain of "+" at -O3.
  std::string setting = "$";
  setting += std::to_string(tag);
  setting += '$';
  if (roundsField) {
    setting += "rounds=";
    setting += std::to_string(rounds);
    setting += '$';
  }
  setting += salt;
  setting += '$';
  auto data = std::make_unique<crypt_data>();
  const char* result = crypt_r(key.c_str(), setting.c_str(), data.get());
  return result == nullptr ? std::string("<null>") : std::string(result);
}

std::string ownCrypt(int tag, const std::string& key, const std::string& salt, std::size_t rounds,
                     bool roundsField) {
  std::array<char, 124> buffer;
  CryptFunction* crypt = tag == 5 ? sha256Crypt : sha512Crypt;
  const char* result = crypt(key.data(), key.size(), salt.data(), salt.size(), rounds, roundsField,
                             buffer.data(), buffer.size());
  return result == nullptr ? std::string("<null>") : std::string(result);
}

struct Case {
  std::string key;
  std::string salt;
};

Case randomCase(std::mt19937& engine, std::size_t longestKey) {
  Case c;
  c.key.resize(std::uniform_int_distribution<std::size_t>(0, longestKey)(engine));
  // Any byte but NUL, which the C interface cannot carry.
  std::uniform_int_distribution<int> byte(1, 255);
  for (char& ch : c.key) ch = static_cast<char>(byte(engine));
  c.salt.resize(std::uniform_int_distribution<std::size_t>(1, 16)(engine));
  std::uniform_int_distribution<std::size_t> pick(0, saltAlphabet.size() - 1);
  for (char& ch : c.salt) ch = saltAlphabet[pick(engine)];
  return c;
}

TEST(ShaCryptFunctionsPosixTest, AgreesWithLibcryptOnRandomInputs) {
  std::mt19937 engine(20240611);
  for (int i = 0; i < 3000; ++i) {
    const int tag = i % 2 == 0 ? 6 : 5;
    // Mostly keys up to 64 bytes; every tenth up to 300 bytes.
    const Case c = randomCase(engine, i % 10 == 0 ? 300 : 64);
    ASSERT_EQ(ownCrypt(tag, c.key, c.salt, 1000, true), systemCrypt(tag, c.key, c.salt, 1000, true))
        << "tag " << tag << " key length " << c.key.size() << " salt " << c.salt;
  }
}

TEST(ShaCryptFunctionsPosixTest, AgreesWithLibcryptAtDefaultAndOddRounds) {
  std::mt19937 engine(77);
  std::uniform_int_distribution<std::size_t> roundsPick(1000, 3000);
  for (int i = 0; i < 40; ++i) {
    const int tag = i % 2 == 0 ? 6 : 5;
    const Case c = randomCase(engine, 100);
    ASSERT_EQ(ownCrypt(tag, c.key, c.salt, 5000, false),
              systemCrypt(tag, c.key, c.salt, 5000, false))
        << c.key.size();
    const std::size_t rounds = roundsPick(engine);
    ASSERT_EQ(ownCrypt(tag, c.key, c.salt, rounds, true),
              systemCrypt(tag, c.key, c.salt, rounds, true))
        << rounds;
  }
}

TEST(ShaCryptFunctionsPosixTest, AgreesWithLibcryptAroundTheDigestLength) {
  for (const int tag : {5, 6}) {
    const std::size_t l = tag == 5 ? 32 : 64;
    for (const std::size_t length : {std::size_t{0}, l - 1, l, l + 1, 2 * l, std::size_t{100}}) {
      const std::string key(length, 'k');
      EXPECT_EQ(ownCrypt(tag, key, "0123456789abcdef", 1000, true),
                systemCrypt(tag, key, "0123456789abcdef", 1000, true))
          << tag << ' ' << length;
    }
  }
}

}  // namespace
}  // namespace korvane::security
