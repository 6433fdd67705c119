// Win32Console: the Console operations over a Windows console screen buffer.
//
// Each object stands for one console output handle (standard output,
// standard error or the console's own output); replies written to the input
// go to the process's standard input handle. The handle is borrowed, not
// closed. Its writeText is the program's one writer of console text:
// SystemConsole sends both the line editor's output and the standard
// streams' console output through it. Only built on Windows.
//
// Thread safety: none; one thread drives a console at a time.
#pragma once

#include "lineEdit/Console.h"

namespace korvane::lineEdit {

class Win32Console final : public Console {
 public:
  // `output` is a console screen buffer handle (a Windows HANDLE).
  explicit Win32Console(void* output) noexcept : output_(output) {}

  void* handle() const noexcept { return output_; }

  bool getScreenBufferInfo(ScreenBufferInfo& info) override;
  bool setCursorPosition(Coord position) override;
  bool getCursorInfo(CursorInfo& info) override;
  bool setCursorInfo(const CursorInfo& info) override;
  std::uint32_t fillOutputCharacter(char16_t character, std::uint32_t length, Coord start) override;
  std::uint32_t fillOutputAttribute(std::uint16_t attributes, std::uint32_t length,
                                    Coord start) override;
  bool scrollScreenBuffer(const Rect& scroll, const Rect* clip, Coord destination,
                          CharInfo fill) override;
  bool setTextAttribute(std::uint16_t attributes) override;
  bool writeText(std::u16string_view text) override;
  bool writeInput(std::span<const KeyEvent> events) override;
  std::size_t getTitle(std::span<char16_t> buffer) override;
  bool setTitle(std::u16string_view title) override;
  std::size_t getEnvironmentVariable(const char16_t* name, std::span<char16_t> buffer) override;

 private:
  void* output_;
};

}  // namespace korvane::lineEdit
