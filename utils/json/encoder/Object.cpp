#include "utils/json/encoder/Object.h"

#include <array>
#include <cstddef>
#include <stdexcept>

#include "utils/json/encoder/Document.h"

namespace korvane::utils::json::encoder {

namespace {

// Bytes written as they are: everything but '"', '\\' and control characters.
constexpr std::array<bool, 256> plainByte = [] {
  std::array<bool, 256> table{};
  for (std::size_t c = 0x20; c < 256; ++c) table[c] = c != '"' && c != '\\';
  return table;
}();

void writeQuoted(io::OutputStream<char>& stream, std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  stream.put('"');
  std::size_t runStart = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (plainByte[c]) continue;
    stream.write(text.substr(runStart, i - runStart));
    runStart = i + 1;
    switch (c) {
      case '"': stream.write("\\\""); break;
      case '\\': stream.write("\\\\"); break;
      case '\b': stream.write("\\b"); break;
      case '\f': stream.write("\\f"); break;
      case '\n': stream.write("\\n"); break;
      case '\r': stream.write("\\r"); break;
      case '\t': stream.write("\\t"); break;
      default: {
        const char escape[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
        stream.write(std::string_view(escape, sizeof escape));
        break;
      }
    }
  }
  stream.write(text.substr(runStart));
  stream.put('"');
}

}  // namespace

Object::Object(Document& document) noexcept : document_(&document) { document.open_ = this; }

Object::~Object() { close(); }

void Object::addStringView(std::string_view name, std::string_view value) {
  if (document_ == nullptr) {
    throw std::logic_error("korvane::utils::json::encoder::Object::addStringView(): the document is finished");
  }
  io::OutputStream<char>& stream = document_->stream_;
  const bool indented = document_->format_ == Format::indented;
  if (indented) {
    stream.write(empty_ ? "\n  " : ",\n  ");
  } else if (!empty_) {
    stream.put(',');
  }
  empty_ = false;
  writeQuoted(stream, name);
  stream.write(indented ? ": " : ":");
  writeQuoted(stream, value);
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
