// ShaCrypt: the parameters of one SHA-crypt hash (algorithm, salt, rounds),
// checked once at construction, and hashing of passwords with them into
// hash strings such as "$6$<salt>$<86 digest characters>".
//
// Thread safety: immutable after construction; hash() may be called from
// several threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "security/ShaCryptFunctions.h"
#include "utils/string/BasicStaticString.h"

namespace korvane::security {

class ShaCrypt {
 public:
  // The algorithm tags of the hash string's "$<tag>$" prefix.
  static constexpr int sha256Tag = 5;
  static constexpr int sha512Tag = 6;
  // Rounds count that the hash string leaves implicit (no "rounds=" field).
  static constexpr std::size_t defaultRounds = 5000;
  static constexpr std::size_t leastRounds = shaCryptLeastRounds;
  static constexpr std::size_t mostRounds = shaCryptMostRounds;
  static constexpr std::size_t longestSalt = 16;
  static constexpr std::size_t generatedSaltLength = 16;
  static constexpr std::string_view saltAlphabet =
      "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  // Capacity of a hash string; also the buffer length handed to the crypt
  // function. The longest string (tag 6, 999999999 rounds, 16-character
  // salt) is 123 characters.
  static constexpr std::size_t hashCapacity = 124;

  using HashString = utils::string::BasicStaticString<char, hashCapacity>;

  // algorithmTag 5 selects SHA-256, 6 selects SHA-512.
  // REQUIRES: 1000 <= rounds <= 999999999, else std::out_of_range;
  // salt of 1 to 16 characters without "$", else std::invalid_argument;
  // algorithmTag 5 or 6, else std::invalid_argument. Checked in this order.
  ShaCrypt(int algorithmTag, std::size_t rounds, std::string_view salt);

  // As above with a random salt of 16 characters from saltAlphabet.
  ShaCrypt(int algorithmTag, std::size_t rounds);

  // The hash string of the password (any bytes), or an empty string when
  // the crypt function fails. Allocates nothing.
  HashString hash(std::string_view password) const;

  // One character of saltAlphabet, drawn through a Mersenne Twister that
  // is freshly seeded from the operating system's random source.
  static char randomSaltCharacter();

 private:
  static std::string randomSalt();

  std::function<CryptFunction> cryptFunction_;
  std::uint32_t rounds_ = 0;
  std::string salt_;
};

}  // namespace korvane::security
