#include "utils/json/decoder/Document.h"

#include <stdexcept>

#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::json::decoder {

Document::Document(io::InputStream<char>& stream, const std::filesystem::path& sourceName)
    : parser_(std::make_unique<detail::Parser>(stream, filesystem::toPrintable(sourceName))) {}

Document::~Document() = default;

Value& Document::root() {
  if (rootTaken_) {
    throw std::logic_error(
        "korvane::utils::json::decoder::Document: the top-level value was already taken");
  }
  const std::uint64_t id = parser_->startDocument();
  rootTaken_ = true;
  root_.reset(parser_.get(), id, parser_->position());
  return root_;
}

Object Document::readAsObject() { return root().asObject(); }

Document::MemberArray Document::resumeInMemberArray() {
  if (rootTaken_) {
    throw std::logic_error(
        "korvane::utils::json::decoder::Document: the top-level value was already taken");
  }
  const auto [object, array] = parser_->resumeInMemberArray();
  rootTaken_ = true;
  return {Object(*parser_, object), Array(*parser_, array)};
}

void Document::finish() { parser_->finish(); }

}  // namespace korvane::utils::json::decoder
