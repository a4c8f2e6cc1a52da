#include "uaclient/code_page.h"

#include <windows.h>

#include <cwchar>

#include "corekit/text.h"

namespace uaclient {
namespace {

// Where the system keeps it: the locale's own code page is another one when the whole system has
// been switched to UTF-8, and GetACP answers for this process.
unsigned SystemCodePage() {
  wchar_t number[16] = {};
  DWORD size = sizeof number;
  RegGetValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", L"ACP",
               RRF_RT_REG_SZ, nullptr, number, &size);
  const auto codePage = static_cast<unsigned>(std::wcstoul(number, nullptr, 10));
  return codePage != 0 ? codePage : GetACP();
}

}  // namespace

bool HelperReads(const std::wstring& text) { return FromHelper(ForHelper(text)) == text; }

std::string ForHelper(const std::wstring& text) {
  return corekit::WideToCodePage(text, SystemCodePage());
}

std::wstring FromHelper(const std::string& bytes) {
  return corekit::CodePageToWide(bytes, SystemCodePage());
}

}  // namespace uaclient
