// TerminalKeyDecoder turns the bytes a terminal sends for key presses into
// the edit loop's key codes (UTF-16 code units); it is the POSIX terminal's
// one key function (portable code, built and tested on every system):
//   - bytes 1 to 31 and 127 as they are, except line feed (10), which is 13;
//   - a lone ESC, with no further byte within 100 ms, is 3 (cancel);
//   - ESC [ A / B / C / D are 16 / 14 / 6 / 2 (Up, Down, Right, Left);
//   - ESC [ H, ESC O H, ESC [ 1 ~, ESC [ 7 ~ are 1 (Home);
//   - ESC [ F, ESC O F, ESC [ 4 ~, ESC [ 8 ~ are 5 (End);
//   - ESC [ 3 ~ is 4 (Delete);
//   - any other escape sequence is read to its end, however long, and
//     ignored;
//   - UTF-8 becomes code points, handed on as UTF-16 code units (a surrogate
//     pair above U+FFFF). NUL bytes are skipped;
//   - bytes that are not well-formed UTF-8 are keys::notUtf8, once for each
//     byte that begins no character (a stray continuation byte, C0, C1,
//     F5 to FF) and once for each sequence that turns out malformed
//     (overlong, a surrogate, above U+10FFFF) or is cut short by another
//     byte, a pause or the end of input.
//
// Once the source has reported the end of input or a failure, every later
// read reports the same (a failure with the same errno), so that a key cut
// short by it is not followed by more keys.
//
// Thread safety: one decoder per input, used by one thread.
#pragma once

#include "lineEdit/KeyCode.h"

namespace korvane::lineEdit {

class TerminalKeyDecoder {
 public:
  // Where the bytes come from.
  class ByteSource {
   public:
    virtual ~ByteSource() = default;

    // Reads one byte, waiting at most timeoutMilliseconds (without limit when
    // negative). Returns 1 with the byte, 0 at the end of input, or -1 with
    // errno: ETIMEDOUT when no byte came in time, otherwise the read error.
    virtual int read(unsigned char& byte, int timeoutMilliseconds) = 0;
  };

  // How long the bytes of one key may lag behind each other.
  static constexpr int sequenceTimeoutMilliseconds = 100;

  explicit TerminalKeyDecoder(ByteSource& source);
  TerminalKeyDecoder(const TerminalKeyDecoder&) = delete;
  TerminalKeyDecoder& operator=(const TerminalKeyDecoder&) = delete;
  ~TerminalKeyDecoder();

  // Reads the next key code: a UTF-16 code unit or keys::notUtf8. Returns
  // 1 with a key, 0 at the end of input, -1 with errno on a read error.
  int readKey(KeyCode& key);

 private:
  // One byte: the pushed-back one, or the source's (ByteSource::read's
  // results), or the end the source reported before, again.
  int next(unsigned char& byte, int timeoutMilliseconds);
  void pushBack(unsigned char byte);
  // Each returns 0 when the bytes make no key (read on), or a key code.
  char32_t decodeEscape();
  char32_t decodeControlSequence();
  char32_t decodeUtf8(unsigned char lead);

  ByteSource& source_;
  bool hasPushedBack_ = false;
  unsigned char pushedBack_ = 0;
  char16_t pendingLowSurrogate_ = 0;
  bool inputEnded_ = false;  // the source reported the end or a failure
  int endResult_ = 0;        // what it reported: 0, or -1 with endErrno_
  int endErrno_ = 0;
};

}  // namespace korvane::lineEdit
