// ResolvedPath on Windows: names resolved relative to the current folder,
// a missing folder, a folder at the name, a symbolic link or junction
// followed out of a folder only trusted accounts can write and refused in
// one that everyone can write, and a link that appears after the
// resolution.
#include <windows.h>

#include "utils/io/ResolvedPath.h"
// After windows.h, which these headers need.
#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>
#include <winioctl.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/TemporaryDirectory_windows.h"

namespace korvane {
namespace {

using testing::readText;
using testing::TemporaryDirectory;
using testing::writeText;
using utils::io::File;
using utils::io::ResolvedPath;
using utils::io::UntrustedLinkError;

// The whole content of the open `file`.
std::string contentOf(File& file) {
  std::string content;
  char buffer[256];
  for (std::size_t got; (got = file.read(buffer)) != 0;) content.append(buffer, got);
  return content;
}

// Whether `path` shows as a reparse point; Wine 8 makes links that do not
// (Unix symbolic links that every open follows), which are removed.
bool isReparsePoint(const std::filesystem::path& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    return true;
  }
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
  return false;
}

// Makes `link` a symbolic link to `target` (a folder when `folder`); false
// where the system cannot (no right to, or no reparse points).
bool makeLink(const std::filesystem::path& link, const std::filesystem::path& target, bool folder) {
  const DWORD flags =
      (folder ? SYMBOLIC_LINK_FLAG_DIRECTORY : 0) | SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE;
  return ::CreateSymbolicLinkW(link.c_str(), target.c_str(), flags) && isReparsePoint(link);
}

bool makeFolderLink(const std::filesystem::path& link, const std::filesystem::path& target) {
  return makeLink(link, target, true);
}

// Makes the empty folder `junction` a junction to the folder `target` (an
// absolute path); false where the system cannot.
bool makeJunction(const std::filesystem::path& junction, const std::filesystem::path& target) {
  std::filesystem::create_directory(junction);
  const HANDLE handle =
      ::CreateFileW(junction.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const std::wstring substitute = L"\\??\\" + target.native();
  const std::wstring print = target.native();
  // Tag, lengths, then the mount point's offsets and both names with
  // their NULs.
  std::vector<unsigned char> buffer(8 + 8 + (substitute.size() + print.size() + 2) * 2);
  auto put16 = [&](std::size_t at, std::size_t value) {
    const auto word = static_cast<WORD>(value);
    std::memcpy(buffer.data() + at, &word, sizeof word);
  };
  const DWORD tag = IO_REPARSE_TAG_MOUNT_POINT;
  std::memcpy(buffer.data(), &tag, sizeof tag);
  put16(4, buffer.size() - 8);
  put16(8, 0);
  put16(10, substitute.size() * 2);
  put16(12, (substitute.size() + 1) * 2);
  put16(14, print.size() * 2);
  std::memcpy(buffer.data() + 16, substitute.c_str(), (substitute.size() + 1) * 2);
  std::memcpy(buffer.data() + 16 + (substitute.size() + 1) * 2, print.c_str(),
              (print.size() + 1) * 2);
  DWORD got = 0;
  const bool made =
      ::DeviceIoControl(handle, FSCTL_SET_REPARSE_POINT, buffer.data(),
                        static_cast<DWORD>(buffer.size()), nullptr, 0, &got, nullptr) != 0;
  ::CloseHandle(handle);
  if (!made) std::filesystem::remove(junction);
  return made;
}

// Gives `path` the access rules `sddl`; false when the system does not
// keep them (Wine keeps only what Unix mode bits can say).
bool setDacl(const std::filesystem::path& path, const wchar_t* sddl, const wchar_t* expected) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &descriptor,
                                                              nullptr)) {
    return false;
  }
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  PACL dacl = nullptr;
  ::GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted);
  std::wstring name = path.wstring();
  const DWORD error = ::SetNamedSecurityInfoW(
      name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
      nullptr, nullptr, dacl, nullptr);
  ::LocalFree(descriptor);
  if (error != ERROR_SUCCESS) return false;
  PSECURITY_DESCRIPTOR read = nullptr;
  if (::GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                              nullptr, nullptr, nullptr, &read) != ERROR_SUCCESS) {
    return false;
  }
  LPWSTR text = nullptr;
  bool kept = false;
  if (::ConvertSecurityDescriptorToStringSecurityDescriptorW(
          read, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr)) {
    kept = std::wstring(text).find(expected) != std::wstring::npos;
    ::LocalFree(text);
  }
  ::LocalFree(read);
  return kept;
}

