#include "uactl/console.h"

#include <windows.h>

#include <algorithm>

#include "corekit/text.h"

namespace {

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
  WriteConsoleW(HandleOf(stream), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

void PrintAscii(Stream stream, std::string_view text) {
  DWORD written = 0;
  WriteFile(HandleOf(stream), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

std::wstring Line(std::wstring text) {
  std::replace_if(text.begin(), text.end(), IsControl, L'\xFFFD');
  return text + L'\n';
}

void StatusLine::Show(const std::wstring& text) {
  if (!IsConsole(Stream::kErrors)) return;
  std::wstring line = Line(text);
  line.pop_back();
  line.resize(Width(), L' ');
  Print(Stream::kErrors, L'\r' + line + L'\r');
  isShown_ = true;
}

StatusLine::~StatusLine() {
  if (isShown_) Show(L"");
}
