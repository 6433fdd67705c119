#include "utils/json/decoder/Exception.h"

namespace korvane::utils::json::decoder {

namespace {

std::string compose(const Location& location, const std::exception& cause) {
  if (!location) return cause.what();
  std::string text = location.toString();
  text += ": ";
  text += cause.what();
  return text;
}

}  // namespace

Exception::Exception(const Location& location, const std::exception& cause)
    : location_(location), text_(std::make_shared<const std::string>(compose(location, cause))) {}

Exception::~Exception() = default;

const char* Exception::what() const noexcept { return text_->c_str(); }

}  // namespace korvane::utils::json::decoder