// Runs with `folder` as the current folder, and back.
class CurrentFolder {
 public:
  explicit CurrentFolder(const std::filesystem::path& folder)
      : previous_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
  }
  ~CurrentFolder() { std::filesystem::current_path(previous_); }
  CurrentFolder(const CurrentFolder&) = delete;
  CurrentFolder& operator=(const CurrentFolder&) = delete;

 private:
  std::filesystem::path previous_;
};

TEST(ResolvedPathTest, ARelativeNameIsFoundInTheCurrentFolder) {
  const TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "config");
  const CurrentFolder current(directory.path());
  const ResolvedPath resolved(std::filesystem::path("config") / "users.json");
  EXPECT_TRUE(resolved.folderExists());
  EXPECT_EQ(resolved.folderPath(), "config");
  EXPECT_EQ(resolved.name(), "users.json");
  EXPECT_FALSE(resolved.exists());
  EXPECT_FALSE(resolved.openRegularFile());
  writeText(directory.path() / "config" / "users.json", "users");
  EXPECT_TRUE(resolved.exists());
  std::optional<File> file = resolved.openRegularFile();
  ASSERT_TRUE(file);
  EXPECT_EQ(contentOf(*file), "users");
}

// Wine finds a name relative to a folder's handle through the folder's
// path, so a folder renamed meanwhile is not followed there.
bool runsUnderWine() {
  const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

TEST(ResolvedPathTest, TheFolderIsNotLookedUpAgainByName) {
  if (runsUnderWine()) GTEST_SKIP() << "Wine looks names up through the folder's path";
  const TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "config");
  writeText(directory.path() / "config" / "users.json", "first");
  const ResolvedPath resolved(directory.path() / "config" / "users.json");
  // Another folder takes the name: the resolved one is still read.
  std::filesystem::rename(directory.path() / "config", directory.path() / "moved");
  std::filesystem::create_directory(directory.path() / "config");
  writeText(directory.path() / "config" / "users.json", "second");
  std::optional<File> file = resolved.openRegularFile();
  ASSERT_TRUE(file);
  EXPECT_EQ(contentOf(*file), "first");
}

TEST(ResolvedPathTest, AMissingFolderMeansNothingIsThere) {
  const TemporaryDirectory directory;
  const ResolvedPath resolved(directory.path() / "missing" / "passwords.json");
  EXPECT_FALSE(resolved.folderExists());
  EXPECT_FALSE(resolved.exists());
  EXPECT_FALSE(resolved.openRegularFile());
}

TEST(ResolvedPathTest, AFolderAtTheNameIsNotRead) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  std::filesystem::create_directory(path);
  const ResolvedPath resolved(path);
  EXPECT_TRUE(resolved.exists());
  try {
    (void)resolved.openRegularFile();
    ADD_FAILURE() << "a folder was opened";
  } catch (const std::runtime_error& error) {
    EXPECT_NE(std::string(error.what()).find("it is a folder, not a regular file, and is not read"),
              std::string::npos)
        << error.what();
  }
}

TEST(ResolvedPathTest, ANameThatEndsInAFolderIsRefused) {
  const TemporaryDirectory directory;
  EXPECT_THROW(ResolvedPath(directory.path() / ""), std::runtime_error);
  EXPECT_THROW(ResolvedPath(directory.path() / ".."), std::runtime_error);
}

