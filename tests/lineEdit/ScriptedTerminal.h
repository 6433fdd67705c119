// A terminal for tests: keys come from a script, every write is recorded.
// After the last key the input ends, or, when told so, reading fails. Like
// the real console it reports a failure as -1 with errno.
#pragma once

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "lineEdit/EditTerminal.h"

namespace korvane::lineEdit::test {

class ScriptedTerminal : public EditTerminal {
 public:
  // UTF-16 code units, or key codes of any value.
  explicit ScriptedTerminal(std::u16string_view keys, int columns = 80)
      : keys_(keys.begin(), keys.end()), columns_(columns) {}
  explicit ScriptedTerminal(std::u32string keys, int columns = 80)
      : keys_(std::move(keys)), columns_(columns) {}

  int readKey(KeyCode& key) override {
    ++reads_;
    if (nextKey_ == keys_.size()) {
      if (readErrno_ == 0) return 0;
      errno = readErrno_;
      return -1;
    }
    key = keys_[nextKey_++];
    return 1;
  }

  int write(std::string_view bytes) override {
    if (writesBeforeFailure_ == 0) {
      errno = EIO;
      return -1;
    }
    if (writesBeforeFailure_ > 0) --writesBeforeFailure_;
    writes_.emplace_back(bytes);
    return 0;
  }

  int columns() override { return columns_; }

  // Writes after the next n succeed fail with EIO.
  void failWritesAfter(int n) { writesBeforeFailure_ = n; }
  // Reading after the last key fails with errno `error` instead of ending.
  void failReadsAtEnd(int error) { readErrno_ = error; }

  const std::vector<std::string>& writes() const { return writes_; }
  std::string output() const {
    std::string all;
    for (const std::string& w : writes_) all += w;
    return all;
  }
  std::size_t keysLeft() const { return keys_.size() - nextKey_; }
  // Every read, also those past the last key.
  std::size_t reads() const { return reads_; }

 private:
  std::u32string keys_;
  int columns_;
  std::size_t nextKey_ = 0;
  int writesBeforeFailure_ = -1;
  int readErrno_ = 0;
  std::size_t reads_ = 0;
  std::vector<std::string> writes_;
};

}  // namespace korvane::lineEdit::test
