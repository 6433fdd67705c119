// Walk: what the views that are walked share (Object and Array over their
// items, String over its characters): the walk once, forwards, and the
// iterator over it. Each step makes
// the view's next item (a Member, a Value) current; an iterator remembers
// the step it was made at, so that a stale copy is refused.
//
//     class Array : public detail::Walk<Array, Value> { ... };
//
// `View` provides, for the walk: static constexpr `walkName` (its name in
// error texts), `bool step()` (moves to the next item; false once the
// closing character has been read) and `Item& current()`. Each step calls
// countStep() and, at the end, finishWalk().
//
// Misuse (a second begin(), a stale iterator copy, incrementing past the
// end, use after the enclosing walk moved on) throws std::logic_error.
//
// Thread safety: as the Document it belongs to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "utils/json/decoder/Parser.h"

namespace korvane::utils::json::decoder::detail {

// The logic errors of a misused walk; `view` names the view in the text.
[[noreturn]] void failStaleWalk(const char* view);
[[noreturn]] void failWalkedTwice(const char* view);

template <typename View, typename Item>
class Walk {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using difference_type = std::ptrdiff_t;
    using value_type = Item;

    Iterator() = default;

    Item& operator*() const {
      if (walk_ == nullptr) failStaleWalk(View::walkName);
      walk_->checkCurrent(step_);
      return walk_->view().current();
    }
    Item* operator->() const { return &**this; }
    Iterator& operator++() {
      if (walk_ == nullptr) failStaleWalk(View::walkName);
      walk_->checkCurrent(step_);
      walk_->advance();
      step_ = walk_->steps_;
      return *this;
    }
    void operator++(int) { ++*this; }

    friend bool operator==(const Iterator& it, std::default_sentinel_t) noexcept {
      return it.atEnd();
    }

   private:
    friend class Walk;
    bool atEnd() const noexcept { return walk_ == nullptr || walk_->done_; }
    explicit Iterator(Walk* walk) noexcept : walk_(walk), step_(walk->steps_) {}

    Walk* walk_ = nullptr;
    std::uint64_t step_ = 0;
  };

  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  // REQUIRES: called once.
  Iterator begin() {
    if (begun_) failWalkedTwice(View::walkName);
    begun_ = true;
    advance();
    return Iterator(this);
  }
  std::default_sentinel_t end() const noexcept { return {}; }

 protected:
  Walk(Parser& parser, std::uint64_t frameId) noexcept : parser_(&parser), frameId_(frameId) {}
  ~Walk() = default;

  Parser& parser() const noexcept { return *parser_; }
  std::uint64_t frameId() const noexcept { return frameId_; }

  // For a view that reads its items whole instead of walking them: marks
  // the walk as begun (a second walk or read fails) and, at its end, done.
  void beginWhole() {
    if (begun_) failWalkedTwice(View::walkName);
    begun_ = true;
  }
  void finishWhole() noexcept { done_ = true; }

 private:
  View& view() noexcept { return static_cast<View&>(*this); }

  void advance() {
    if (done_) failStaleWalk(View::walkName);
    const bool more = view().step();
    ++steps_;
    if (!more) done_ = true;
  }
  void checkCurrent(std::uint64_t step) const {
    if (step != steps_ || done_) failStaleWalk(View::walkName);
  }

  Parser* parser_;
  std::uint64_t frameId_;
  std::uint64_t steps_ = 0;
  bool begun_ = false;
  bool done_ = false;
};

}  // namespace korvane::utils::json::decoder::detail
