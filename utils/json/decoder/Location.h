// Location: a place in a JSON input: the source name (a file path as
// printed in messages), the 1-based line, the 1-based column counted in
// characters (UTF-8 code points, so "é" advances it by one) and the byte
// offset from the start of the input.
//
// A default-constructed Location is unknown: its boolean test is false.
//
// Thread safety: a value type; copies share the immutable source name.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace korvane::utils::json::decoder {

class Location {
 public:
  Location() noexcept = default;
  Location(std::shared_ptr<const std::string> source, std::uint64_t line, std::uint64_t column,
           std::uint64_t offset) noexcept
      : source_(std::move(source)), line_(line), column_(column), offset_(offset) {}

  explicit operator bool() const noexcept { return line_ != 0; }

  std::uint64_t line() const noexcept { return line_; }
  std::uint64_t column() const noexcept { return column_; }
  std::uint64_t offset() const noexcept { return offset_; }
  const std::string& source() const noexcept {
    static const std::string none;
    return source_ ? *source_ : none;
  }

  // "<source>", line <L>, column <C>   (the source in double quotes)
  std::string toString() const;

 private:
  std::shared_ptr<const std::string> source_;
  std::uint64_t line_ = 0;
  std::uint64_t column_ = 0;
  std::uint64_t offset_ = 0;
};

}  // namespace korvane::utils::json::decoder
