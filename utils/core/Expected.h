// Expected<T, E>: a value or the error that prevented it. std::expected
// where the standard library has it; a minimal stand-in with the same
// members elsewhere (clang with libstdc++ 12 hides std::expected), so the
// fuzz build compiles the same sources.
//
// Thread safety: a value type.
#pragma once

#include <utility>
#include <variant>

#if __has_include(<expected>)
#include <expected>
#endif

namespace korvane::utils::core {

#if defined(__cpp_lib_expected)

template <typename T, typename E>
using Expected = std::expected<T, E>;

template <typename E>
auto makeUnexpected(E error) {
  return std::unexpected<E>(std::move(error));
}

#else

template <typename E>
struct Unexpected {
  E error;
};

template <typename E>
Unexpected<E> makeUnexpected(E error) {
  return {std::move(error)};
}

template <typename T, typename E>
class Expected {
 public:
  Expected(T value) : state_(std::in_place_index<0>, std::move(value)) {}  // NOLINT: as std
  template <typename G>
  Expected(Unexpected<G> error)  // NOLINT: as std
      : state_(std::in_place_index<1>, std::move(error.error)) {}

  bool has_value() const noexcept { return state_.index() == 0; }
  explicit operator bool() const noexcept { return has_value(); }
  const T& operator*() const { return std::get<0>(state_); }
  const T* operator->() const { return &std::get<0>(state_); }
  const T& value() const { return std::get<0>(state_); }
  const E& error() const { return std::get<1>(state_); }

 private:
  std::variant<T, E> state_;
};

#endif

}  // namespace korvane::utils::core
