#include "lineEdit/RawLineReader.h"

#include <cerrno>
#include <cstdio>

#include "lineEdit/EditBuffer.h"
#include "lineEdit/EditLoop.h"
#include "lineEdit/SystemConsole.h"

namespace korvane::lineEdit {

namespace {

// A plain line read stops here; the rest stays for the next read.
constexpr std::size_t maxPlainLineLength = EditLoop::bufferSize;

// Byte by byte, so that nothing after the line is taken from the input.
LineResult readPlainLine(utils::core::SecureString& line) {
  line.reserve(maxPlainLineLength);  // no reallocation leaves copies behind
  while (line.size() < maxPlainLineLength) {
    char byte = 0;
    const int result = SystemConsole::readInputByte(byte);
    if (result < 0) {
      line.wipe();  // keeps errno
      return LineResult{LineEnd::readFailed, 0};
    }
    if (result == 0) {
      if (line.empty()) return LineResult{LineEnd::inputEnded, 0};
      break;  // the last line has no "\n"
    }
    if (byte == '\n') break;
    line.push_back(byte);
  }
  return LineResult{LineEnd::accepted, line.size()};
}

}  // namespace

LineResult RawLineReader::read(std::string_view prompt, const EditSettings& settings,
                               History& history, utils::core::SecureString& line) {
  line.wipe();
  if (!SystemConsole::inputIsConsole()) return readPlainLine(line);
  // Text printed before must appear before the prompt, which goes
  // straight to the console.
  std::fflush(stdout);
  SystemConsole console;
  if (console.open() < 0) return LineResult{LineEnd::noConsole, 0};

  EditBuffer buffer;
  EditLoop loop(console, settings, history);
  const LineResult result = loop.run(buffer.span(), prompt);
  console.finish();  // keeps errno for a failed read or write
  if (result.end == LineEnd::accepted) line.append({buffer.span().data(), result.length});
  return result;
}

}  // namespace korvane::lineEdit
