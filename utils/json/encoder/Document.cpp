#include "utils/json/encoder/Document.h"

#include <stdexcept>

namespace korvane::utils::json::encoder {

Document::~Document() {
  if (open_ != nullptr) open_->close();
  if (complete_ && format_ == Format::indented) stream_.writeNoThrow("\n");
}

Object Document::asObject() {
  if (started_)
    throw std::logic_error("korvane::utils::json::encoder::Document::asObject(): called twice");
  stream_.write("{");
  started_ = true;
  return Object(*this);
}

}  // namespace korvane::utils::json::encoder
