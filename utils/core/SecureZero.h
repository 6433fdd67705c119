// secureZero: overwrites memory with zero bytes in a way the compiler may not
// remove, for buffers that held passwords or values derived from them.
//
// Thread safety: reentrant.
#pragma once

#include <cstddef>
#include <span>

namespace korvane::utils::core {

// Writes zero into every byte of [data, data + size) through a volatile
// pointer, one byte at a time.
void secureZero(void* data, std::size_t size) noexcept;

template <typename T, std::size_t Extent>
void secureZero(std::span<T, Extent> bytes) noexcept {
  secureZero(bytes.data(), bytes.size_bytes());
}

}  // namespace korvane::utils::core
