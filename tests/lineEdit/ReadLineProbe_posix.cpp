// A small program for the terminal tests: prints its terminal modes, reads
// lines through a masked LineEditor and prints each result hex-encoded (or
// "CANCELLED", or "ERROR" and the error), then prints the terminal modes
// again.
//
// Usage: readLineProbe [number of lines]
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "lineEdit/CancelledException.h"
#include "lineEdit/LineEditor.h"

namespace {

std::string hex(std::string_view bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

std::string modes() {
  termios mode{};
  if (tcgetattr(STDIN_FILENO, &mode) != 0) return "none";
  return hex(std::string_view(reinterpret_cast<const char*>(&mode), sizeof mode));
}

}  // namespace

int main(int argc, char** argv) {
  const int lines = argc > 1 ? std::atoi(argv[1]) : 1;
  std::printf("MODES %s\n", modes().c_str());
  std::fflush(stdout);
  korvane::lineEdit::LineEditor editor(
      "Password: ", korvane::lineEdit::LineEditorOptions{
                        .multiLine = false, .reserved = 0, .masked = true, .maskCharacter = '*'});
  for (int i = 0; i < lines; ++i) {
    try {
      const std::string line(editor.readLine().view());
      std::printf("RESULT [%s]\n", hex(line).c_str());
    } catch (const korvane::lineEdit::CancelledException& e) {
      std::printf("CANCELLED %s\n", e.what());
    } catch (const std::exception& e) {
      std::printf("ERROR %s\n", e.what());
    }
    std::fflush(stdout);
  }
  std::printf("MODES %s\n", modes().c_str());
  return 0;
}
