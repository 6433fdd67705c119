// Exception: the base of every error located in a JSON input.
//
// Its text has the shape
//     "<file>", line <L>, column <C>: <message>
// for example
//     "/etc/xdg/Korvane/Config/users.json", line 3, column 14: expected ',' or '}' after an object
//     member, found 'x'
// Lines and columns are 1-based; columns count characters (UTF-8 code
// points). When the location is unknown the text is the message alone.
//
// Exception deliberately does not derive from std::exception: the errors
// actually thrown are detail::WrappedException<std::runtime_error>, which
// derive from Exception and from std::runtime_error. Were Exception a
// std::exception too, the thrown object would hold two std::exception
// bases and a handler for std::exception would no longer match it. So a
// handler for Exception, std::runtime_error or std::exception catches every
// decoder error, and what() gives the located text in all three.
//
// Thread safety: immutable after construction; copies share the text.
#pragma once

#include <exception>
#include <memory>
#include <string>

#include "utils/json/decoder/Location.h"

namespace korvane::utils::json::decoder {

class Exception {
 public:
  Exception(const Exception&) noexcept = default;
  Exception& operator=(const Exception&) noexcept = default;
  virtual ~Exception();

  // The location text and the message, as shown above.
  virtual const char* what() const noexcept;

  const Location& location() const noexcept { return location_; }

 protected:
  // Combines `location` with the message of `cause`.
  Exception(const Location& location, const std::exception& cause);

 private:
  Location location_;
  std::shared_ptr<const std::string> text_;
};

}  // namespace korvane::utils::json::decoder
