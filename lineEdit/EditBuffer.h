// EditBuffer: the line editor's 4096-byte edit buffer, zeroed however the
// edit ends, since it holds what was typed (passwords).
//
// Thread safety: one object, one thread.
#pragma once

#include <array>
#include <span>

#include "lineEdit/EditLoop.h"
#include "utils/core/SecureZero.h"

namespace korvane::lineEdit {

class EditBuffer {
 public:
  EditBuffer() = default;
  EditBuffer(const EditBuffer&) = delete;
  EditBuffer& operator=(const EditBuffer&) = delete;
  ~EditBuffer() { utils::core::secureZero(std::span<char>(bytes_)); }

  std::span<char> span() { return bytes_; }

 private:
  std::array<char, EditLoop::bufferSize> bytes_{};
};

}  // namespace korvane::lineEdit
