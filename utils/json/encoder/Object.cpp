#include "utils/json/encoder/Object.h"

#include <cstddef>
#include <stdexcept>
#include <string_view>

#include "utils/core/Format.h"
#include "utils/core/SecureZero.h"
#include "utils/json/ScanKernels.h"
#include "utils/json/encoder/Document.h"

namespace korvane::utils::json::encoder {

using namespace std::string_view_literals;

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

// Hands `text` to `write(const char*, std::size_t)` escaped: runs of plain
// bytes as they are, each other byte as its escape.
template <typename Write>
void writeEscaped(std::string_view text, Write&& write) {
  static constexpr char hex[] = "0123456789abcdef";
  const char* p = text.data();
  const char* const end = p + text.size();
  for (;;) {
    const std::size_t plain = plainLength(p, end);
    if (plain != 0) write(p, plain);
    p += plain;
    if (p == end) return;
    const auto c = static_cast<unsigned char>(*p++);
    const char* named = nullptr;
    switch (c) {
      case '"':
        named = "\\\"";
        break;
      case '\\':
        named = "\\\\";
        break;
      case '\b':
        named = "\\b";
        break;
      case '\f':
        named = "\\f";
        break;
      case '\n':
        named = "\\n";
        break;
      case '\r':
        named = "\\r";
        break;
      case '\t':
        named = "\\t";
        break;
      default:
        break;
    }
    if (named != nullptr) {
      write(named, 2);
    } else {
      const char escape[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
      write(escape, sizeof escape);
    }
  }
}

// Appends `text` in double quotes, escaped.
template <typename String>
void appendQuoted(String& out, std::string_view text) {
  out += '"';
  writeEscaped(text, [&out](const char* bytes, std::size_t count) { out.append(bytes, count); });
  out += '"';
}

}  // namespace

Object::Object(Document& document) noexcept : document_(&document) { document.open_ = this; }

Object::~Object() {
  close();
  core::secureZero(scratch_.data(), scratch_.capacity());
}

void Object::requireOpen(const char* operation, bool inMember) const {
  if (document_ == nullptr) {
    throw std::logic_error(core::format(
        "korvane::utils::json::encoder::Object::{}(): the document is finished", operation));
  }
  if (inMember_ != inMember) {
    throw std::logic_error(core::format("korvane::utils::json::encoder::Object::{}(): {}",
                                        operation,
                                        inMember ? "no member is begun" : "a member is begun"));
  }
}

void Object::composeStart(std::string_view name, Escape escape) {
  const bool indented = document_->format_ == Format::indented;
  scratch_.clear();
  if (indented) {
    scratch_ += empty_ ? "\n  " : ",\n  ";
  } else if (!empty_) {
    scratch_ += ',';
  }
  if (escape == Escape::none) {
    scratch_ += '"';
    scratch_ += name;
    scratch_ += '"';
  } else {
    appendQuoted(scratch_, name);
  }
  scratch_ += indented ? ": " : ":";
}

void Object::addStringView(std::string_view name, std::string_view value) {
  requireOpen("add", false);
  // The member is composed first and written with one call.
  composeStart(name, Escape::needed);
  appendQuoted(scratch_, value);
  document_->stream_.write(scratch_);
  empty_ = false;
}

void Object::add(std::string_view name, std::string_view value, Escape escape) {
  if (escape == Escape::needed) {
    addStringView(name, value);
    return;
  }
  requireOpen("add", false);
  writePlainStart(name);
  io::OutputStream<char>& stream = document_->stream_;
  stream.write(value);
  stream.put('"');
  empty_ = false;
}

void Object::writePlainStart(std::string_view name) {
  io::OutputStream<char>& stream = document_->stream_;
  const bool indented = document_->format_ == Format::indented;
  // Literals as string views: their lengths are known without strlen.
  stream.write(indented ? (empty_ ? "\n  \""sv : ",\n  \""sv) : (empty_ ? "\""sv : ",\""sv));
  stream.write(name);
  stream.write(indented ? "\": \""sv : "\":\""sv);
}

void Object::beginMember(std::string_view name, Escape escape) {
  requireOpen("beginMember", false);
  if (escape == Escape::none) {
    // Straight into the stream: the common case of a long file's members.
    writePlainStart(name);
  } else {
    composeStart(name, escape);
    scratch_ += '"';
    document_->stream_.write(scratch_);
  }
  empty_ = false;
  inMember_ = true;
}

void Object::appendToValue(std::string_view piece, Escape escape) {
  requireOpen("appendToValue", true);
  io::OutputStream<char>& stream = document_->stream_;
  if (escape == Escape::none) {
    stream.write(piece);
    return;
  }
  writeEscaped(piece, [&stream](const char* bytes, std::size_t count) {
    stream.write(std::string_view(bytes, count));
  });
}

void Object::endMember() {
  requireOpen("endMember", true);
  document_->stream_.put('"');
  inMember_ = false;
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
