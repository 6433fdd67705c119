#include "utils/string/PrintableText.h"

#include "utils/string/Utf8.h"

namespace korvane::utils::string {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";

bool isControl(char32_t codePoint) noexcept {
  return codePoint < 0x20 || (codePoint >= 0x7F && codePoint <= 0x9F);
}

void appendEscaped(std::string& out, std::string_view bytes) {
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += '\\';
    out += 'x';
    out += hexDigits[byte >> 4];
    out += hexDigits[byte & 0x0F];
  }
}

}  // namespace

std::string toPrintableText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    // A malformed sequence is escaped byte by byte from its first byte
    // only: the bytes after it may begin a well-formed character of their
    // own, which is then shown as it is.
    const Utf8Sequence sequence = decodeUtf8(text, Utf8Malformed::reject);
    const std::size_t length = sequence.wellFormed ? sequence.length : 1;
    const std::string_view bytes = text.substr(0, length);
    if (!sequence.wellFormed || isControl(sequence.codePoint)) {
      appendEscaped(out, bytes);
    } else {
      out += bytes;
    }
    text.remove_prefix(length);
  }
  return out;
}

}  // namespace korvane::utils::string
