#include "utils/io/Replacement.h"

#include <exception>
#include <utility>

#include "utils/core/Uuid.h"

namespace korvane::utils::io {

Replacement::Replacement(const ReplacementTarget& target, std::optional<ReplacedFile> replaced,
                         std::size_t writeBehindAfter)
    : target_(target),
      replaced_(std::move(replaced)),
      file_(create()),
      writeBehindAfter_(writeBehindAfter) {}

Replacement::~Replacement() {
  // A failure of the writes still under way also keeps the file.
  try {
    settle();
  } catch (...) {
  }
  if (!kept_ && !failed()) discard();
}

void Replacement::discard() noexcept {
  fillOwnBuffer();
  writeBehind_.reset();
  target_.discardTemporary(std::move(file_));
}

void Replacement::commit() {
  kept_ = true;
  flush();
  file_.sync();
  const ReplacedFile written = ReplacementTarget::identify(file_);
  const std::filesystem::path path = file_.path();
  file_.close();
  target_.replace(path, written, replaced_);
}

File Replacement::create() const {
  // Created exclusively: whatever is already at that name (a file, a link
  // planted there) is neither followed nor truncated.
  return target_.createTemporary(core::Uuid::create().toString().view(), replaced_);
}

void Replacement::writeSome(std::span<const char> text) {
  if (writeBehind_) {
    // What the stream filled goes to the block (and a full block to the
    // worker); until the next space is lent, a failure leaves the stream
    // with its own buffer.
    fillOwnBuffer();
    writeBehind_->write(text);
    fillInPlace(writeBehind_->space());
    return;
  }
  file_.write(text);
  writtenDirectly_ += text.size();
  if (writtenDirectly_ < writeBehindAfter_) return;
  startWriteBehind();
  if (writeBehind_) fillInPlace(writeBehind_->space());
}

void Replacement::settleSink() {
  if (!writeBehind_) return;
  fillOwnBuffer();
  try {
    writeBehind_->finish();
  } catch (...) {
    writeBehind_.reset();
    throw;
  }
  writeBehind_.reset();
}

void Replacement::startWriteBehind() noexcept {
  writeBehindAfter_ = static_cast<std::size_t>(-1);  // decided once
  try {
    writeBehind_.emplace(file_);
  } catch (const std::exception&) {
    // No thread: this one writes on.
  }
}

}  // namespace korvane::utils::io
