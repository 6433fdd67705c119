// Array: a JSON array being read, walked once, forwards:
//     for (Value& element : value.asArray()) ...
// The same rules as for Object apply (see Object.h).
//
// Thread safety: as the Document it belongs to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "utils/json/decoder/Parser.h"
#include "utils/json/decoder/Value.h"

namespace korvane::utils::json::decoder {

class Array {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using difference_type = std::ptrdiff_t;
    using value_type = Value;

    Iterator() = default;

    Value& operator*() const;
    Value* operator->() const { return &**this; }
    Iterator& operator++();
    void operator++(int) { ++*this; }

    friend bool operator==(const Iterator& it, std::default_sentinel_t) noexcept {
      return it.atEnd();
    }

   private:
    bool atEnd() const noexcept { return array_ == nullptr || array_->done_; }
    friend class Array;
    explicit Iterator(Array* array) noexcept : array_(array), step_(array->steps_) {}

    Array* array_ = nullptr;
    std::uint64_t step_ = 0;
  };

  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  ~Array();

  // REQUIRES: called once.
  Iterator begin();
  std::default_sentinel_t end() const noexcept { return {}; }

 private:
  friend class Value;
  friend class Iterator;

  Array(detail::Parser& parser, std::uint64_t frameId) noexcept : parser_(&parser), frameId_(frameId) {}

  // Moves to the next element; false once the closing ']' has been read.
  bool step();
  void checkCurrent(std::uint64_t step) const;

  detail::Parser* parser_;
  std::uint64_t frameId_;
  std::uint64_t steps_ = 0;
  bool begun_ = false;
  bool done_ = false;
  Value current_;
};

}  // namespace korvane::utils::json::decoder
