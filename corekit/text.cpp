#include "corekit/text.h"

#include <windows.h>

#include <climits>

namespace {

std::string ToCodePage(UINT codePage, const std::wstring& text) {
  if (text.empty() || text.size() > INT_MAX) return {};
  const int units = static_cast<int>(text.size());
  const int length =
      WideCharToMultiByte(codePage, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
  if (length <= 0) return {};
  std::string converted(static_cast<std::size_t>(length), '\0');
  WideCharToMultiByte(codePage, 0, text.data(), units, converted.data(), length, nullptr, nullptr);
  return converted;
}

std::wstring FromCodePage(UINT codePage, DWORD flags, const std::string& text) {
  if (text.empty() || text.size() > INT_MAX) return {};
  const int bytes = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(codePage, flags, text.data(), bytes, nullptr, 0);
  if (length <= 0) return {};
  std::wstring converted(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(codePage, flags, text.data(), bytes, converted.data(), length);
  return converted;
}

}  // namespace

std::string WideToUtf8(const std::wstring& text) { return ToCodePage(CP_UTF8, text); }

// The flag makes the conversion refuse invalid sequences.
std::wstring Utf8ToWide(const std::string& text) {
  return FromCodePage(CP_UTF8, MB_ERR_INVALID_CHARS, text);
}

namespace corekit {

std::string WideToCodePage(const std::wstring& text, unsigned codePage) {
  return ToCodePage(codePage, text);
}

std::wstring CodePageToWide(const std::string& text, unsigned codePage) {
  return FromCodePage(codePage, 0, text);
}

std::string Utf8ToAnsi(const std::string& text) { return ToCodePage(CP_ACP, Utf8ToWide(text)); }

std::wstring AnsiToWide(const std::string& text) { return FromCodePage(CP_ACP, 0, text); }

}  // namespace corekit
