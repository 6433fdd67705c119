#include "utils/json/decoder/Skimmer.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace korvane::utils::json::decoder {

Skimmer::Skimmer(Reader reader, std::size_t window)
    : Grammar<Skimmer>(json::detail::scanKernels()),
      reader_(std::move(reader)),
      wide_(kernels_.level != json::detail::ScanLevel::plain),
      window_(std::max<std::size_t>(window, 16)),
      buffer_(std::make_unique_for_overwrite<char[]>(window_ + padding)),
      p_(buffer_.get()),
      end_(p_),
      mark_(p_) {
  // Only the padding needs zeroes: reads fill the rest, so a small file
  // touches only the pages it fills.
  std::memset(buffer_.get(), 0, padding);
}

void Skimmer::giveUp() { throw GiveUp{}; }

// Keeps the string held (which starts before any later token) or else the
// current token, moved to the window's front, and reads behind it. False
// at the end of the input.
bool Skimmer::more() {
  if (ended_) return false;
  char* const begin = buffer_.get();
  const char* const keepFrom = held_ != nullptr ? held_ : mark_;
  const auto keep = static_cast<std::size_t>(end_ - keepFrom);
  if (keep == window_) giveUp();
  const std::ptrdiff_t shift = keepFrom - begin;
  if (shift != 0) {
    std::memmove(begin, keepFrom, keep);
    p_ -= shift;
    mark_ -= shift;
    if (held_ != nullptr) held_ = begin;
  }
  const std::size_t got = reader_(std::span<char>(begin + keep, window_ - keep));
  if (got > window_ - keep)
    throw std::logic_error("korvane::utils::json::decoder::Skimmer: the reader overran its span");
  char* const end = begin + keep + got;
  std::memset(end, 0, padding);
  end_ = end;
  ended_ = got == 0;
  return got != 0;
}

SkimmedString Skimmer::holdString() {
  hold();
  consume(1);
  const bool escaped = scanStringBody([](const char*, std::size_t) {});
  return {std::string_view(held_ + 1, static_cast<std::size_t>(p_ - held_) - 2), escaped};
}

void Skimmer::startDocument() {
  release();
  skipByteOrderMark();
  skipWhitespace();
}

void Skimmer::openObject() {
  release();
  skipWhitespace();
  if (peek() != '{') giveUp();
  consume(1);
}

void Skimmer::openArray() {
  release();
  skipWhitespace();
  if (peek() != '[') giveUp();
  consume(1);
}

bool Skimmer::nextMember(bool& started, SkimmedString& name) {
  release();
  if (!nextItem(started, '}')) return false;
  hold();
  const bool escaped = scanName([](const char*, std::size_t) {});
  const auto length = static_cast<std::size_t>(p_ - held_) - 2;
  // A refill for the whitespace and the ':' moves the name with it.
  expectColon();
  name = {std::string_view(held_ + 1, length), escaped};
  return true;
}

bool Skimmer::nextElement(bool& started) {
  release();
  return nextItem(started, ']');
}

SkimmedString Skimmer::readString() {
  release();
  skipWhitespace();
  if (peek() != '"') giveUp();
  return holdString();
}

void Skimmer::skipValue() {
  release();
  skipNested(0, 0, false, false);
}

void Skimmer::finish() {
  release();
  expectEndOfInput();
}

}  // namespace korvane::utils::json::decoder
