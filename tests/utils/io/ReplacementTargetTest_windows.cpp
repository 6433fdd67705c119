// ReplacementTarget on Windows: replacing and creating the target, the
// "rename" error with both paths, a folder at the name refused, and a file
// that another one took the place of between the read and the replace.
#include <windows.h>

#include "utils/io/ReplacementTarget.h"
// After windows.h, which the security headers need.
#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "tests/support/TemporaryDirectory_windows.h"

namespace korvane {
namespace {

using testing::readText;
using testing::TemporaryDirectory;
using testing::writeText;
using utils::io::File;
using utils::io::ReplacedFile;
using utils::io::ReplacementTarget;

// The file at `path` as the password file's reader sees it; closed at once.
std::optional<ReplacedFile> readAt(const ReplacementTarget& target) {
  ReplacedFile replaced;
  std::optional<File> file = target.open(&replaced);
  if (!file) return std::nullopt;
  return replaced;
}

std::filesystem::path writeTemporary(const ReplacementTarget& target,
                                     const std::optional<ReplacedFile>& replaced,
                                     std::string_view content) {
  File file = target.createTemporary("tmp", replaced);
  file.write(content);
  file.sync();
  file.close();
  return file.path();
}

// The access rules of `path` as text (SDDL), or "" when they cannot be read.
std::wstring daclOf(const std::filesystem::path& path) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (::GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                              nullptr, nullptr, nullptr, &descriptor) != ERROR_SUCCESS) {
    return L"";
  }
  LPWSTR text = nullptr;
  std::wstring result;
  if (::ConvertSecurityDescriptorToStringSecurityDescriptorW(
          descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr)) {
    result = text;
    ::LocalFree(text);
  }
  ::LocalFree(descriptor);
  return result;
}

void setDacl(const std::filesystem::path& path, const wchar_t* sddl) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1,
                                                                     &descriptor, nullptr));
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  PACL dacl = nullptr;
  ::GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted);
  std::wstring name = path.wstring();
  EXPECT_EQ(::SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                                    DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                    nullptr, nullptr, dacl, nullptr),
            static_cast<DWORD>(ERROR_SUCCESS));
  ::LocalFree(descriptor);
}

TEST(ReplacementTargetTest, ReplacesAnExistingFile) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  writeText(path, "old");
  const ReplacementTarget target(path);
  const auto replaced = readAt(target);
  ASSERT_TRUE(replaced);
  const auto temporary = writeTemporary(target, replaced, "new");
  target.replace(temporary, replaced);
  EXPECT_EQ(readText(path), "new");
  EXPECT_FALSE(std::filesystem::exists(temporary));
}

TEST(ReplacementTargetTest, CreatesAMissingTarget) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  ASSERT_FALSE(readAt(target));
  target.replace(writeTemporary(target, std::nullopt, "new"), std::nullopt);
  EXPECT_EQ(readText(path), "new");
}

TEST(ReplacementTargetTest, FailureIsARenameErrorWithBothPaths) {
  const TemporaryDirectory directory;
  const std::filesystem::path to = directory.path() / "passwords.json";
  writeText(to, "old");
  const ReplacementTarget target(to);
  const auto replaced = readAt(target);
  const std::filesystem::path from = directory.path() / "missing.tmp";
  try {
    target.replace(from, replaced);
    ADD_FAILURE() << "no error";
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_NE(std::string(error.what()).find("rename"), std::string::npos) << error.what();
    EXPECT_EQ(error.path1(), from);
    EXPECT_EQ(error.path2(), to);
    EXPECT_EQ(error.code().value(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(error.code().category(), std::system_category());
  }
  EXPECT_EQ(readText(to), "old");
}

TEST(ReplacementTargetTest, AFolderAtTheNameIsRefused) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  std::filesystem::create_directory(path);
  EXPECT_THROW((void)readAt(ReplacementTarget(path)), std::runtime_error);
  EXPECT_TRUE(std::filesystem::is_directory(path));
}

TEST(ReplacementTargetTest, AFileReplacedAfterItWasReadIsNotReplaced) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  writeText(path, "read");
  const ReplacementTarget target(path);
  const auto replaced = readAt(target);
  ASSERT_TRUE(replaced);
  const auto temporary = writeTemporary(target, replaced, "new");
  writeText(directory.path() / "swapped", "swapped");
  std::filesystem::rename(directory.path() / "swapped", path);
  EXPECT_THROW(target.replace(temporary, replaced), std::runtime_error);
  EXPECT_EQ(readText(path), "swapped");
  EXPECT_EQ(readText(temporary), "new");
}

TEST(ReplacementTargetTest, AFileThatAppearsWhereNoneWasIsNotReplaced) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  const auto temporary = writeTemporary(target, std::nullopt, "new");
  writeText(path, "appeared");
  EXPECT_THROW(target.replace(temporary, std::nullopt), std::runtime_error);
  EXPECT_EQ(readText(path), "appeared");
}

// Wine keeps no access rules of its own: it shows rules made up from the
// Unix mode bits of the file.
bool runsUnderWine() {
  const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

TEST(ReplacementTargetTest, ANewFileIsPrivate) {
  if (runsUnderWine()) GTEST_SKIP() << "Wine does not keep the access rules it is given";
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  target.replace(writeTemporary(target, std::nullopt, "new"), std::nullopt);
  const std::wstring dacl = daclOf(path);
  // Protected from the folder's rules; SYSTEM and the Administrators only,
  // and the account running the test.
  EXPECT_EQ(dacl.rfind(L"D:P", 0), 0u) << std::filesystem::path(dacl).string();
  EXPECT_NE(dacl.find(L"(A;;FA;;;SY)"), std::wstring::npos);
  EXPECT_NE(dacl.find(L"(A;;FA;;;BA)"), std::wstring::npos);
  EXPECT_EQ(dacl.find(L";;;WD)"), std::wstring::npos) << "everyone may read it";
  EXPECT_EQ(dacl.find(L";;;BU)"), std::wstring::npos) << "every user may read it";
}

TEST(ReplacementTargetTest, TheReplacementKeepsTheAccessRules) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  writeText(path, "old");
  const wchar_t* rules = L"D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FR;;;AU)";
  setDacl(path, rules);
  const std::wstring before = daclOf(path);
  ASSERT_FALSE(before.empty());
  const ReplacementTarget target(path);
  const auto replaced = readAt(target);
  ASSERT_TRUE(replaced);
  target.replace(writeTemporary(target, replaced, "new"), replaced);
  EXPECT_EQ(readText(path), "new");
  EXPECT_EQ(daclOf(path), before);
}

}  // namespace
}  // namespace korvane
