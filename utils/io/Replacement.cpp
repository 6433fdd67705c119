#include "utils/io/Replacement.h"

#include <utility>

#include "utils/core/Uuid.h"

namespace korvane::utils::io {

Replacement::Replacement(const ReplacementTarget& target, std::optional<ReplacedFile> replaced)
    : target_(target), replaced_(std::move(replaced)), file_(create()) {}

Replacement::~Replacement() {
  if (!kept_ && !failed()) discard();
}

void Replacement::discard() noexcept { target_.discardTemporary(std::move(file_)); }

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

void Replacement::writeSome(std::span<const char> text) { file_.write(text); }

}  // namespace korvane::utils::io
