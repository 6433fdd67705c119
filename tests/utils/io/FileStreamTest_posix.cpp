#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/support/Unprivileged.h"
#include "utils/io/File.h"
#include "utils/io/FileInputStream.h"
#include "utils/io/FileNotFoundError.h"

namespace korvane::utils::io {
namespace {

using korvane::testing::readFile;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

std::string readAll(InputStream<char>& stream) {
  std::string text;
  for (int c; (c = stream.get()) >= 0;) text.push_back(static_cast<char>(c));
  return text;
}

TEST(FileStreamTest, WritesAndReadsAFile) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "file.txt";
  std::string text(200000, 'x');
  for (std::size_t i = 0; i < text.size(); i += 7) text[i] = static_cast<char>('a' + i % 26);
  {
    File out(path, File::Access::createOrTruncate);
    out.write(text);
    out.close();
  }
  EXPECT_EQ(readFile(path), text);
  FileInputStream<char> in(path);
  EXPECT_EQ(readAll(in), text);
}

TEST(FileStreamTest, CreateOrTruncateEmptiesAnExistingFile) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "file.txt";
  writeFile(path, "old content that is long");
  File out(path, File::Access::createOrTruncate);
  out.write(std::string_view("new"));
  out.close();
  EXPECT_EQ(readFile(path), "new");
}

TEST(FileStreamTest, MissingFileIsFileNotFoundErrorNamingTheFile) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "missing.json";
  try {
    FileInputStream<char> in(path);
    FAIL() << "opened a missing file";
  } catch (const FileNotFoundError& error) {
    const std::string what = error.what();
    EXPECT_NE(what.find(path.string()), std::string::npos) << what;
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(error.path(), path);
  }
}

TEST(FileStreamTest, FileNotFoundErrorIsAStandardException) {
  TemporaryDirectory directory;
  EXPECT_THROW(FileInputStream<char>(directory.path() / "missing"), std::system_error);
  EXPECT_THROW(FileInputStream<char>(directory.path() / "missing"), std::exception);
}

TEST(FileStreamTest, OtherOpenFailuresNameOperationFileAndReason) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "secret";
  writeFile(path, "x");
  ::chmod(path.c_str(), 0);
  korvane::testing::runUnprivileged(
      [&] {
        try {
          FileInputStream<char> in(path);
          FAIL() << "opened an unreadable file";
        } catch (const FileNotFoundError&) {
          FAIL() << "not a missing file";
        } catch (const std::system_error& error) {
          EXPECT_EQ(std::string(error.what()),
                    "could not open \"" + path.string() + "\": Permission denied");
        }
      },
      {directory.path(), path});
}

TEST(FileStreamTest, ReadingADirectoryFailsWithAReadError) {
  TemporaryDirectory directory;
  FileInputStream<char> in(directory.path());
  try {
    (void)in.get();
    FAIL() << "read a directory";
  } catch (const std::system_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "could not read \"" + directory.path().string() + "\": Is a directory");
  }
}

TEST(FileStreamTest, WriteFailureNamesOperationFileAndReason) {
  File out("/dev/full", File::Access::createOrTruncate);
  try {
    out.write(std::string_view("some text"));
    FAIL() << "no error from a full device";
  } catch (const std::system_error& error) {
    EXPECT_EQ(std::string(error.what()), "could not write \"/dev/full\": No space left on device");
  }
}

TEST(FileStreamTest, NewFilePermissionsAndSetPermissions) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "private";
  const mode_t old = ::umask(0);
  File file(path, File::Access::createOrTruncate,
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  ::umask(old);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  file.setPermissions(std::filesystem::perms::owner_read | std::filesystem::perms::group_read);
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0440u);
}

TEST(FileStreamTest, StandardInputPseudoFile) {
  File file(File::PseudoFile::standardInput);
  EXPECT_TRUE(file.isOpen());
  EXPECT_EQ(file.path(), "standard input");
  EXPECT_EQ(file.nativeHandle(), 0);
}

TEST(FileStreamTest, FifoWithoutWriterReadsAsEmpty) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  FileInputStream<char> in(path);  // must not block
  EXPECT_EQ(in.get(), -1);
}

// A large regular file is read ahead once `readAheadAfter` bytes were read
// directly; what the scanner sees is the same, byte for byte and offset for
// offset, with every split between the two.
TEST(FileStreamTest, ALargeFileIsReadAheadWithTheSameContent) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "large.json";
  std::string text(300000, '\0');
  for (std::size_t i = 0; i < text.size(); ++i)
    text[i] = static_cast<char>('a' + (i * 5 + i / 9) % 26);
  writeFile(path, text);
  for (const std::size_t after : {std::size_t{1}, std::size_t{65536}, std::size_t{65537},
                                  std::size_t{299999}, std::size_t{300000}, std::size_t{300001}}) {
    SCOPED_TRACE(after);
    FileInputStream<char> in(path, after);
    EXPECT_EQ(readAll(in), text);
    EXPECT_EQ(in.offset(), text.size());
    // Only what proved large once read is read ahead.
    EXPECT_EQ(in.readsAhead(), after <= text.size());
  }
  FileInputStream<char> byDefault(path);
  EXPECT_EQ(readAll(byDefault), text);
  EXPECT_FALSE(byDefault.readsAhead());
}

// A stream told to read alone starts no worker, however much it reads,
// until it is allowed to again: then the next refill starts one, and the
// content is the same either way.
TEST(FileStreamTest, AStreamToldToReadAloneIsReadAheadOnlyOnceAllowedAgain) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "large.json";
  std::string text(300000, '\0');
  for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i % 23);
  writeFile(path, text);
  FileInputStream<char> alone(path, 1);
  alone.readAlone();
  EXPECT_EQ(readAll(alone), text);
  EXPECT_FALSE(alone.readsAhead());

  FileInputStream<char> in(path, 1);
  in.readAlone();
  std::string read;
  while (read.size() < 100000 && in.ensureBuffer()) {
    const auto buffered = in.buffered();
    read.append(buffered.data(), buffered.size());
    in.consume(buffered.size());
  }
  EXPECT_FALSE(in.readsAhead());
  in.allowReadAhead();
  read += readAll(in);
  EXPECT_TRUE(in.readsAhead());
  EXPECT_EQ(read, text);
}

// A pipe has no size to prove and may block: it is always read directly.
TEST(FileStreamTest, APipeIsNeverReadAhead) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const std::string text(100000, 'p');
  std::thread writer([&] {
    File out(static_cast<File::NativeHandle>(ends[1]), "pipe");
    out.write(text);
  });
  FileInputStream<char> in(File(static_cast<File::NativeHandle>(ends[0]), "pipe"), 1);
  EXPECT_EQ(readAll(in), text);
  EXPECT_FALSE(in.readsAhead());
  writer.join();
}

}  // namespace
}  // namespace korvane::utils::io
