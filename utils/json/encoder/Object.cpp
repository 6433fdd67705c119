#include "utils/json/encoder/Object.h"

#include <cstddef>
#include <stdexcept>

#include "utils/core/SecureZero.h"
#include "utils/json/ScanKernels.h"
#include "utils/json/encoder/Document.h"

namespace korvane::utils::json::encoder {

namespace {

// The bytes at the start of [begin, end) that are written as they are.
// The scan kernel measures the printable ASCII runs many bytes at a time;
// the bytes from 0x80 on, which it stops at, are plain here too.
std::size_t plainLength(const char* begin, const char* end) noexcept {
  const auto& kernels = json::detail::scanKernels();
  const char* p = begin;
  for (;;) {
    p += kernels.plainStringLength(p, end);
    if (p == end || static_cast<unsigned char>(*p) < 0x80)
      return static_cast<std::size_t>(p - begin);
    while (p != end && static_cast<unsigned char>(*p) >= 0x80) ++p;
  }
}

// Appends `text` in double quotes, escaped.
void appendQuoted(std::string& out, std::string_view text) {
  static constexpr char hex[] = "0123456789abcdef";
  out += '"';
  const char* p = text.data();
  const char* const end = p + text.size();
  for (;;) {
    const std::size_t plain = plainLength(p, end);
    out.append(p, plain);
    p += plain;
    if (p == end) break;
    const auto c = static_cast<unsigned char>(*p++);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default: {
        const char escape[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
        out.append(escape, sizeof escape);
        break;
      }
    }
  }
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
    throw std::logic_error(
        "korvane::utils::json::encoder::Object::addStringView(): the document is finished");
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
