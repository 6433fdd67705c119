#include "lineEdit/RawLineReader.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <memory>

#include "lineEdit/EditBuffer.h"
#include "lineEdit/EditLoop.h"
#include "lineEdit/RawTerminal.h"

namespace korvane::lineEdit {

namespace {

// A plain line read stops here; the rest stays for the next read.
constexpr std::size_t maxPlainLineLength = EditLoop::bufferSize;

// Byte by byte, so that nothing after the line is taken from the input.
void readPlainLine(std::string& line) {
  line.reserve(maxPlainLineLength);  // no reallocation leaves copies behind
  char byte = 0;
  while (line.size() < maxPlainLineLength && RawTerminal::readInputByte(byte) && byte != '\n') {
    line.push_back(byte);
  }
}

}  // namespace

bool RawLineReader::read(std::string_view prompt, const EditSettings& settings, History& history,
                         std::string& line) {
  line.clear();
  if (!RawTerminal::inputIsConsole()) {
    readPlainLine(line);
    return false;
  }
  // Text the program printed before must appear before the prompt, which
  // goes straight to the console.
  std::cout.flush();
  std::fflush(stdout);
  const std::unique_ptr<RawTerminal> terminal = RawTerminal::open();
  if (!terminal) {
    errno = ENOTTY;
    return true;
  }

  EditBuffer buffer;
  errno = 0;
  EditLoop loop(*terminal, settings, history);
  const int result = loop.run(buffer.span(), prompt);
  const int loopErrno = errno;
  terminal->finish();
  if (result == -1) {
    // ENOTTY means "no console" to the caller, never "cancelled".
    errno = loopErrno == ENOTTY ? EIO : loopErrno;
    return true;
  }
  line.assign(buffer.span().data(), static_cast<std::size_t>(result));
  errno = loopErrno;
  return false;
}

}  // namespace korvane::lineEdit
