#include "uaclient/code_page.h"

#include <windows.h>

#include <algorithm>

#include "corekit/text.h"

namespace uaclient {
namespace {

bool IsOwnCodePageTheSystems() {
  DWORD systems = 0;
  GetLocaleInfoW(LOCALE_SYSTEM_DEFAULT, LOCALE_IDEFAULTANSICODEPAGE | LOCALE_RETURN_NUMBER,
                 reinterpret_cast<wchar_t*>(&systems), sizeof systems / sizeof(wchar_t));
  return GetACP() == systems;
}

bool IsAscii(const std::wstring& text) {
  return std::all_of(text.begin(), text.end(), [](wchar_t unit) { return unit < 0x80; });
}

}  // namespace

bool HelperReads(const std::wstring& text) {
  return IsAscii(text) ||
         (IsOwnCodePageTheSystems() && corekit::AnsiToWide(ForHelper(text)) == text);
}

std::string ForHelper(const std::wstring& text) { return corekit::Utf8ToAnsi(WideToUtf8(text)); }

}  // namespace uaclient
