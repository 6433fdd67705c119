// SkimReader: the fast pass's view of a configuration file, over the
// Skimmer (utils/json/decoder/Skimmer.h), with the operations of
// ExactReader (ExactReader.h), so that each file's rules are written once
// for both passes.
//
// It gives up (Skimmer::giveUp) wherever the exact pass would fail, and on
// what it does not handle: a member name or a string read that holds an
// escape (its raw text is not what the exact pass compares or keeps).
//
// REQUIRES: every operation is called inside the Skimmer's attempt().
//
// Thread safety: one object, one thread.
#pragma once

#include <string>
#include <string_view>

#include "utils/core/Uuid.h"
#include "utils/json/decoder/Skimmer.h"

namespace korvane::setUserPassword {

class SkimReader {
 public:
  // The Skimmer stands at the value: there is nothing to hold.
  struct Value {};

  // Names and strings are handed out as they stand in the text, which
  // holds no escape sequence in them (the pass gives up on one).
  static constexpr bool yieldsRawText = true;

  // REQUIRES: `skimmer` outlives the reader.
  explicit SkimReader(utils::json::decoder::Skimmer& skimmer) noexcept : skimmer_(skimmer) {}

  // As ExactReader's. A name is valid until the value's first operation.
  template <typename OnMember>
  void readDocument(OnMember&& onMember) {
    skimmer_.startDocument();
    Value document;
    forEachMember(document, onMember);
    skimmer_.finish();
  }

  template <typename OnMember>
  void forEachMember(Value& /*object*/, OnMember&& onMember) {
    skimmer_.openObject();
    bool started = false;
    utils::json::decoder::SkimmedString name;
    Value value;
    while (skimmer_.nextMember(started, name)) onMember(plain(name), value);
  }

  template <typename OnElement>
  void forEachElement(Value& /*array*/, OnElement&& onElement) {
    skimmer_.openArray();
    bool started = false;
    Value element;
    while (skimmer_.nextElement(started)) onElement(element);
  }

  utils::core::Uuid readUuid(Value& /*value*/) {
    const auto uuid = utils::core::Uuid::fromString(plain(skimmer_.readString()));
    if (!uuid) utils::json::decoder::Skimmer::giveUp();
    return *uuid;
  }

  bool stringEquals(Value& /*value*/, std::string_view text) {
    return plain(skimmer_.readString()) == text;
  }

  // The text, whole (a string that does not fit the window gives up): its
  // raw bytes, which are the decoded text of a string without an escape.
  template <typename OnPiece>
  void readStringPieces(Value& /*value*/, OnPiece&& onPiece) {
    onPiece(plain(skimmer_.readString()));
  }

  // Escapes are checked but need no decoding here.
  void skipString(Value& /*value*/) { skimmer_.readString(); }

  void skip(Value& /*value*/) { skimmer_.skipValue(); }

  [[noreturn]] void fail(const Value& /*at*/, const std::string& /*message*/) {
    utils::json::decoder::Skimmer::giveUp();
  }

 private:
  // The text of a string that holds no escape.
  static std::string_view plain(const utils::json::decoder::SkimmedString& text) {
    if (text.escaped) utils::json::decoder::Skimmer::giveUp();
    return text.raw;
  }

  utils::json::decoder::Skimmer& skimmer_;
};

}  // namespace korvane::setUserPassword
