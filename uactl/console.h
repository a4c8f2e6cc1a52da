// What the command prints: readable in a console whatever its code page, UTF-8 when redirected,
// with "\n" at the end of a line in both cases.
#pragma once

#include <string>

enum class Stream { kOutput, kErrors };

// What cannot be written (a full disk, a closed pipe) is lost; the exit code says what became of
// it.
void Print(Stream stream, const std::wstring& text);

// The text with a line break at its end, and without characters that could end the line before or
// drive the console: task files, which others may have written, decide about parts of what is
// shown.
std::wstring Line(std::wstring text);

// A line on standard error that the next text, status or not, writes over; L"" clears it. What does
// not fit the console's width is cut off. Where standard error is no console it shows nothing.
void ShowStatus(const std::wstring& text);
