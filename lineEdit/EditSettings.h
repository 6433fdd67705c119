// The settings an edit loop runs with: multi-line refresh and masked echo.
// LineEditor keeps one process-wide copy, loaded from the editor that reads.
//
// Thread safety: plain value.
#pragma once

namespace korvane::lineEdit {

struct EditSettings {
  // Long lines wrap over several rows instead of scrolling on one.
  bool multiLine = false;
  // Every echoed column is shown as maskCharacter.
  bool masked = false;
  char maskCharacter = '*';
};

}  // namespace korvane::lineEdit
