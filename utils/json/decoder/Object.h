// Object: a JSON object being read, walked once, forwards:
//     for (Member& member : value.asObject()) ...
// Each member's value must be read (or is skipped) before the next member.
// An Object must be destroyed, or walked to its end, before the enclosing
// walk continues; when the enclosing walk continues anyway, the rest of the
// object is skipped and this Object can no longer be used.
//
// Misuse (a second begin(), a stale iterator copy, incrementing past the
// end, use after the enclosing walk moved on) throws std::logic_error.
//
// Thread safety: as the Document it belongs to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "utils/json/decoder/Member.h"
#include "utils/json/decoder/Parser.h"

namespace korvane::utils::json::decoder {

class Object {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using difference_type = std::ptrdiff_t;
    using value_type = Member;

    Iterator() = default;

    Member& operator*() const;
    Member* operator->() const { return &**this; }
    Iterator& operator++();
    void operator++(int) { ++*this; }

    friend bool operator==(const Iterator& it, std::default_sentinel_t) noexcept {
      return it.atEnd();
    }

   private:
    bool atEnd() const noexcept { return object_ == nullptr || object_->done_; }
    friend class Object;
    explicit Iterator(Object* object) noexcept : object_(object), step_(object->steps_) {}

    Object* object_ = nullptr;
    std::uint64_t step_ = 0;
  };

  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  ~Object();

  // REQUIRES: called once.
  Iterator begin();
  std::default_sentinel_t end() const noexcept { return {}; }

 private:
  friend class Value;
  friend class Iterator;

  Object(detail::Parser& parser, std::uint64_t frameId) noexcept : parser_(&parser), frameId_(frameId) {}

  // Moves to the next member; false once the closing '}' has been read.
  bool step();
  void checkCurrent(std::uint64_t step) const;

  detail::Parser* parser_;
  std::uint64_t frameId_;
  std::uint64_t steps_ = 0;
  bool begun_ = false;
  bool done_ = false;
  Member member_;
};

}  // namespace korvane::utils::json::decoder
