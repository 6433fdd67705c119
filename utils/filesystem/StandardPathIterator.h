// StandardPathIterator: walks the standard base directories of one kind.
//
// StandardPath::configuration (value 0) yields the per-machine configuration
// bases: on Windows the ProgramData folder; on POSIX every absolute entry of
// $XDG_CONFIG_DIRS in order, or /etc/xdg when there is none. The sequence
// is never empty, and it is read once, when the iterator is made, so one
// iterator sees one stable list.
//
// Thread safety: an iterator is a value; reading the environment while
// another thread changes it is not safe.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <vector>

namespace korvane::utils::filesystem {

enum class StandardPath : int {
  configuration = 0,
};

class StandardPathIterator {
 public:
  explicit StandardPathIterator(StandardPath which);

  const std::filesystem::path& operator*() const noexcept { return directories_[index_]; }
  const std::filesystem::path* operator->() const noexcept { return &directories_[index_]; }

  StandardPathIterator& operator++() noexcept {
    ++index_;
    return *this;
  }

  bool operator==(std::default_sentinel_t) const noexcept { return index_ >= directories_.size(); }

 private:
  std::vector<std::filesystem::path> directories_;
  std::size_t index_ = 0;
};

namespace detail {
// The platform's list for `which`; never empty.
std::vector<std::filesystem::path> standardDirectories(StandardPath which);
}  // namespace detail

}  // namespace korvane::utils::filesystem
