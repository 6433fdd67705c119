// The copy over a target that cannot be renamed over, on plain files: it
// writes the new content over the target only while both files are still
// the ones the run wrote and read.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "utils/io/File.h"
#include "utils/io/InPlaceCopy.h"
#include "utils/io/PosixDescriptor.h"
#include "utils/io/ReplacementTarget.h"

namespace korvane::utils::io::detail {
namespace {

using korvane::testing::readFile;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

// The identity of the file at `path` now.
ReplacedFile identityOf(const std::filesystem::path& path) {
  PosixDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(fd.valid()) << path;
  return ReplacementTarget::identify(File(fd.release(), path));
}

class InPlaceCopyTest : public ::testing::Test {
 protected:
  InPlaceCopyTest()
      : from_(directory_.path() / "passwords.json.new"),
        to_(directory_.path() / "passwords.json"),
        folderDescriptor_(::open(directory_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    writeFile(from_, "new content");
    writeFile(to_, "the old, longer content");
  }

  void copy(const ReplacedFile& written, const ReplacedFile& replaced) {
    const InPlaceCopy copy{from_,
                           to_,
                           std::make_error_code(std::errc::device_or_resource_busy),
                           folderDescriptor_.get(),
                           fromName_,
                           toName_};
    copyInPlace(copy, written, replaced);
  }

  // Puts another file at the name of `path`, one of the two, after both
  // were identified: the copy must refuse to run.
  void expectRefusedAfterSwapping(const std::filesystem::path& path, const std::string& content) {
    const ReplacedFile written = identityOf(from_);
    const ReplacedFile replaced = identityOf(to_);
    swap(path, content);
    try {
      copy(written, replaced);
      ADD_FAILURE() << "copied although " << path << " was replaced";
    } catch (const std::exception& error) {
      EXPECT_NE(std::string(error.what()).find("was changed or replaced by another program"),
                std::string::npos)
          << error.what();
    }
  }

  // Puts another file at `path`'s name.
  void swap(const std::filesystem::path& path, const std::string& content) {
    const std::filesystem::path other = directory_.path() / "other";
    writeFile(other, content);
    std::filesystem::rename(other, path);
  }

  TemporaryDirectory directory_;
  const std::filesystem::path from_;
  const std::filesystem::path to_;
  const std::filesystem::path fromName_ = "passwords.json.new";
  const std::filesystem::path toName_ = "passwords.json";
  PosixDescriptor folderDescriptor_;
};

TEST_F(InPlaceCopyTest, TheTargetTakesTheContentAndTheNewFileGoes) {
  copy(identityOf(from_), identityOf(to_));
  EXPECT_EQ(readFile(to_), "new content");
  EXPECT_FALSE(std::filesystem::exists(from_));
}

TEST_F(InPlaceCopyTest, ATargetReplacedMeanwhileIsLeftAlone) {
  expectRefusedAfterSwapping(to_, "another program's file");
  EXPECT_EQ(readFile(to_), "another program's file");
  EXPECT_EQ(readFile(from_), "new content");
}

TEST_F(InPlaceCopyTest, ANewFileReplacedMeanwhileIsNotCopied) {
  expectRefusedAfterSwapping(from_, "planted content");
  EXPECT_EQ(readFile(to_), "the old, longer content");
}

}  // namespace
}  // namespace korvane::utils::io::detail
