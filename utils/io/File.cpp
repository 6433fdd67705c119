#include "utils/io/File.h"

#include <utility>

namespace korvane::utils::io {

File::File(NativeHandle handle, std::filesystem::path path) noexcept
    : path_(std::move(path)), handle_(handle), owned_(true) {}

File::File(File&& other) noexcept
    : path_(std::move(other.path_)),
      handle_(std::exchange(other.handle_, invalidHandle)),
      owned_(other.owned_) {}

File& File::operator=(File&& other) noexcept {
  if (this != &other) {
    release();
    path_ = std::move(other.path_);
    handle_ = std::exchange(other.handle_, invalidHandle);
    owned_ = other.owned_;
  }
  return *this;
}

File::~File() { release(); }

const char* File::pseudoFileName(PseudoFile pseudoFile) noexcept {
  switch (pseudoFile) {
    case PseudoFile::standardInput:
      return "standard input";
    case PseudoFile::standardOutput:
      return "standard output";
    case PseudoFile::standardError:
      return "standard error";
  }
  return "standard stream";
}

}  // namespace korvane::utils::io
