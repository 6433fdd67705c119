// RedirectedDescriptor: a standard descriptor replaced for the lifetime of
// the object, for the line editor's POSIX tests.
//
// Thread safety: descriptors are process-wide; one test at a time.
#pragma once

#include <unistd.h>

namespace korvane::lineEdit::test {

class RedirectedDescriptor {
 public:
  // Points `target` at what `replacement` refers to; takes `replacement`.
  RedirectedDescriptor(int target, int replacement) : target_(target), saved_(dup(target)) {
    dup2(replacement, target);
    close(replacement);
  }
  RedirectedDescriptor(const RedirectedDescriptor&) = delete;
  RedirectedDescriptor& operator=(const RedirectedDescriptor&) = delete;
  ~RedirectedDescriptor() {
    dup2(saved_, target_);
    close(saved_);
  }

 private:
  int target_;
  int saved_;
};

}  // namespace korvane::lineEdit::test
