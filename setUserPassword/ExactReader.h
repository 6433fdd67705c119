// ExactReader: the exact pass's view of a configuration file, over the
// streaming decoder (utils/json/decoder/Document.h). The rules of each
// file (UserFileRules.h, PasswordFile.cpp) are written once against the
// operations below and run on this reader or on SkimReader (SkimReader.h),
// which offers the same ones over the fast pass.
//
// Every error is the decoder's, located at its line and column, or one of
// the rules' own, located at the value fail() is given.
//
// Thread safety: one object, one thread.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "utils/core/Uuid.h"
#include "utils/io/InputStream.h"
#include "utils/json/decoder/Document.h"
#include "utils/json/decoder/Value.h"
#include "utils/json/decoder/WrappedException.h"

namespace korvane::setUserPassword {

class ExactReader {
 public:
  using Value = utils::json::decoder::Value;

  // Names and strings are handed out decoded, and may need escaping again.
  static constexpr bool yieldsRawText = false;

  // `path` names the text of `stream` in messages.
  ExactReader(utils::io::InputStream<char>& stream, const std::filesystem::path& path)
      : document_(stream, path) {}

  // The whole text, an object: `onMember(name, value)` for each of its
  // members in turn, then the end of the input. `onMember` reads or skips
  // the value.
  template <typename OnMember>
  void readDocument(OnMember&& onMember) {
    for (utils::json::decoder::Member& member : document_.readAsObject()) {
      onMember(member.name().view(), member.value());
    }
    document_.finish();
  }

  // The same for the members of `object`, which must be an object.
  template <typename OnMember>
  void forEachMember(Value& object, OnMember&& onMember) {
    for (utils::json::decoder::Member& member : object.asObject()) {
      onMember(member.name().view(), member.value());
    }
  }

  // `onElement(value)` for each element of `array`, which must be an array.
  template <typename OnElement>
  void forEachElement(Value& array, OnElement&& onElement) {
    for (Value& element : array.asArray()) onElement(element);
  }

  // A string holding a UUID.
  utils::core::Uuid readUuid(Value& value) { return value.toUuid(); }

  // Whether `value`, a string, is `text`; compared as it streams by, so
  // that an enormous string costs no memory.
  bool stringEquals(Value& value, std::string_view text) { return value.asString().equals(text); }

  // Hands the decoded text of `value`, a string, to `onPiece(std::string_view)`
  // in pieces (see String::forEachPiece): any length in constant memory.
  template <typename OnPiece>
  void readStringPieces(Value& value, OnPiece&& onPiece) {
    value.asString().forEachPiece(onPiece);
  }

  // Checks that `value` is a string and passes over it, keeping nothing.
  void skipString(Value& value) {
    readStringPieces(value, [](std::string_view) {});
  }

  void skip(Value& value) { value.skip(); }

  // Throws `message` located at `at` (a value this reader handed out).
  [[noreturn]] void fail(const Value& at, const std::string& message) {
    utils::json::decoder::throwAtLocation(at.location(), message);
  }

 private:
  utils::json::decoder::Document document_;
};

}  // namespace korvane::setUserPassword
