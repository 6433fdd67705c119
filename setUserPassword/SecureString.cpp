#include "setUserPassword/SecureString.h"

#include <memory>

#include "utils/core/SecureZero.h"

namespace korvane::setUserPassword {

SecureString::SecureString(SecureString&& other) noexcept : text_(std::move(other.text_)) {
  // A short string is copied, not stolen: its bytes stay in the source.
  other.wipe();
}

SecureString& SecureString::operator=(const SecureString& other) {
  if (this != &other) {
    wipe();
    text_ = other.text_;
  }
  return *this;
}

SecureString& SecureString::operator=(SecureString&& other) noexcept {
  if (this != &other) {
    wipe();
    text_ = std::move(other.text_);
    other.wipe();
  }
  return *this;
}

void SecureString::wipe() noexcept {
  // The characters first, wherever they are; then the heap block goes back
  // through the zeroing allocator; then the object's own bytes are zeroed
  // and an empty string is made in their place.
  utils::core::secureZero(text_.data(), text_.capacity());
  std::destroy_at(&text_);
  utils::core::secureZero(&text_, sizeof text_);
  std::construct_at(&text_);
}

}  // namespace korvane::setUserPassword
