// A terminal for tests: keys come from a script, every write is recorded.
#pragma once

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

  bool readKey(KeyCode& key) override {
    if (nextKey_ == keys_.size()) return false;
    key = keys_[nextKey_++];
    return true;
  }

  bool write(std::string_view bytes) override {
    if (writesBeforeFailure_ == 0) return false;
    if (writesBeforeFailure_ > 0) --writesBeforeFailure_;
    writes_.emplace_back(bytes);
    return true;
  }

  int columns() override { return columns_; }

  // Writes after the next n succeed fail.
  void failWritesAfter(int n) { writesBeforeFailure_ = n; }

  const std::vector<std::string>& writes() const { return writes_; }
  std::string output() const {
    std::string all;
    for (const std::string& w : writes_) all += w;
    return all;
  }
  std::size_t keysLeft() const { return keys_.size() - nextKey_; }

 private:
  std::u32string keys_;
  int columns_;
  std::size_t nextKey_ = 0;
  int writesBeforeFailure_ = -1;
  std::vector<std::string> writes_;
};

}  // namespace korvane::lineEdit::test
