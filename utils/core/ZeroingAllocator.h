// ZeroingAllocator: an allocator that overwrites every block with zeros
// before giving it back, so that freed memory never keeps a password.
// `Base` does the allocating (std::allocator; tests put a recording one
// there to see what is released).
//
// Thread safety: as `Base`.
#pragma once

#include <cstddef>
#include <memory>

#include "utils/core/SecureZero.h"

namespace korvane::utils::core {

template <typename T, typename Base = std::allocator<T>>
class ZeroingAllocator {
 public:
  using value_type = T;
  template <typename U>
  struct rebind {
    using other =
        ZeroingAllocator<U, typename std::allocator_traits<Base>::template rebind_alloc<U>>;
  };

  ZeroingAllocator() noexcept = default;
  template <typename U, typename UBase>
  ZeroingAllocator(const ZeroingAllocator<U, UBase>&) noexcept {}  // NOLINT: rebinding

  T* allocate(std::size_t count) { return Base().allocate(count); }

  void deallocate(T* block, std::size_t count) noexcept {
    secureZero(block, count * sizeof(T));
    Base().deallocate(block, count);
  }

  friend bool operator==(const ZeroingAllocator&, const ZeroingAllocator&) noexcept { return true; }
};

}  // namespace korvane::utils::core
