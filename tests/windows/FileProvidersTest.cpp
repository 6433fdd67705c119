// The Windows providers of the file services: existence, the standard
// location, File, replacing a file and the replacement lock.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>

#include "tests/windows/TemporaryDirectory.h"
#include "utils/filesystem/FileExists.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/filesystem/StandardPathIterator.h"
#include "utils/io/File.h"
#include "utils/io/FileInputStream.h"
#include "utils/io/FileNotFoundError.h"
#include "utils/io/FileOutputStream.h"
#include "utils/io/FileReplacement.h"
#include "utils/io/ReplacementLock.h"

namespace korvane {
namespace {

using test::TemporaryDirectory;
using utils::io::File;

void writeText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
}

std::string readText(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(FileExistsTest, FilesAndDirectoriesExist) {
  const TemporaryDirectory directory;
  writeText(directory.path() / "users.json", "{}");
  EXPECT_TRUE(utils::filesystem::fileExists(directory.path() / "users.json"));
  EXPECT_TRUE(utils::filesystem::fileExists(directory.path()));
}

TEST(FileExistsTest, NotFoundCodesMeanFalse) {
  const TemporaryDirectory directory;
  writeText(directory.path() / "file", "x");
  // 2: file not found.
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "missing.json"));
  // 3: path not found, also below a regular file.
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "no" / "such" / "users.json"));
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "file" / "users.json"));
  // 123: invalid name.
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "bad<name>.json"));
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "bad?name.json"));
  // A share that cannot be reached (53 on Windows; Wine answers 3).
  EXPECT_FALSE(utils::filesystem::fileExists(L"\\\\korvane-no-such-host\\share\\users.json"));
}

TEST(StandardPathIteratorTest, YieldsProgramDataOnce) {
  wchar_t programData[MAX_PATH] = {};
  ASSERT_GT(::GetEnvironmentVariableW(L"ProgramData", programData, MAX_PATH), 0u);
  utils::filesystem::StandardPathIterator it(utils::filesystem::StandardPath::configuration);
  ASSERT_FALSE(it == std::default_sentinel);
  EXPECT_TRUE(std::filesystem::equivalent(*it, programData)) << it->string();
  EXPECT_TRUE(it->is_absolute());
  ++it;
  EXPECT_TRUE(it == std::default_sentinel);
}

TEST(FileTest, WritesAndReadsAFile) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / L"caf\u00e9.json";
  {
    File file(path, File::Access::createOrTruncate);
    const std::string text = "{\r\n\"a\": \"b\"}\n";
    file.write(text);
    file.sync();
    file.close();
  }
  File file(path, File::Access::read);
  char buffer[64];
  const std::size_t got = file.read(buffer);
  EXPECT_EQ(std::string(buffer, got), "{\r\n\"a\": \"b\"}\n");  // binary: no line end translation
  EXPECT_EQ(file.read(buffer), 0u);
}

TEST(FileTest, CreateOrTruncateEmptiesAnExistingFile) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "f";
  writeText(path, "old content");
  {
    utils::io::FileOutputStream<char> out(path, File::Access::createOrTruncate);
  }
  EXPECT_EQ(readText(path), "");
}

TEST(FileTest, MissingFileIsFileNotFoundError) {
  const TemporaryDirectory directory;
  for (const auto& missing : {directory.path() / "missing.json", directory.path() / "no" / "x.json"}) {
    try {
      utils::io::FileInputStream<char> in(missing);
      ADD_FAILURE() << "no error";
    } catch (const utils::io::FileNotFoundError& error) {
      EXPECT_EQ(error.path(), missing);
      EXPECT_NE(std::string(error.what()).find(utils::filesystem::toPrintable(missing)),
                std::string::npos)
          << error.what();
    }
  }
}

TEST(FileTest, OtherOpenFailuresAreSystemErrorsWithTheCode) {
  const TemporaryDirectory directory;
  // A folder cannot be opened as a file: access denied, not "not found".
  try {
    File file(directory.path(), File::Access::read);
    ADD_FAILURE() << "no error";
  } catch (const utils::io::FileNotFoundError&) {
    ADD_FAILURE() << "a folder is not a missing file";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ERROR_ACCESS_DENIED);
    EXPECT_NE(std::string(error.what()).find("could not open"), std::string::npos) << error.what();
  }
}

