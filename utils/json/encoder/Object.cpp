#include "utils/json/encoder/Object.h"

#include <array>
#include <cstddef>
#include <stdexcept>

#include "utils/core/SecureZero.h"
#include "utils/json/encoder/Document.h"

namespace korvane::utils::json::encoder {

namespace {

// Bytes written as they are: everything but '"', '\\' and control characters.
constexpr std::array<bool, 256> plainByte = [] {
  std::array<bool, 256> table{};
  for (std::size_t c = 0x20; c < 256; ++c) table[c] = c != '"' && c != '\\';
  return table;
}();

// Appends `text` in double quotes, escaped.
void appendQuoted(std::string& out, std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  out += '"';
  std::size_t runStart = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (plainByte[c]) continue;
    out.append(text.data() + runStart, i - runStart);
    runStart = i + 1;
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default: {
        const char escape[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
        out.append(escape, sizeof escape);
        break;
      }
    }
  }
  out.append(text.data() + runStart, text.size() - runStart);
  out += '"';
}

}  // namespace

Object::Object(Document& document) noexcept : document_(&document) { document.open_ = this; }

Object::~Object() {
  close();
  core::secureZero(scratch_.data(), scratch_.capacity());
}

void Object::addStringView(std::string_view name, std::string_view value) {
  if (document_ == nullptr) {
    throw std::logic_error("korvane::utils::json::encoder::Object::addStringView(): the document is finished");
  }
  // The member is composed first and written with one call.
  const bool indented = document_->format_ == Format::indented;
  scratch_.clear();
  if (indented) {
    scratch_ += empty_ ? "\n  " : ",\n  ";
  } else if (!empty_) {
    scratch_ += ',';
  }
  appendQuoted(scratch_, name);
  scratch_ += indented ? ": " : ":";
  appendQuoted(scratch_, value);
  document_->stream_.write(scratch_);
  empty_ = false;
}

void Object::close() noexcept {
  if (document_ == nullptr) return;
  const bool indented = document_->format_ == Format::indented;
  document_->stream_.writeNoThrow(indented && !empty_ ? "\n}" : "}");
  document_->open_ = nullptr;
  document_->complete_ = true;
  document_ = nullptr;
}

}  // namespace korvane::utils::json::encoder
