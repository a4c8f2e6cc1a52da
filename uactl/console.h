// What the command prints: readable in a console whatever its code page, UTF-8 when redirected,
// with "\n" at the end of a line in both cases.
#pragma once

#include <string>
#include <string_view>

enum class Stream { kOutput, kErrors };

bool IsConsole(Stream stream);

// What cannot be written (a full disk, a closed pipe) is lost; the exit code says what became of
// it.
void Print(Stream stream, const std::wstring& text);

// The same for ASCII alone. Takes no memory.
void PrintAscii(Stream stream, std::string_view text);

// The text with a line break at its end, and without characters that could end the line before or
// drive the console: task files, which others may have written, decide about parts of what is
// shown.
std::wstring Line(std::wstring text);

// A line on standard error that is written over again and again, and gone in the end. Where
// standard error is no console it shows nothing.
class StatusLine {
 public:
  StatusLine() = default;
  ~StatusLine();
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;

  // Cuts off what does not fit the console's width.
  void Show(const std::wstring& text);

 private:
  bool isShown_ = false;
};
