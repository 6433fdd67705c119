#include "security/ShaCrypt.h"

#include <cstring>
#include <random>
#include <stdexcept>

#include "security/SeededDraw.h"
#include "utils/core/Format.h"
#include "utils/core/SystemRandom.h"
#include "utils/string/PrintableText.h"

namespace korvane::security {

ShaCrypt::ShaCrypt(int algorithmTag, std::size_t rounds, std::string_view salt) : salt_(salt) {
  if (rounds < leastRounds || rounds > mostRounds) {
    throw std::out_of_range(utils::core::format(
        "korvane::security::ShaCrypt::ShaCrypt(): the \"rounds\" parameter is out of range, "
        "rounds={}",
        rounds));
  }
  rounds_ = static_cast<std::uint32_t>(rounds);
  // Only the field separator is refused; any other byte may stand in a salt.
  if (salt.empty() || salt.size() > longestSalt || salt.find('$') != std::string_view::npos) {
    throw std::invalid_argument(utils::core::format(
        "korvane::security::ShaCrypt::ShaCrypt(): the \"salt\" parameter is invalid, "
        "salt=\"{}\"",
        utils::string::toPrintableText(salt)));
  }
  switch (algorithmTag) {
    case 5:
      cryptFunction_ = sha256Crypt;
      break;
    case 6:
      cryptFunction_ = sha512Crypt;
      break;
    default:
      throw std::invalid_argument(utils::core::format(
          "korvane::security::ShaCrypt::ShaCrypt(): the \"algorithmTag\" parameter is invalid, "
          "algorithmTag=\"{}\"",
          algorithmTag));
  }
}

ShaCrypt::ShaCrypt(int algorithmTag, std::size_t rounds)
    : ShaCrypt(algorithmTag, rounds, randomSalt()) {}

ShaCrypt::HashString ShaCrypt::hash(std::string_view password) const {
  HashString result;
  const char* const written =
      cryptFunction_(password.data(), password.size(), salt_.data(), salt_.size(), rounds_,
                     rounds_ != defaultRounds, result.data(), hashCapacity);
  if (written == nullptr) return result;
  result.setLength(std::strlen(written));
  return result;
}

char ShaCrypt::randomSaltCharacter() {
  // A fresh engine per character: every character rests on its own value
  // from the operating system's source, none on a shared engine's state.
  std::random_device device(utils::core::randomDeviceToken());
  const int index = seededDraw(device(), static_cast<int>(saltAlphabet.size()) - 1);
  return saltAlphabet[static_cast<std::size_t>(index)];
}

std::string ShaCrypt::randomSalt() {
  std::string salt(generatedSaltLength, '\0');
  for (char& character : salt) character = randomSaltCharacter();
  return salt;
}

}  // namespace korvane::security
