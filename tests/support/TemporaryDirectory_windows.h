// TemporaryDirectory: a fresh folder under the system's temporary folder,
// removed with everything in it when the object goes away; and readText /
// writeText for the files the tests put in it.
//
// Thread safety: one object, one thread. Windows only, header-only (the
// POSIX tests have theirs in tests/support/ChildProcess.h), so the Windows
// tests need no test support library.
#pragma once

#include <windows.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace korvane::testing {

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    static std::atomic<unsigned> counter{0};
    const std::wstring name = L"korvane-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                              std::to_wstring(counter.fetch_add(1));
    path_ = std::filesystem::temp_directory_path() / name;
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

// Writes `text` as the whole content of `path`, bytes as they are.
inline void writeText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
}

// The whole content of `path`; empty when it cannot be read.
inline std::string readText(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace korvane::testing
