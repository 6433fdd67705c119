// WrappedException<E>: an error located in a JSON input that is at the same
// time a decoder Exception and an E (std::runtime_error in practice). Its
// what() is the located text of Exception::what().
//
// throwAtLocation() is the one way to raise an error about a place in a JSON
// file: with a known location it throws WrappedException<std::runtime_error>,
// otherwise the plain std::runtime_error.
//
// Thread safety: immutable after construction.
#pragma once

#include <stdexcept>
#include <string>

#include "utils/json/decoder/Exception.h"
#include "utils/json/decoder/Location.h"

namespace korvane::utils::json::decoder {

namespace detail {

template <typename E>
class WrappedException : public Exception, public E {
 public:
  WrappedException(const Location& location, const E& error)
      : Exception(location, error), E(error) {}

  const char* what() const noexcept override { return Exception::what(); }
};

}  // namespace detail

[[noreturn]] void throwAtLocation(const Location& location, const std::string& message);

}  // namespace korvane::utils::json::decoder
