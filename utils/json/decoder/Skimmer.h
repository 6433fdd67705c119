// Skimmer: a fast, validating cursor over the raw bytes of one JSON text,
// for a first pass that settles the common case quickly and leaves every
// other case to the exact decoder (Document). Both walk the text with the
// same grammar (Grammar.h); the Skimmer runs it with the policy that gives
// up where the decoder would locate an error and throw it.
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
// number, a run of whitespace, a member name with the whitespace after it)
// must fit in the window; skipped values may nest at most maxSkipDepth
// levels deep.
// Member names are held to the decoder's limit (detail::maxNameLength
// bytes, decoded). A string holding an escape is validated but handed out
// raw, marked as escaped; callers that would need its decoded text give up
// instead.
//
// Input comes from a Reader in blocks into the Skimmer's own window. A
// token that the end of the buffered bytes cuts is finished after it has
// been moved to the window's front and the window refilled.
// A Reader's exception is no giving up: it leaves attempt() as it is, so
// that a read failure is reported as such, and a failure that would not
// strike again cannot be hidden by a second reading. (The exact pass reads
// in smaller blocks, so in a file that is also malformed it might have met
// the malformed text first; a failing disk is the more useful report.)
//
// Thread safety: one Skimmer, one thread.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>

#include "utils/json/ScanKernels.h"
#include "utils/json/decoder/Grammar.h"

namespace korvane::utils::json::decoder {

// The raw text of a string, between its quotes. Valid until the next call
// on the Skimmer.
struct SkimmedString {
  std::string_view raw;
  bool escaped = false;  // raw holds at least one escape sequence
};

class Skimmer : private detail::Grammar<Skimmer> {
 public:
  // Reads at most into.size() bytes; returns 0 only at the end of the input.
  using Reader = std::function<std::size_t(std::span<char>)>;

  // Holds the longest member name with room to spare; small enough to come
  // from the heap (below its 128 KiB mapping threshold), where the next
  // Skimmer finds the same pages again.
  static constexpr std::size_t defaultWindow = detail::maxNameLength + 32 * 1024;
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
  friend class detail::Grammar<Skimmer>;

  struct GiveUp {};
  // Where an error would be located: nowhere, the Skimmer keeps no position.
  struct NoMark {};

  // Zeroed bytes after the buffered ones: a NUL byte ends every run of
  // string characters, and the 16-byte loads of the inline string scan
  // stay inside the buffer.
  static constexpr std::size_t padding = 64;

  // The policy Grammar<Skimmer> runs with: no location, every error gives up.
  static constexpr std::size_t maxNesting = maxSkipDepth;
  std::span<const char> buffered() const noexcept {
    return {p_, static_cast<std::size_t>(end_ - p_)};
  }
  void consume(std::size_t count) noexcept { p_ += count; }
  bool more();
  [[gnu::always_inline]] int peek() {
    if (p_ != end_) return static_cast<unsigned char>(*p_);
    return more() ? static_cast<unsigned char>(*p_) : -1;
  }
  // Inline for the common case: the string's end among the next 16 bytes.
  [[gnu::always_inline]] std::size_t plainStringLength(const char* begin,
                                                       const char* end) const noexcept {
#if KORVANE_JSON_SSE2
    if (wide_) {
      const unsigned special = json::detail::specialStringBytes16(begin);
      if (special != 0) return static_cast<std::size_t>(std::countr_zero(special));
    }
#endif
    return json::detail::measurePlainString<padding>(kernels_, begin, end);
  }
  static NoMark mark() noexcept { return {}; }
  [[noreturn]] static void failFound(const std::string&) { giveUp(); }
  [[noreturn]] static void failAt(NoMark, const std::string&) { giveUp(); }
  static void countLines(const json::detail::WhitespaceRun&) noexcept {}
  static void countContinuations(std::size_t) noexcept {}
  void markToken() noexcept { mark_ = p_; }

  // Keeps the token at the cursor, a string to be handed out, until release().
  void hold() noexcept { held_ = mark_ = p_; }
  // Ends the life of the string last handed out.
  void release() noexcept { held_ = nullptr; }
  // From the opening quote of a string to be handed out: scans it, holding
  // it in the window, and returns it (valid while it is held).
  SkimmedString holdString();

  Reader reader_;
  bool wide_;  // the kernels are SSE2 or wider
  std::size_t window_;
  std::unique_ptr<char[]> buffer_;
  const char* p_;               // the next byte
  const char* end_;             // just past the buffered bytes (a NUL byte is there)
  const char* mark_;            // the start of the current token
  const char* held_ = nullptr;  // the opening quote of a string handed out
  bool ended_ = false;
};

}  // namespace korvane::utils::json::decoder
