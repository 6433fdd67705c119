#include "utils/io/FileSection.h"

namespace korvane::utils::io {

FileSection::FileSection(const File& file, std::uint64_t offset, const std::atomic<bool>* stop)
    : reader_(openReader(file)), offset_(offset), stop_(stop) {}

FileSection::~FileSection() = default;

std::size_t FileSection::readSome(std::span<char> into) {
  checkStop();
  const std::size_t got = reader_->readAt(offset_, into);
  offset_ += got;
  return got;
}

}  // namespace korvane::utils::io
