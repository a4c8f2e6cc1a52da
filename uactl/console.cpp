#include "uactl/console.h"

#include <windows.h>

#include <algorithm>

#include "corekit/text.h"

namespace {

constexpr std::size_t kMostAtOnce = 16000;  // consoles take no more than 64 kB everywhere

HANDLE HandleOf(Stream stream) {
  return GetStdHandle(stream == Stream::kOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

// The last two ranges break lines and turn the direction of writing.
bool IsControl(wchar_t c) {
  return c < 0x20 || (c >= 0x7F && c <= 0x9F) || (c >= 0x2028 && c <= 0x202E) ||
         (c >= 0x2066 && c <= 0x2069);
}

// Of a console window, in characters; one is kept free, so that the cursor stays on its line.
std::size_t Width() {
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (!GetConsoleScreenBufferInfo(HandleOf(Stream::kErrors), &info)) return 79;
  return static_cast<std::size_t>(std::max(info.srWindow.Right - info.srWindow.Left, 1));
}

}  // namespace

bool IsConsole(Stream stream) {
  DWORD mode = 0;
  return GetConsoleMode(HandleOf(stream), &mode) != 0;
}

void Print(Stream stream, const std::wstring& text) {
  if (!IsConsole(stream)) return PrintAscii(stream, WideToUtf8(text));
  DWORD written = 0;
  for (std::size_t at = 0; at < text.size(); at += written) {
    const auto length = static_cast<DWORD>(std::min(text.size() - at, kMostAtOnce));
    if (!WriteConsoleW(HandleOf(stream), text.data() + at, length, &written, nullptr)) return;
  }
}

void PrintAscii(Stream stream, std::string_view text) {
  DWORD written = 0;
  for (std::size_t at = 0; at < text.size(); at += written) {
    const auto length = static_cast<DWORD>(std::min(text.size() - at, kMostAtOnce));
    if (!WriteFile(HandleOf(stream), text.data() + at, length, &written, nullptr)) return;
  }
}

std::wstring Line(std::wstring text) {
  std::replace_if(text.begin(), text.end(), IsControl, L'\xFFFD');
  return text + L'\n';
}

void StatusLine::Show(const std::wstring& text) {
  if (!IsConsole(Stream::kErrors)) return;
  std::wstring line = Line(text);
  line.pop_back();
  line.resize(std::min(line.size(), Width()));
  const std::size_t length = line.size();
  // What was longer before is covered with blanks; then back to the end of the text.
  line.resize(std::max(length, shown_), L' ');
  Print(Stream::kErrors, L'\r' + line + (shown_ > length ? L'\r' + line.substr(0, length) : L""));
  shown_ = length;
}

StatusLine::~StatusLine() {
  if (shown_ > 0) Print(Stream::kErrors, L'\r' + std::wstring(shown_, L' ') + L'\r');
}
