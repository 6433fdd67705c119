// Feeds arbitrary key streams to the edit loop and checks what must always
// hold: the line stays within the buffer and NUL-terminated, and on one row
// the prompt and the visible text never take more than the screen's width.
//
// Input: byte 0 selects the settings (bit 0 multi-line, bit 1 masked, bit 2
// a filled history, bit 3 a wide prompt), byte 1 the width (1 to 128). The
// rest is the key stream: a byte below 0xF0 is that key code, 0xFF is the
// delete-character command, 0xFE the mark of bytes that are not UTF-8, and
// 0xF0 to 0xFD take the next two bytes as a UTF-16 code unit (low byte
// first). The input ends after the last key.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "lineEdit/CharacterWidth.h"
#include "lineEdit/EditLoop.h"
#include "lineEdit/EditTerminal.h"
#include "lineEdit/History.h"

namespace {

using korvane::lineEdit::columnWidth;

class FuzzTerminal : public korvane::lineEdit::EditTerminal {
 public:
  FuzzTerminal(const std::uint8_t* data, std::size_t size, int columns, std::string_view prompt,
               bool checkWidth)
      : data_(data), size_(size), columns_(columns), prompt_(prompt), checkWidth_(checkWidth) {}

  // 1 with a key, 0 at the end of the data.
  int readKey(korvane::lineEdit::KeyCode& key) override {
    if (next_ == size_) return 0;
    const std::uint8_t byte = data_[next_++];
    if (byte < 0xF0) {
      key = byte;
      return 1;
    }
    if (byte == 0xFF) {
      key = korvane::lineEdit::keys::deleteCharacter;
      return 1;
    }
    if (byte == 0xFE) {
      key = korvane::lineEdit::keys::notUtf8;
      return 1;
    }
    if (size_ - next_ < 2) return 0;
    key = static_cast<char16_t>(data_[next_] | (data_[next_ + 1] << 8));
    next_ += 2;
    return 1;
  }

  int write(std::string_view bytes) override {
    if (checkWidth_ && !bytes.empty() && bytes[0] == '\r') checkRefresh(bytes);
    return 0;
  }

  int columns() override { return columns_; }

 private:
  // "\r", the prompt, the visible text, "\x1b[0K", "\r\x1b[<n>C".
  void checkRefresh(std::string_view bytes) const {
    if (bytes.substr(1, prompt_.size()) != prompt_) std::abort();
    const std::size_t clear = bytes.find("\x1b[0K", 1 + prompt_.size());
    if (clear == std::string_view::npos) std::abort();
    const std::string_view visible = bytes.substr(1 + prompt_.size(), clear - 1 - prompt_.size());
    const std::size_t promptColumns = columnWidth(prompt_);
    const auto width = static_cast<std::size_t>(columns_);
    if (promptColumns >= width) return;
    if (promptColumns + columnWidth(visible) > width) std::abort();
    const std::size_t cursor =
        std::strtoul(std::string(bytes.substr(clear + 7)).c_str(), nullptr, 10);
    if (cursor >= width) std::abort();
  }

  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t next_ = 0;
  int columns_;
  std::string_view prompt_;
  bool checkWidth_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::uint8_t flags = data[0];
  const int columns = data[1] % 128 + 1;
  korvane::lineEdit::EditSettings settings;
  settings.multiLine = (flags & 1) != 0;
  settings.masked = (flags & 2) != 0;
  const std::string_view prompt =
      (flags & 8) != 0 ? "\x1b[1m\xe5\xaf\x86\xe7\xa0\x81\x1b[0m: " : "> ";

  korvane::lineEdit::History history;
  if ((flags & 4) != 0) {
    history.add("first");
    history.add("\xe4\xb8\xad\xcc\x81x");
    history.add(std::string(5000, 'h'));  // longer than the buffer
  }
  FuzzTerminal terminal(data + 2, size - 2, columns, prompt, !settings.multiLine);
  std::vector<char> buffer(korvane::lineEdit::EditLoop::bufferSize);
  korvane::lineEdit::EditLoop loop(terminal, settings, history);
  const korvane::lineEdit::LineResult result = loop.run(buffer, prompt);
  using korvane::lineEdit::LineEnd;
  if (result.length > buffer.size() - 1) std::abort();
  if (result.end == LineEnd::accepted && buffer[result.length] != '\0') std::abort();
  // Only Enter gives a line; every other end leaves none behind.
  if (result.end != LineEnd::accepted) {
    for (const char c : buffer) {
      if (c != '\0') std::abort();
    }
  }
  if (history.size() > korvane::lineEdit::History::historyMaxLength) std::abort();
  return 0;
}
