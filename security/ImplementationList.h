// ImplementationList: the variants of one piece of code that this
// processor supports, best first, as the code that picks one at run time
// lists them (the SHA-2 compressions, the salt draws): filled once when
// first asked for, then only read.
//
// Internal to the security library. Thread safety: filled by one thread
// before it is shared; reading is safe from any thread.
#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <span>

namespace korvane::security {

template <typename Implementation, std::size_t most>
class ImplementationList {
 public:
  // REQUIRES: fewer than `most` were added.
  void add(const Implementation& implementation) noexcept {
    assert(count_ < most);
    list_[count_++] = implementation;
  }
  std::span<const Implementation> view() const noexcept { return {list_.data(), count_}; }

 private:
  std::array<Implementation, most> list_{};
  std::size_t count_ = 0;
};

}  // namespace korvane::security
