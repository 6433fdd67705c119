// ZeroingAllocator: a standard allocator that overwrites every block with
// zeros before giving it back, so that freed memory never keeps a password.
//
// Thread safety: stateless; as std::allocator.
#pragma once

#include <cstddef>
#include <memory>

#include "utils/core/SecureZero.h"

namespace korvane::setUserPassword {

template <typename T>
class ZeroingAllocator {
 public:
  using value_type = T;

  ZeroingAllocator() noexcept = default;
  template <typename U>
  ZeroingAllocator(const ZeroingAllocator<U>&) noexcept {}  // NOLINT: rebinding

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }

  void deallocate(T* block, std::size_t count) noexcept {
    utils::core::secureZero(block, count * sizeof(T));
    std::allocator<T>().deallocate(block, count);
  }

  friend bool operator==(const ZeroingAllocator&, const ZeroingAllocator&) noexcept { return true; }
};

}  // namespace korvane::setUserPassword
