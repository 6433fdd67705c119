// A terminal for tests: keys and escape bytes come from scripts, every write
// is recorded.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "lineEdit/EditTerminal.h"

namespace korvane::lineEdit::test {

class ScriptedTerminal : public EditTerminal {
 public:
  explicit ScriptedTerminal(std::u16string keys, std::string bytes = {},
                            int columns = 80)
      : keys_(std::move(keys)), bytes_(std::move(bytes)), columns_(columns) {}

  bool readKey(char16_t& key) override {
    if (nextKey_ == keys_.size()) return false;
    key = keys_[nextKey_++];
    return true;
  }

  bool readByte(char& byte) override {
    if (nextByte_ == bytes_.size()) return false;
    byte = bytes_[nextByte_++];
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
  std::size_t bytesLeft() const { return bytes_.size() - nextByte_; }

 private:
  std::u16string keys_;
  std::string bytes_;
  int columns_;
  std::size_t nextKey_ = 0;
  std::size_t nextByte_ = 0;
  int writesBeforeFailure_ = -1;
  std::vector<std::string> writes_;
};

}  // namespace korvane::lineEdit::test
