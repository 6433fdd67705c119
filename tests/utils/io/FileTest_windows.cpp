// File on Windows: reading and writing in binary, truncation, "not found"
// and the other open failures, standard input from a file or a pipe,
// reading a regular file again after a rewind, and what a file open for
// reading lets other programs do.
#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "tests/support/TemporaryDirectory_windows.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/File.h"
#include "utils/io/FileInputStream.h"
#include "utils/io/FileNotFoundError.h"

namespace korvane {
namespace {

using testing::readText;
using testing::TemporaryDirectory;
using testing::writeText;
using utils::io::File;

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

// Another program that opens the file to write it, to delete it, or to
// rename it (a replace's first step) is not refused while a run reads it.
TEST(FileTest, AFileOpenForReadingCanBeWrittenDeletedAndRenamedByOthers) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / L"users.json";
  writeText(path, "{}");
  const File reading(path, File::Access::read);
  for (const DWORD access : {DWORD{GENERIC_WRITE}, DWORD{DELETE}}) {
    const HANDLE other =
        ::CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(other, INVALID_HANDLE_VALUE) << "access " << access << ": error " << ::GetLastError();
    if (other != INVALID_HANDLE_VALUE) ::CloseHandle(other);
  }
  // A file this program writes is shared for reading only.
  const File writing(directory.path() / L"written", File::Access::createNew);
  const HANDLE other = ::CreateFileW((directory.path() / L"written").c_str(), GENERIC_WRITE,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                     nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(other, INVALID_HANDLE_VALUE);
  if (other != INVALID_HANDLE_VALUE) ::CloseHandle(other);
}

TEST(FileTest, CreateOrTruncateEmptiesAnExistingFile) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "f";
  writeText(path, "old content");
  { const File emptied(path, File::Access::createOrTruncate); }
  EXPECT_EQ(readText(path), "");
}

TEST(FileTest, MissingFileIsFileNotFoundError) {
  const TemporaryDirectory directory;
  for (const auto& missing :
       {directory.path() / "missing.json", directory.path() / "no" / "x.json"}) {
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

TEST(FileTest, ARegularFileIsReadAgainAfterRewind) {
  const TemporaryDirectory directory;
  writeText(directory.path() / "text", "abcdef");
  File file(directory.path() / "text", File::Access::read);
  EXPECT_TRUE(file.isRegularFile());
  char head[4];
  ASSERT_EQ(file.read(head), 4u);
  file.rewind();
  char all[8];
  ASSERT_EQ(file.read(all), 6u);
  EXPECT_EQ(std::string(all, 6), "abcdef");
}

TEST(FileTest, APipeIsNoRegularFile) {
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  ASSERT_TRUE(::CreatePipe(&readEnd, &writeEnd, nullptr, 0));
  const HANDLE saved = ::GetStdHandle(STD_INPUT_HANDLE);
  ::SetStdHandle(STD_INPUT_HANDLE, readEnd);
  {
    const File input(File::PseudoFile::standardInput);
    EXPECT_FALSE(input.isRegularFile());
  }
  ::SetStdHandle(STD_INPUT_HANDLE, saved);
  ::CloseHandle(readEnd);
  ::CloseHandle(writeEnd);
}

}  // namespace
}  // namespace korvane
