#include "lineEdit/TerminalKeyDecoder.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <span>
#include <string_view>

#include "utils/core/SecureZero.h"
#include "utils/string/Utf8.h"

namespace korvane::lineEdit {

namespace {

constexpr unsigned char escape = 27;

// Parameter bytes of a control sequence kept to recognise a key. No key has
// more than one; a longer sequence is still read to its end, only counted.
constexpr std::size_t keptParameterLength = 4;

bool isParameterByte(unsigned char byte) { return byte >= 0x30 && byte <= 0x3F; }
bool isIntermediateByte(unsigned char byte) { return byte >= 0x20 && byte <= 0x2F; }
bool isFinalByte(unsigned char byte) { return byte >= 0x40 && byte <= 0x7E; }

// Whether a read gave up waiting for the rest of a key.
bool timedOut(int result) { return result < 0 && errno == ETIMEDOUT; }

char32_t keyForCsi(std::string_view parameters, unsigned char final) {
  if (parameters.empty()) return keys::forControlSequenceFinal(static_cast<char>(final));
  if (final != '~') return 0;
  if (parameters == "1" || parameters == "7") return keys::home;
  if (parameters == "4" || parameters == "8") return keys::end;
  if (parameters == "3") return keys::deleteOrEnd;
  return 0;
}

}  // namespace

TerminalKeyDecoder::TerminalKeyDecoder(ByteSource& source) : source_(source) {}

TerminalKeyDecoder::~TerminalKeyDecoder() {
  // These may hold part of a typed secret.
  *static_cast<volatile unsigned char*>(&pushedBack_) = 0;
  *static_cast<volatile char16_t*>(&pendingLowSurrogate_) = 0;
}

int TerminalKeyDecoder::readKey(KeyCode& key) {
  if (pendingLowSurrogate_ != 0) {
    key = pendingLowSurrogate_;
    pendingLowSurrogate_ = 0;
    return 1;
  }
  for (;;) {
    unsigned char byte = 0;
    // Untimed, so anything but a byte is the end or a failure.
    if (const int result = next(byte, -1); result != 1) return result;
    char32_t code = 0;
    if (byte == escape) {
      code = decodeEscape();
    } else if (byte == '\n') {
      code = keys::enter;
    } else if (byte < 0x80) {
      code = byte;  // NUL stays 0 and is skipped
    } else {
      code = decodeUtf8(byte);
    }
    if (code == 0) continue;
    if (code == keys::notUtf8) {
      key = code;
      return 1;
    }
    std::array<char16_t, 2> units{};
    if (utils::string::encodeUtf16(code, units) == 2) pendingLowSurrogate_ = units[1];
    key = units[0];
    return 1;
  }
}

int TerminalKeyDecoder::next(unsigned char& byte, int timeoutMilliseconds) {
  if (hasPushedBack_) {
    hasPushedBack_ = false;
    byte = pushedBack_;
    pushedBack_ = 0;
    return 1;
  }
  if (inputEnded_) {
    errno = endErrno_;
    return endResult_;
  }
  const int result = source_.read(byte, timeoutMilliseconds);
  if (result == 0 || (result < 0 && errno != ETIMEDOUT)) {
    inputEnded_ = true;
    endResult_ = result;
    endErrno_ = result < 0 ? errno : 0;
  }
  return result;
}

void TerminalKeyDecoder::pushBack(unsigned char byte) {
  hasPushedBack_ = true;
  pushedBack_ = byte;
}

char32_t TerminalKeyDecoder::decodeEscape() {
  unsigned char byte = 0;
  const int result = next(byte, sequenceTimeoutMilliseconds);
  if (timedOut(result)) return keys::cancel;  // a lone ESC: the Escape key
  if (result != 1) return 0;                  // the input ends; readKey reports it
  if (byte == '[') return decodeControlSequence();
  if (byte == 'O') {
    if (next(byte, sequenceTimeoutMilliseconds) != 1) return 0;
    const KeyCode key = keys::forSingleShiftFinal(static_cast<char>(byte));
    if (key != 0) return key;
    if (!isFinalByte(byte)) pushBack(byte);
    return 0;
  }
  if (byte >= 0x20 && byte < 0x7F) return 0;  // ESC and one character (Alt)
  // ESC before a control key or a non-ASCII character: the Escape key itself.
  pushBack(byte);
  return keys::cancel;
}

char32_t TerminalKeyDecoder::decodeControlSequence() {
  std::array<char, keptParameterLength> parameters{};
  // Counts past what is kept, up to one more: enough to tell the sequence is
  // no key, and it cannot overflow however long the sequence is.
  std::size_t parameterCount = 0;
  bool wellFormed = true;  // parameters, then intermediates, then the final
  bool sawIntermediate = false;
  // However many bytes come, the sequence ends only at its final byte, so
  // that none of it is taken for typed text.
  for (;;) {
    unsigned char byte = 0;
    if (next(byte, sequenceTimeoutMilliseconds) != 1) return 0;
    if (isParameterByte(byte)) {
      if (sawIntermediate) wellFormed = false;
      if (parameterCount < parameters.size()) {
        parameters[parameterCount] = static_cast<char>(byte);
      }
      if (parameterCount <= parameters.size()) ++parameterCount;
    } else if (isIntermediateByte(byte)) {
      sawIntermediate = true;
    } else if (isFinalByte(byte)) {
      if (!wellFormed || sawIntermediate || parameterCount > parameters.size()) return 0;
      return keyForCsi(std::string_view(parameters.data(), parameterCount), byte);
    } else {
      // Not part of a sequence: a key of its own that cut this one short.
      pushBack(byte);
      return 0;
    }
  }
}

char32_t TerminalKeyDecoder::decodeUtf8(unsigned char lead) {
  // A continuation byte or a byte that begins no well-formed sequence.
  if (!utils::string::isUtf8Lead(lead)) return keys::notUtf8;
  // The bytes are part of a typed secret: zeroed on every way out.
  struct Sequence {
    std::array<char, 4> bytes{};
    ~Sequence() { utils::core::secureZero(std::span<char>(bytes)); }
  } sequence;
  sequence.bytes[0] = static_cast<char>(lead);
  const std::size_t length = utils::string::utf8SequenceLength(lead);
  for (std::size_t i = 1; i < length; ++i) {
    unsigned char byte = 0;
    if (next(byte, sequenceTimeoutMilliseconds) != 1) return keys::notUtf8;
    if (!utils::string::isUtf8Continuation(byte)) {
      pushBack(byte);  // the start of the next key
      return keys::notUtf8;
    }
    sequence.bytes[i] = static_cast<char>(byte);
  }
  const utils::string::Utf8Sequence decoded = utils::string::decodeUtf8(
      std::string_view(sequence.bytes.data(), length), utils::string::Utf8Malformed::reject);
  return decoded.wellFormed ? decoded.codePoint : keys::notUtf8;
}

}  // namespace korvane::lineEdit
