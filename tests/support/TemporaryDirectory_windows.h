// TemporaryDirectory: a fresh folder under the system's temporary folder,
// removed with everything in it when the object goes away.
//
// Thread safety: one object, one thread. Windows only, header-only (the
// POSIX tests have theirs in tests/support/ChildProcess.h), so the Windows
// tests need no test support library.
#pragma once

#include <windows.h>

#include <atomic>
#include <filesystem>
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

}  // namespace korvane::testing
