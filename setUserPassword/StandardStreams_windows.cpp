#include <windows.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <optional>
#include <streambuf>
#include <string>
#include <string_view>

#include "setUserPassword/StandardStreams.h"
#include "utils/string/Utf8.h"

namespace korvane::setUserPassword {

namespace {

using utils::string::Utf8Sequence;

bool isConsole(HANDLE handle) {
  DWORD mode = 0;
  return handle != INVALID_HANDLE_VALUE && handle != nullptr && ::GetConsoleMode(handle, &mode);
}

// Whether `text` is the start of one well-formed sequence that the next
// write may complete.
bool isCutShort(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  if (!utils::string::isUtf8Lead(lead) || utils::string::utf8SequenceLength(lead) <= text.size()) {
    return false;
  }
  for (const char byte : text.substr(1)) {
    if (!utils::string::isUtf8Continuation(static_cast<unsigned char>(byte))) return false;
  }
  return true;
}

// Writes the UTF-8 text it is given to a console as UTF-16, at once: nothing
// is held back but the start of a sequence that a write cut in two, so the
// order with the line editor's own console output stays as written. A line
// feed becomes "\r\n", as the C runtime writes it to a console.
class ConsoleBuffer final : public std::streambuf {
 public:
  explicit ConsoleBuffer(HANDLE console) : console_(console) {}

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char byte = traits_type::to_char_type(c);
    return write(std::string_view(&byte, 1)) ? c : traits_type::eof();
  }

  std::streamsize xsputn(const char* bytes, std::streamsize count) override {
    return write(std::string_view(bytes, static_cast<std::size_t>(count))) ? count : 0;
  }

 private:
  bool write(std::string_view bytes) {
    pending_.append(bytes);
    std::u16string wide;
    wide.reserve(pending_.size() + 8);
    std::string_view text = pending_;
    std::array<char16_t, 2> units{};
    while (!text.empty() && !isCutShort(text)) {
      const Utf8Sequence sequence =
          utils::string::decodeUtf8(text, utils::string::Utf8Malformed::reject);
      if (!sequence.wellFormed) {
        // A byte that is no text: shown as such, and the next byte read afresh.
        wide.push_back(static_cast<char16_t>(utils::string::replacementCharacter));
        text.remove_prefix(1);
        continue;
      }
      if (sequence.codePoint == U'\n') wide.push_back(u'\r');
      wide.append(units.data(), utils::string::encodeUtf16(sequence.codePoint, units));
      text.remove_prefix(sequence.length);
    }
    pending_.erase(0, pending_.size() - text.size());
    return writeConsole(wide);
  }

  bool writeConsole(std::u16string_view wide) const {
    while (!wide.empty()) {
      const auto chunk = static_cast<DWORD>(std::min<std::size_t>(wide.size(), 8192));
      DWORD written = 0;
      if (!::WriteConsoleW(console_, wide.data(), chunk, &written, nullptr) || written == 0) {
        return false;
      }
      wide.remove_prefix(written);
    }
    return true;
  }

  HANDLE console_;
  std::string pending_;
};

// Gives a stream a console buffer for the rest of the run, and its own
// buffer back before the standard streams are flushed for the last time at
// exit.
class ConsoleStream {
 public:
  ConsoleStream(std::ostream& stream, HANDLE console)
      : stream_(stream), buffer_(console), previous_(stream.rdbuf(&buffer_)) {}
  ConsoleStream(const ConsoleStream&) = delete;
  ConsoleStream& operator=(const ConsoleStream&) = delete;
  ~ConsoleStream() {
    stream_.flush();
    stream_.rdbuf(previous_);
  }

 private:
  std::ostream& stream_;
  ConsoleBuffer buffer_;
  std::streambuf* previous_;
};

}  // namespace

void prepareStandardStreams() {
  // Constructed after the standard streams, so destroyed before their last
  // flush.
  static std::optional<ConsoleStream> output;
  static std::optional<ConsoleStream> error;
  const HANDLE outputHandle = ::GetStdHandle(STD_OUTPUT_HANDLE);
  if (!output && isConsole(outputHandle)) output.emplace(std::cout, outputHandle);
  const HANDLE errorHandle = ::GetStdHandle(STD_ERROR_HANDLE);
  if (!error && isConsole(errorHandle)) error.emplace(std::cerr, errorHandle);
}

}  // namespace korvane::setUserPassword
