// Document: a streaming JSON writer over an OutputStream.
//
//     encoder::Document document(stream, encoder::Format::indented);
//     {
//       encoder::Object object = document.asObject();
//       object.add("$schema", url);
//     }  // "}" written
//   // ~Document: the final line feed (indented format)
//
// The Object must be destroyed before the Document; a Document destroyed
// first closes the Object itself. Destructors never throw: a write failure
// there is kept by the stream for its owner's flush() or close().
//
// Thread safety: one Document and its Object must not be used from two
// threads at once.
#pragma once

#include <functional>

#include "utils/io/OutputStream.h"
#include "utils/json/encoder/Format.h"
#include "utils/json/encoder/Object.h"

namespace korvane::utils::json::encoder {

class Document {
 public:
  // REQUIRES: the stream outlives the Document.
  Document(std::reference_wrapper<io::OutputStream<char>> stream, Format format) noexcept
      : stream_(stream.get()), format_(format) {}
  ~Document();

  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  // Starts the top-level object. REQUIRES: called once.
  Object asObject();

 private:
  friend class Object;

  io::OutputStream<char>& stream_;
  Format format_;
  Object* open_ = nullptr;
  bool started_ = false;
  bool complete_ = false;
};

}  // namespace korvane::utils::json::encoder