// Standard input replaced by a file for the lifetime of the object.
class RedirectedStandardInput {
 public:
  explicit RedirectedStandardInput(const std::filesystem::path& path)
      : saved_(::GetStdHandle(STD_INPUT_HANDLE)),
        file_(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                            nullptr)) {
    ::SetStdHandle(STD_INPUT_HANDLE, file_);
  }
  RedirectedStandardInput(const RedirectedStandardInput&) = delete;
  RedirectedStandardInput& operator=(const RedirectedStandardInput&) = delete;
  ~RedirectedStandardInput() {
    ::SetStdHandle(STD_INPUT_HANDLE, saved_);
    ::CloseHandle(file_);
  }

 private:
  HANDLE saved_;
  HANDLE file_;
};

TEST(FileTest, StandardInputPseudoFileReadsRedirectedInput) {
  const TemporaryDirectory directory;
  writeText(directory.path() / "input", "Secret password 1\r\nsecond line\n");
  std::string text;
  {
    const RedirectedStandardInput redirected(directory.path() / "input");
    File input(File::PseudoFile::standardInput);
    EXPECT_EQ(input.path(), "standard input");
    char buffer[8];
    while (const std::size_t got = input.read(buffer)) text.append(buffer, got);
  }
  EXPECT_EQ(text, "Secret password 1\r\nsecond line\n");
}

TEST(FileTest, StandardInputFromAPipeEndsWhenTheWriterCloses) {
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  ASSERT_TRUE(::CreatePipe(&readEnd, &writeEnd, nullptr, 0));
  DWORD written = 0;
  ASSERT_TRUE(::WriteFile(writeEnd, "line\n", 5, &written, nullptr));
  ::CloseHandle(writeEnd);
  const HANDLE saved = ::GetStdHandle(STD_INPUT_HANDLE);
  ::SetStdHandle(STD_INPUT_HANDLE, readEnd);
  std::string text;
  {
    File input(File::PseudoFile::standardInput);
    char buffer[16];
    while (const std::size_t got = input.read(buffer)) text.append(buffer, got);
  }
  ::SetStdHandle(STD_INPUT_HANDLE, saved);
  ::CloseHandle(readEnd);
  EXPECT_EQ(text, "line\n");
}

TEST(FileReplacementTest, ReplacesAnExistingFile) {
  const TemporaryDirectory directory;
  const std::filesystem::path target = directory.path() / "passwords.json";
  const std::filesystem::path temporary = directory.path() / "passwords.json.tmp";
  writeText(target, "old");
  writeText(temporary, "new");
  utils::io::replaceFile(temporary, target);
  EXPECT_EQ(readText(target), "new");
  EXPECT_FALSE(std::filesystem::exists(temporary));
}

TEST(FileReplacementTest, CreatesAMissingTarget) {
  const TemporaryDirectory directory;
  const std::filesystem::path target = directory.path() / "passwords.json";
  writeText(directory.path() / "t", "new");
  utils::io::replaceFile(directory.path() / "t", target);
  EXPECT_EQ(readText(target), "new");
}

TEST(FileReplacementTest, FailureIsARenameErrorWithBothPaths) {
  const TemporaryDirectory directory;
  const std::filesystem::path from = directory.path() / "missing.tmp";
  const std::filesystem::path to = directory.path() / "passwords.json";
  writeText(to, "old");
  try {
    utils::io::replaceFile(from, to);
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

TEST(FileReplacementTest, AFolderIsNotReplaced) {
  const TemporaryDirectory directory;
  const std::filesystem::path to = directory.path() / "passwords.json";
  std::filesystem::create_directory(to);
  writeText(directory.path() / "t", "new");
  EXPECT_THROW(utils::io::replaceFile(directory.path() / "t", to), std::filesystem::filesystem_error);
  EXPECT_TRUE(std::filesystem::is_directory(to));
  EXPECT_EQ(readText(directory.path() / "t"), "new");
}

TEST(ReplacementLockTest, TakenAgainAfterRelease) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  for (int i = 0; i < 3; ++i) {
    const utils::io::ReplacementLock lock(file);
  }
  const utils::io::ReplacementLock first(file);
  const utils::io::ReplacementLock other(directory.path() / "other.json");
}

TEST(ReplacementLockTest, SecondHolderWaitsForTheFirst) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  std::atomic<bool> acquired{false};
  std::thread second;
  {
    const utils::io::ReplacementLock lock(file);
    // The path is spelled differently but names the same file.
    const std::filesystem::path sameFile = directory.path() / "." / "PASSWORDS.JSON";
    second = std::thread([&] {
      const utils::io::ReplacementLock secondLock(sameFile);
      acquired = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(acquired);
  }
  second.join();
  EXPECT_TRUE(acquired);
}

}  // namespace
}  // namespace korvane
