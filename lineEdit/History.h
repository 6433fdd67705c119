// The line editor's history: previously entered lines, oldest first, at most
// maxLength entries. The newest entry is the line being edited while an edit
// loop runs. Entries may have held typed secrets, so every entry is zeroed
// before its storage is released.
//
// Thread safety: none; the process-wide history is guarded by LineEditor's
// mutex while it is swapped and used by one edit loop at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::lineEdit {

class History {
 public:
  static constexpr std::size_t historyMaxLength = 100;

  History() = default;
  explicit History(std::size_t maxLength) : maxLength_(maxLength) {}
  History(const History&) = delete;
  History& operator=(const History&) = delete;
  History(History&& other) noexcept;
  History& operator=(History&& other) noexcept;
  ~History();

  // Appends line as the newest entry, unless the capacity is 0 or line equals
  // the newest entry. When full, the oldest entry is dropped first.
  void add(std::string_view line);

  // Drops the newest entry, if any.
  void removeNewest();

  // Wipes and drops every entry.
  void clear();

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }

  // Entry by age: 0 is the newest entry.
  // REQUIRES: index < size()
  const std::string& fromNewest(std::size_t index) const;
  void replaceFromNewest(std::size_t index, std::string_view line);

 private:
  std::vector<std::string> entries_;
  std::size_t maxLength_ = historyMaxLength;
};

}  // namespace korvane::lineEdit
