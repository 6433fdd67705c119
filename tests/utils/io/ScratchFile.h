// ScratchFile: a name of its own in the system's temporary folder, for the
// portable tests of the file workers; its file, if any, is removed when the
// object goes away.
//
// Thread safety: one object, one thread.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "utils/core/Uuid.h"

namespace korvane::utils::io::test {

class ScratchFile {
 public:
  // A file holding `content`, or only a name when there is none.
  explicit ScratchFile(std::optional<std::string_view> content = std::nullopt)
      : path_(std::filesystem::temp_directory_path() /
              ("korvane-scratch-" + std::string(core::Uuid::create().toString().view()))) {
    if (content) std::ofstream(path_, std::ios::binary) << *content;
  }
  ~ScratchFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  const std::filesystem::path& path() const noexcept { return path_; }

  std::string content() const {
    std::ifstream in(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

 private:
  std::filesystem::path path_;
};

}  // namespace korvane::utils::io::test
