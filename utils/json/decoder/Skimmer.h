// Skimmer: a fast, validating cursor over the raw bytes of one JSON text,
// for a first pass that settles the common case quickly and leaves every
// other case to the exact decoder (Document).
//
// Purpose. The Skimmer keeps no line or column and builds nothing; it
// hands out the raw bytes of strings and skips everything else. In return
// it never reports an error: on anything it does not accept it gives up
// (giveUp() unwinds to attempt(), which returns false) and the caller runs
// the exact decoder over the same input, which then finds the error and
// says where it is. So a walk that attempt() completes proves that the
// exact decoder reads the same text without an error: every byte the
// Skimmer passes is checked against the same strict grammar (RFC 8259;
// strict UTF-8 as utils/string/Utf8.h defines it; no raw control
// character or NUL byte in a string; escapes checked, surrogates paired;
// the number grammar; the three literals; a byte order mark only at the
// very start; nothing but whitespace after the top-level value).
//
// Limits (beyond them it gives up, it never fails): a token (a string, a
// number, a member name with the whitespace after it) must fit in the
// window; skipped values may nest at most maxSkipDepth levels deep; a
// member name that nextMember() hands out is at most the decoder's
// Parser::maxNameLength bytes, raw. A string
// holding an escape is validated but handed out raw, marked as escaped;
// callers that would need its decoded text give up instead.
//
// Input comes from a Reader in blocks into the Skimmer's own window. A
// token that the end of the buffered bytes cuts is finished after the
// unread tail has been moved to the window's front and the window refilled.
// A Reader's exception is no giving up: it leaves attempt() as it is, so
// that a read failure is reported as such, and a failure that would not
// strike again cannot be hidden by a second reading. (The exact pass reads
// in smaller blocks, so in a file that is also malformed it might have met
// the malformed text first; a failing disk is the more useful report.)
//
// Thread safety: one Skimmer, one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>

#include "utils/json/ScanKernels.h"

namespace korvane::utils::json::decoder {

// The raw text of a string, between its quotes. Valid until the next call
// on the Skimmer.
struct SkimmedString {
  std::string_view raw;
  bool escaped = false;  // raw holds at least one escape sequence
};

class Skimmer {
 public:
  // Reads at most into.size() bytes; returns 0 only at the end of the input.
  using Reader = std::function<std::size_t(std::span<char>)>;

  static constexpr std::size_t defaultWindow = 256 * 1024;
  static constexpr std::size_t maxSkipDepth = 64;

  // REQUIRES: window >= 16.
  explicit Skimmer(Reader reader, std::size_t window = defaultWindow);

  Skimmer(const Skimmer&) = delete;
  Skimmer& operator=(const Skimmer&) = delete;

  // Runs `walk` (which calls the operations below) and returns true when
  // it completed, false when the walk or the Skimmer gave up. The Reader's
  // exceptions (and the walk's own) pass through.
  template <typename Walk>
  bool attempt(Walk&& walk) {
    try {
      walk();
      return true;
    } catch (const GiveUp&) {
      return false;
    }
  }

  // Leaves the walk. REQUIRES: called inside attempt().
  [[noreturn]] static void giveUp();

  // The operations. REQUIRES: called inside attempt(), in the order of the
  // text: startDocument() first, then one value read or skipped at a
  // time, finish() last.

  // Skips a byte order mark at the very start, and whitespace.
  void startDocument();
  // The next value is an object (array): consumes its opening character.
  void openObject();
  void openArray();
  // The next member of the object just opened: false after its closing
  // '}'; otherwise its name, after which its value is next. `started`
  // belongs to the object: false when opened, kept by the calls.
  bool nextMember(bool& started, SkimmedString& name);
  // The same for the elements of an array; the element is next.
  bool nextElement(bool& started);
  // The next value, which is a string.
  SkimmedString readString();
  // Skips the next value, whatever it is.
  void skipValue();
  // Only whitespace follows, up to the end of the input.
  void finish();

 private:
  struct GiveUp {};

  // Zeroed bytes after the buffered ones: a NUL byte ends every run of
  // string characters, whitespace and digits, so the scans need no bound
  // of their own, and the 16-byte loads stay inside the buffer.
  static constexpr std::size_t padding = 64;

  bool refill();
  bool more(const char*& p);
  void ensure(const char*& p, std::size_t count);
  // Sets mark_ to the next byte. Inline: most whitespace between tokens is
  // none or one space.
  void skipWhitespace() {
    mark_ = p_;
    const auto first = static_cast<unsigned char>(p_[0]);
    if (first > ' ') return;
    if (first == ' ' && static_cast<unsigned char>(p_[1]) > ' ') {
      ++p_;
      return;
    }
    skipWhitespaceFrom(p_);
  }
  void skipWhitespaceFrom(const char* p);
  void require(char c);
  void skipString();
  // From just after an opening quote (mark_ on it) to the closing quote,
  // which it returns. Inline for the common case: the closing quote among
  // the next 16 bytes with no other special byte before it.
  const char* findClosingQuote(const char* p, bool& escaped) {
#if KORVANE_JSON_SSE2
    if (wide_) {
      const unsigned special = json::detail::specialStringBytes16(p);
      if (special != 0) {
        const char* const first = p + std::countr_zero(special);
        if (*first == '"') return first;
      }
    }
#endif
    return scanStringBody(p, escaped);
  }
  const char* scanStringBody(const char* p, bool& escaped);
  const char* skipEscape(const char* p);
  const char* skipUtf8(const char* p);
  void skipNumber();
  void skipLiteral(std::string_view literal);

  Reader reader_;
  const json::detail::ScanKernels& kernels_;
  bool wide_;  // the kernels are SSE2 or wider
  std::size_t window_;
  std::unique_ptr<char[]> buffer_;
  const char* p_;     // the next byte
  const char* end_;   // just past the buffered bytes (a NUL byte is there)
  const char* mark_;  // the first byte a refill keeps: the current token's
  bool ended_ = false;
};

}  // namespace korvane::utils::json::decoder
