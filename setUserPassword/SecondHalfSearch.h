// SecondHalfSearch: the user search of a large user configuration file in
// two halves at once. A worker thread reads the file from a boundary just
// past its middle (found by findBoundary(): the end of one object in an
// array and the start of the next, very likely two user objects), as if
// the text before it had put it inside the user array; meanwhile the pass
// over the whole file reads from the start.
//
// The worker's outcome is used only when the pass reaches the boundary
// just after a user object, which proves that the worker started where the
// pass would have stood, and only when the worker read the rest without
// any error and its outcome can be added exactly (see UserTally::addRest).
// In every other case the pass reads on itself and the worker's work is
// dropped, so that the outcome, errors and their locations included, is
// always the one a single pass gives.
//
// The worker keeps a 32-bit fingerprint of each UUID it reads instead of
// the UUID (4 bytes a user instead of 16): a fingerprint seen where the
// outcome needs an exact count is answered by the pass reading on.
//
// Thread safety: the object belongs to the thread of the pass (besides its
// own worker).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "setUserPassword/UserTally.h"
#include "utils/core/Uuid.h"
#include "utils/core/WorkerThread.h"
#include "utils/io/File.h"
#include "utils/io/InputStream.h"

namespace korvane::setUserPassword {

class SecondHalfSearch {
 public:
  // Smaller files are read by one thread: a worker would save less than
  // it costs to start.
  static constexpr std::uint64_t minimumFileSize = std::uint64_t{4} << 20;
  // How much text past the middle is looked through for a boundary.
  static constexpr std::size_t boundaryWindow = 64 * 1024;

  // Opens the text from the boundary on, on the worker; a stream it opens
  // should stop reading once `stop` is set.
  using RestOpener =
      std::function<std::unique_ptr<utils::io::InputStream<char>>(const std::atomic<bool>& stop)>;

  // Starts a worker that reads the text of the file named `path` from
  // `boundary` on, opened by `openRest`, for users named `soughtName`.
  // Throws std::system_error when no thread can be started.
  // REQUIRES: `soughtName` outlives the object.
  SecondHalfSearch(RestOpener openRest, std::uint64_t boundary, std::string_view soughtName,
                   const std::filesystem::path& path);

  // Stops the worker and waits for it.
  ~SecondHalfSearch();
  SecondHalfSearch(const SecondHalfSearch&) = delete;
  SecondHalfSearch& operator=(const SecondHalfSearch&) = delete;

  // The search of `file` from a boundary past its middle, or nullptr when
  // the file is small, the processor runs one thread at a time, no
  // boundary is found or anything fails: the pass then reads alone.
  // REQUIRES: `file` is a regular file, read from its start by the pass,
  // and outlives the object, as does `soughtName`.
  static std::unique_ptr<SecondHalfSearch> startFor(const utils::io::File& file,
                                                    std::string_view soughtName,
                                                    const std::filesystem::path& path) noexcept;

  // The first place in `text` just after a '}' that whitespace, a ',',
  // whitespace and a '{' follow, all within `text`.
  static std::optional<std::size_t> findBoundary(std::string_view text) noexcept;

  // What the worker keeps of each UUID it reads.
  static std::uint32_t fingerprint(const utils::core::Uuid& uuid) noexcept;

  std::uint64_t boundary() const noexcept { return boundary_; }

  // Called by the pass just after each user object, with the offset it
  // reached: true at the boundary. Once the pass is past it, the worker is
  // told to stop.
  bool reachedBy(std::uint64_t offset) noexcept {
    if (offset < boundary_ || abandoned_) return false;
    if (offset == boundary_) return true;
    abandon();
    return false;
  }

  // Waits for the worker and adds its outcome to `tally`, which must hold
  // the pass's up to the boundary. False when there is none to add (see
  // above): the pass then reads on from the boundary itself.
  // REQUIRES: reachedBy() has just returned true.
  bool addOutcomeTo(UserTally& tally);

  // Whether the worker's outcome was dropped (the pass past the boundary,
  // or no outcome to add there): the worker is then done, and the pass
  // reads the rest itself.
  bool dropped() const noexcept { return abandoned_; }

 private:
  // What the worker found; written by the worker only, read once it is
  // joined.
  struct Outcome {
    explicit Outcome(std::string_view soughtName) noexcept : name(soughtName) {}

    std::string_view name;
    std::deque<std::uint32_t> fingerprints;
    std::size_t matches = 0;
    utils::core::Uuid firstMatch;
    utils::core::Uuid lastMatch;
    bool complete = false;

    // As UserTally's, for the reading shared with the pass.
    std::string_view soughtName() const noexcept { return name; }
    void countUuid(const utils::core::Uuid& uuid) { fingerprints.push_back(fingerprint(uuid)); }
    void recordMatch(const utils::core::Uuid& uuid);
    std::optional<std::uint64_t> occurrences(const utils::core::Uuid& uuid) const;
  };

  void work() noexcept;
  // False when stopped before the end.
  bool search(utils::io::InputStream<char>& rest);
  void abandon() noexcept;

  RestOpener openRest_;
  std::uint64_t boundary_;
  std::filesystem::path path_;
  Outcome outcome_;
  std::atomic<bool> stop_{false};
  bool abandoned_ = false;
  utils::core::WorkerThread worker_;  // last: started once the rest exists
};

}  // namespace korvane::setUserPassword
