#include "lineEdit/History.h"

#include <utility>

#include "utils/core/SecureZero.h"

namespace korvane::lineEdit {

namespace {

void wipe(std::string& text) { utils::core::secureZero(text.data(), text.size()); }

}  // namespace

History::History(History&& other) noexcept
    : entries_(std::move(other.entries_)), maxLength_(other.maxLength_) {
  other.entries_.clear();
}

History& History::operator=(History&& other) noexcept {
  if (this != &other) {
    clear();
    entries_ = std::move(other.entries_);
    other.entries_.clear();
    maxLength_ = other.maxLength_;
  }
  return *this;
}

History::~History() { clear(); }

void History::add(std::string_view line) {
  if (maxLength_ == 0) return;
  if (!entries_.empty() && entries_.back() == line) return;
  if (entries_.size() == maxLength_) {
    wipe(entries_.front());
    entries_.erase(entries_.begin());
  }
  entries_.emplace_back(line);
}

void History::removeNewest() {
  if (entries_.empty()) return;
  wipe(entries_.back());
  entries_.pop_back();
}

void History::clear() {
  for (std::string& entry : entries_) wipe(entry);
  entries_.clear();
}

const std::string& History::fromNewest(std::size_t index) const {
  return entries_[entries_.size() - 1 - index];
}

void History::replaceFromNewest(std::size_t index, std::string_view line) {
  std::string& entry = entries_[entries_.size() - 1 - index];
  wipe(entry);
  entry.assign(line);  // may reallocate; the old storage was wiped above
}

}  // namespace korvane::lineEdit