TEST(ResolvedPathTest, ALinkOutOfATrustedFolderIsFollowed) {
  const TemporaryDirectory directory;
  const std::filesystem::path real = directory.path() / "real";
  std::filesystem::create_directory(real);
  writeText(real / "passwords.json", "real");
  const std::filesystem::path link = directory.path() / "link";
  if (!makeFolderLink(link, real) && !makeJunction(link, real)) {
    GTEST_SKIP() << "the system makes neither symbolic links nor junctions here";
  }
  const ResolvedPath resolved(link / "passwords.json");
  EXPECT_EQ(resolved.path(), real / "passwords.json");
  EXPECT_EQ(resolved.folderPath(), real);
  std::optional<File> file = resolved.openRegularFile();
  ASSERT_TRUE(file);
  EXPECT_EQ(contentOf(*file), "real");
}

TEST(ResolvedPathTest, AJunctionOutOfATrustedFolderIsFollowed) {
  const TemporaryDirectory directory;
  const std::filesystem::path real = directory.path() / "real";
  std::filesystem::create_directory(real);
  writeText(real / "passwords.json", "real");
  const std::filesystem::path junction = directory.path() / "junction";
  if (!makeJunction(junction, real)) GTEST_SKIP() << "the system makes no junctions here";
  const ResolvedPath resolved(junction / "passwords.json");
  EXPECT_EQ(resolved.folderPath(), real);
  std::optional<File> file = resolved.openRegularFile();
  ASSERT_TRUE(file);
  EXPECT_EQ(contentOf(*file), "real");
}

TEST(ResolvedPathTest, ALinkInAFolderEveryoneCanWriteIsNotFollowed) {
  const TemporaryDirectory directory;
  const std::filesystem::path real = directory.path() / "real";
  const std::filesystem::path shared = directory.path() / "shared";
  std::filesystem::create_directory(real);
  std::filesystem::create_directory(shared);
  writeText(real / "passwords.json", "real");
  const std::filesystem::path link = shared / "link";
  if (!makeFolderLink(link, real) && !makeJunction(link, real)) {
    GTEST_SKIP() << "the system makes neither symbolic links nor junctions here";
  }
  if (!setDacl(shared, L"D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;WD)", L";;;WD)")) {
    GTEST_SKIP() << "the system does not keep the access rules it is given";
  }
  try {
    const ResolvedPath resolved(link / "passwords.json");
    ADD_FAILURE() << "the link was followed to " << resolved.path().string();
  } catch (const UntrustedLinkError& error) {
    EXPECT_EQ(std::string(error.what()),
              "the symbolic link \"" + link.string() + "\" is in the folder \"" + shared.string() +
                  "\", which another account than SYSTEM, the Administrators and the account "
                  "running this program can write, and is not followed");
  }
}

TEST(ResolvedPathTest, ALinkThatAppearsAfterTheResolutionIsNotFollowed) {
  const TemporaryDirectory directory;
  const std::filesystem::path real = directory.path() / "real";
  std::filesystem::create_directory(real);
  writeText(real / "passwords.json", "real");
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ResolvedPath resolved(path);
  EXPECT_FALSE(resolved.exists());
  if (!makeLink(path, real / "passwords.json", false) && !makeJunction(path, real)) {
    GTEST_SKIP() << "the system makes neither symbolic links nor junctions here";
  }
  EXPECT_TRUE(resolved.exists());
  try {
    (void)resolved.openRegularFile();
    ADD_FAILURE() << "the link was followed";
  } catch (const std::runtime_error& error) {
    EXPECT_NE(std::string(error.what()).find("was changed or replaced by another program"),
              std::string::npos)
        << error.what();
  }
  EXPECT_EQ(readText(real / "passwords.json"), "real");
}

}  // namespace
}  // namespace korvane
