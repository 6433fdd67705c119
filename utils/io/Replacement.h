// Replacement: the new version of a ReplacementTarget while it is written,
// an output stream into the temporary file beside the target.
//
// It owns the temporary file, its identity and the identity and attributes
// of the file it replaces. commit() makes the content durable and moves it
// over the target, provided that the target's name still refers to the file
// read and the temporary name to the file written. Unless it was committed,
// or writing it failed (which leaves it behind with the rest of the run's
// evidence), the temporary file is removed when the object goes away.
// Once the content has proved large (writeBehindAfter bytes), the rest is
// written on a worker thread (see WriteBehind.h).
//
// Thread safety: one object, one thread.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "utils/io/File.h"
#include "utils/io/OutputStream.h"
#include "utils/io/ReplacementTarget.h"
#include "utils/io/WriteBehind.h"

namespace korvane::utils::io {

class Replacement final : public OutputStream<char> {
 public:
  // Creates "<target>.<random UUID>" exclusively beside `target` with the
  // attributes of `replaced` (the file read, or std::nullopt for a new,
  // private file). Throws what ReplacementTarget::createTemporary throws.
  // REQUIRES: `target` outlives the object.
  Replacement(const ReplacementTarget& target, std::optional<ReplacedFile> replaced,
              std::size_t writeBehindAfter = BlockRing::workerAfter);
  ~Replacement() override;
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // Whether a worker thread writes the rest of the content.
  bool writesBehind() const noexcept { return writeBehind_.has_value(); }

  // Whether creating or writing it failed, as far as the writing has been
  // settled (a failure of writes still under way counts once it was thrown).
  bool writingFailed() const noexcept { return failed() || !file_.isOpen(); }

  // Removes the temporary file now, when its name still refers to it.
  void discard() noexcept;

  // Flushes and syncs the temporary file and moves it over the target (see
  // ReplacementTarget::replace).
  void commit();

 private:
  File create() const;
  void writeSome(std::span<const char> text) override;
  void settleSink() override;
  void startWriteBehind() noexcept;

  const ReplacementTarget& target_;
  const std::optional<ReplacedFile> replaced_;
  File file_;
  std::size_t writeBehindAfter_;
  std::size_t writtenDirectly_ = 0;
  std::optional<WriteBehind> writeBehind_;  // after file_: stops before it closes
  bool kept_ = false;
};

}  // namespace korvane::utils::io
