// Feeds arbitrary bytes to a ConsoleWriter over small in-memory consoles.
//
// The first two input bytes choose the console size, the KORVANE_CONSOLE_DEF value,
// how the rest is cut into calls and which calls go to a second console (a
// change of handle). Every call must consume all its bytes and leave the
// cursor inside the buffer.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "lineEdit/ConsoleWriter.h"
#include "tests/support/MemoryConsole.h"

namespace {

using korvane::lineEdit::ConsoleWriter;
using korvane::lineEdit::MemoryConsole;

void check(bool condition) {
  if (!condition) {
    __builtin_trap();
  }
}

void checkCursor(const MemoryConsole& console) {
  const auto cursor = console.cursorPosition();
  check(cursor.x >= 0 && cursor.x < console.width() && cursor.y >= 0 &&
        cursor.y < console.height());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const unsigned shape = data[0];
  const unsigned cuts = data[1];
  const std::string_view bytes(reinterpret_cast<const char*>(data + 2), size - 2);

  MemoryConsole first(1 + static_cast<int>(shape % 40), 1 + static_cast<int>((shape / 40) % 7));
  MemoryConsole second(7, 3, 0x1E);
  constexpr std::optional<std::u16string_view> defaults[] = {std::nullopt, u"1F", u"-7", u"zz",
                                                             u"-8F",       u"",   u"123"};
  first.setEnvironmentVariable(u"KORVANE_CONSOLE_DEF", defaults[(cuts >> 5) % 7]);
  first.setTitle(u"fuzz");

  ConsoleWriter writer;
  const std::size_t calls = 1 + cuts % 4;
  std::size_t start = 0;
  for (std::size_t call = 0; call < calls; ++call) {
    const std::size_t end = call + 1 == calls ? bytes.size() : bytes.size() * (call + 1) / calls;
    MemoryConsole& target = (call > 0 && ((cuts >> (2 + call)) & 1) != 0) ? second : first;
    std::size_t consumed = 0;
    check(writer.write(target, bytes.substr(start, end - start), consumed));
    check(consumed == end - start);
    checkCursor(target);
    target.drainInput();
    start = end;
  }
  checkCursor(first);
  checkCursor(second);
  return 0;
}
