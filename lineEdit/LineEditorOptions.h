// How a LineEditor echoes and lays out the line it reads.
//
// Thread safety: plain value.
#pragma once

#include <cstdint>

namespace korvane::lineEdit {

struct LineEditorOptions {
  // Long lines wrap over several rows; when clear, the line scrolls sideways
  // on one row.
  bool multiLine = false;
  // Reserved; stored by the editor and not consulted.
  std::uint64_t reserved = 0;
  // Every echoed column is shown as maskCharacter.
  bool masked = false;
  signed char maskCharacter = '*';
};

}  // namespace korvane::lineEdit
