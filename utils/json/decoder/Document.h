// Document: a streaming (pull) reader of one JSON text from an InputStream.
// Nothing is materialised unless asked for: values that are not read are
// skipped in constant memory, so a file of any size is read with a fixed
// amount of memory (the stream's buffer, the nesting stack, and at most one
// member name of at most 64 KiB).
//
//     io::FileInputStream<char> stream(path);
//     decoder::Document document(stream, path);
//     for (decoder::Member& member : document.readAsObject()) {
//       if (member.name() == "users") ... else member.value().skip();
//     }
//
// Errors in the input throw detail::WrappedException<std::runtime_error>
// (a decoder Exception and a std::runtime_error) whose text names the
// source, line and column (see Exception.h). The first error is kept: every
// later operation on the document throws it again.
//
// Including this header gives the whole decoder interface.
//
// Thread safety: a Document and its views must not be used from two threads
// at once.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "utils/io/InputStream.h"
#include "utils/json/decoder/Array.h"
#include "utils/json/decoder/Exception.h"
#include "utils/json/decoder/Location.h"
#include "utils/json/decoder/Member.h"
#include "utils/json/decoder/Name.h"
#include "utils/json/decoder/Object.h"
#include "utils/json/decoder/Parser.h"
#include "utils/json/decoder/String.h"
#include "utils/json/decoder/Value.h"
#include "utils/json/decoder/WrappedException.h"

namespace korvane::utils::json::decoder {

class Document {
 public:
  // `sourceName` names the input in messages (printed as a path).
  // REQUIRES: `stream` outlives the Document.
  Document(io::InputStream<char>& stream, const std::filesystem::path& sourceName);
  ~Document();

  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  // The top-level value, which must be an object. Call at most once (and
  // not together with root()).
  Object readAsObject();

  // The top-level value, of any kind. Call at most once.
  Value& root();

  // The walks a document is read on with when its stream starts inside
  // it, just after an element of an array that is the value of a member of
  // the top-level object: the rest of that array, then the rest of that
  // object (in this order). Call at most once, instead of root().
  struct MemberArray {
    Object object;
    Array array;
  };
  MemberArray resumeInMemberArray();

  // Reads whatever is left of the document, unread, and checks that only
  // whitespace follows the top-level value.
  void finish();

  // Bytes of the stream consumed so far: just after a value that has been
  // read whole, the offset of the byte that follows it.
  std::uint64_t offset() const noexcept { return parser_->consumed(); }

 private:
  std::unique_ptr<detail::Parser> parser_;
  Value root_;
  bool rootTaken_ = false;
};

}  // namespace korvane::utils::json::decoder
