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

// Of a console's window, in characters; one is kept free, so that the cursor stays on its line.
// 0 for what is no console.
std::size_t Width(Stream stream) {
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (!GetConsoleScreenBufferInfo(HandleOf(stream), &info)) return 0;
  return static_cast<std::size_t>(std::max(info.srWindow.Right - info.srWindow.Left, 1));
}

}  // namespace

void Print(Stream stream, const std::wstring& text) {
  if (text.empty()) return;  // at a pipe's other end nothing looks like its end
  const HANDLE handle = HandleOf(stream);
  const std::string bytes = WideToUtf8(text);
  DWORD written = 0;
  if (Width(stream) > 0) {
    WriteConsoleW(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  } else {
    WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  }
}

std::wstring Line(std::wstring text) {
  std::replace_if(text.begin(), text.end(), IsControl, L'\xFFFD');
  return std::move(text) + L'\n';
}

void ShowStatus(const std::wstring& text) {
  const std::size_t width = Width(Stream::kErrors);
  if (width == 0) return;
  std::wstring line = Line(text);
  line.pop_back();
  line.resize(width, L' ');
  Print(Stream::kErrors, L'\r' + line + L'\r');
}
