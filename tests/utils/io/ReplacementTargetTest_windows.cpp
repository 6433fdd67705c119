// ReplacementTarget on Windows: replacing and creating the target, the
// "rename" error with both paths, a folder at the name refused, a file
// that another one took the place of between the read and the replace,
// every step done in the folder resolved at the start (a relative name,
// a folder renamed meanwhile), and the temporary file removed only while
// its name still refers to it.
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
#include <utility>

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

// A temporary file written as the password file's writer does: its path
// and its identity after the last write.
struct Written {
  std::filesystem::path path;
  ReplacedFile identity;
};

Written writeTemporary(const ReplacementTarget& target, const std::optional<ReplacedFile>& replaced,
                       std::string_view content) {
  File file = target.createTemporary("tmp", replaced);
  file.write(content);
  file.sync();
  Written written{file.path(), ReplacementTarget::identify(file)};
  file.close();
  return written;
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

// Wine keeps no access rules of its own (it shows rules made up from the
// Unix mode bits of the file), and finds a name relative to a folder's
// handle through the folder's path.
bool runsUnderWine() {
  const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && ::GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

TEST(ReplacementTargetTest, ReplacesAnExistingFile) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  writeText(path, "old");
  const ReplacementTarget target(path);
  const auto replaced = readAt(target);
  ASSERT_TRUE(replaced);
  const auto temporary = writeTemporary(target, replaced, "new");
  target.replace(temporary.path, temporary.identity, replaced);
  EXPECT_EQ(readText(path), "new");
  EXPECT_FALSE(std::filesystem::exists(temporary.path));
}

TEST(ReplacementTargetTest, CreatesAMissingTarget) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  ASSERT_FALSE(readAt(target));
  const Written temporary = writeTemporary(target, std::nullopt, "new");
  target.replace(temporary.path, temporary.identity, std::nullopt);
  EXPECT_EQ(readText(path), "new");
}

TEST(ReplacementTargetTest, OnlyTheTemporaryFileThatWasWrittenIsMoved) {
  const TemporaryDirectory directory;
  const std::filesystem::path to = directory.path() / "passwords.json";
  writeText(to, "old");
  const ReplacementTarget target(to);
  const auto replaced = readAt(target);
  const Written temporary = writeTemporary(target, replaced, "new");
  std::filesystem::remove(temporary.path);
  EXPECT_THROW(target.replace(temporary.path, temporary.identity, replaced), std::runtime_error);
  writeText(temporary.path, "another");
  EXPECT_THROW(target.replace(temporary.path, temporary.identity, replaced), std::runtime_error);
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
  EXPECT_THROW(target.replace(temporary.path, temporary.identity, replaced), std::runtime_error);
  EXPECT_EQ(readText(path), "swapped");
  EXPECT_EQ(readText(temporary.path), "new");
}

TEST(ReplacementTargetTest, AFileThatAppearsWhereNoneWasIsNotReplaced) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  const auto temporary = writeTemporary(target, std::nullopt, "new");
  writeText(path, "appeared");
  EXPECT_THROW(target.replace(temporary.path, temporary.identity, std::nullopt),
               std::runtime_error);
  EXPECT_EQ(readText(path), "appeared");
}

TEST(ReplacementTargetTest, ARelativeNameIsReplacedInTheCurrentFolder) {
  const TemporaryDirectory directory;
  writeText(directory.path() / "passwords.json", "old");
  const std::filesystem::path previous = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());
  {
    const ReplacementTarget target("passwords.json");
    EXPECT_EQ(target.folderPath(), ".");
    const auto replaced = readAt(target);
    ASSERT_TRUE(replaced);
    const Written temporary = writeTemporary(target, replaced, "new");
    target.replace(temporary.path, temporary.identity, replaced);
  }
  std::filesystem::current_path(previous);
  EXPECT_EQ(readText(directory.path() / "passwords.json"), "new");
}

TEST(ReplacementTargetTest, EveryStepWorksInTheFolderResolvedAtTheStart) {
  if (runsUnderWine()) GTEST_SKIP() << "Wine looks names up through the folder's path";
  const TemporaryDirectory directory;
  const std::filesystem::path folder = directory.path() / "config";
  std::filesystem::create_directory(folder);
  writeText(folder / "passwords.json", "old");
  const ReplacementTarget target(folder / "passwords.json");
  const auto replaced = readAt(target);
  ASSERT_TRUE(replaced);
  // The folder moves and another takes its name: the replace still
  // happens in the folder that was resolved.
  std::filesystem::rename(folder, directory.path() / "moved");
  std::filesystem::create_directory(folder);
  writeText(folder / "passwords.json", "other");
  const Written temporary = writeTemporary(target, replaced, "new");
  target.replace(temporary.path, temporary.identity, replaced);
  EXPECT_EQ(readText(directory.path() / "moved" / "passwords.json"), "new");
  EXPECT_EQ(readText(folder / "passwords.json"), "other");
}

TEST(ReplacementTargetTest, ATemporaryNameThatIsTakenIsNeitherFollowedNorTruncated) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  writeText(directory.path() / "passwords.json.tmp", "taken");
  const ReplacementTarget target(path);
  try {
    (void)target.createTemporary("tmp", std::nullopt);
    ADD_FAILURE() << "a taken name was opened";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::file_exists) << error.what();
  }
  EXPECT_EQ(readText(directory.path() / "passwords.json.tmp"), "taken");
}

TEST(ReplacementTargetTest, ADiscardedTemporaryFileIsRemovedOnlyWhileItsNameRefersToIt) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  File first = target.createTemporary("first", std::nullopt);
  const std::filesystem::path firstPath = first.path();
  target.discardTemporary(std::move(first));
  EXPECT_FALSE(std::filesystem::exists(firstPath));
  File second = target.createTemporary("second", std::nullopt);
  const std::filesystem::path secondPath = second.path();
  // Another file takes the name: it stays.
  std::filesystem::rename(secondPath, directory.path() / "aside");
  writeText(secondPath, "another");
  target.discardTemporary(std::move(second));
  EXPECT_EQ(readText(secondPath), "another");
}

TEST(ReplacementTargetTest, ANewFileIsPrivate) {
  if (runsUnderWine()) GTEST_SKIP() << "Wine does not keep the access rules it is given";
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  const Written temporary = writeTemporary(target, std::nullopt, "new");
  target.replace(temporary.path, temporary.identity, std::nullopt);
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
  const Written temporary = writeTemporary(target, replaced, "new");
  target.replace(temporary.path, temporary.identity, replaced);
  EXPECT_EQ(readText(path), "new");
  EXPECT_EQ(daclOf(path), before);
}

}  // namespace
}  // namespace korvane
