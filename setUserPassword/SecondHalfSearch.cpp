#include "setUserPassword/SecondHalfSearch.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <string>
#include <thread>
#include <utility>

#include "setUserPassword/UserList.h"
#include "utils/io/FileSection.h"
#include "utils/json/decoder/Document.h"

namespace korvane::setUserPassword {

namespace {

bool isJsonWhitespace(char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::size_t skipWhitespace(std::string_view text, std::size_t at) noexcept {
  while (at < text.size() && isJsonWhitespace(text[at])) ++at;
  return at;
}

// Up to `length` bytes of `file` from `offset` on.
std::string readWindow(const utils::io::File& file, std::uint64_t offset, std::size_t length) {
  utils::io::FileSection window(file, offset);
  std::string text;
  while (text.size() < length && window.ensureBuffer()) {
    const auto buffered = window.buffered();
    const std::size_t take = std::min(buffered.size(), length - text.size());
    text.append(buffered.data(), take);
    window.consume(take);
  }
  return text;
}

}  // namespace

SecondHalfSearch::SecondHalfSearch(RestOpener openRest, std::uint64_t boundary,
                                   std::string_view soughtName, const std::filesystem::path& path)
    : openRest_(std::move(openRest)),
      boundary_(boundary),
      path_(path),
      outcome_(soughtName),
      worker_([this] { work(); }) {}

SecondHalfSearch::~SecondHalfSearch() { abandon(); }

std::unique_ptr<SecondHalfSearch> SecondHalfSearch::startFor(
    const utils::io::File& file, std::string_view soughtName,
    const std::filesystem::path& path) noexcept {
  try {
    const std::uint64_t size = file.size();
    if (size < minimumFileSize || std::thread::hardware_concurrency() < 2) return nullptr;
    const std::uint64_t middle = size / 2;
    const std::string text = readWindow(file, middle, boundaryWindow);
    const std::optional<std::size_t> boundary = findBoundary(text);
    if (!boundary) return nullptr;
    const std::uint64_t at = middle + *boundary;
    const utils::io::File* const source = &file;
    return std::make_unique<SecondHalfSearch>(
        [source, at](const std::atomic<bool>& stop) {
          return std::make_unique<utils::io::FileSection>(*source, at, &stop);
        },
        at, soughtName, path);
  } catch (const std::exception&) {
    return nullptr;
  }
}

std::optional<std::size_t> SecondHalfSearch::findBoundary(std::string_view text) noexcept {
  for (std::size_t close = text.find('}'); close != std::string_view::npos;
       close = text.find('}', close + 1)) {
    std::size_t at = skipWhitespace(text, close + 1);
    if (at >= text.size() || text[at] != ',') continue;
    at = skipWhitespace(text, at + 1);
    if (at < text.size() && text[at] == '{') return close + 1;
  }
  return std::nullopt;
}

bool SecondHalfSearch::addOutcomeTo(UserTally& tally) {
  worker_.join();
  const bool added =
      outcome_.complete &&
      tally.addRest(outcome_.matches, outcome_.firstMatch, outcome_.lastMatch,
                    [this](const utils::core::Uuid& uuid) { return outcome_.occurrences(uuid); });
  if (!added) abandoned_ = true;
  return added;
}

void SecondHalfSearch::abandon() noexcept {
  abandoned_ = true;
  stop_.store(true, std::memory_order_relaxed);
  worker_.join();
}

void SecondHalfSearch::work() noexcept {
  try {
    const std::unique_ptr<utils::io::InputStream<char>> rest = openRest_(stop_);
    outcome_.complete = search(*rest);
  } catch (...) {
    // An error in the rest, a failed read or a stop: the pass reads on
    // itself where it needs to, and reports what it finds.
  }
}

bool SecondHalfSearch::search(utils::io::InputStream<char>& rest) {
  namespace decoder = utils::json::decoder;
  decoder::Document document(rest, path_);
  auto [object, users] = document.resumeInMemberArray();
  const auto stopped = [this] { return stop_.load(std::memory_order_relaxed); };
  if (userList::readArray(users, outcome_, stopped)) return false;
  if (userList::readMembers(object, outcome_, stopped)) return false;
  document.finish();
  return true;
}

void SecondHalfSearch::Outcome::recordMatch(const utils::core::Uuid& uuid) {
  if (++matches == 1) firstMatch = uuid;
  lastMatch = uuid;
}

std::optional<std::uint64_t> SecondHalfSearch::Outcome::occurrences(
    const utils::core::Uuid& uuid) const {
  const std::uint32_t sought = fingerprint(uuid);
  const auto seen =
      static_cast<std::uint64_t>(std::count(fingerprints.begin(), fingerprints.end(), sought));
  // A matched user's own UUID is known to be there once; any other
  // fingerprint of the same value may or may not be the same UUID.
  const std::uint64_t known = matches > 0 && uuid == firstMatch ? 1 : 0;
  if (seen != known) return std::nullopt;
  return known;
}

std::uint32_t SecondHalfSearch::fingerprint(const utils::core::Uuid& uuid) noexcept {
  std::uint64_t halves[2];
  std::memcpy(halves, uuid.bytes().data(), sizeof halves);
  const std::uint64_t mixed =
      (halves[0] ^ (halves[1] * 0x9e3779b97f4a7c15ULL)) * 0xff51afd7ed558ccdULL;
  return static_cast<std::uint32_t>(mixed >> 32);
}

}  // namespace korvane::setUserPassword
