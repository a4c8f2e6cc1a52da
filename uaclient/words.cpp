#include "uaclient/words.h"

#include <cwchar>
#include <iterator>

#include "corekit/text.h"
#include "uaclient/win32.h"

namespace uaclient {
namespace {

// Where the system keeps it: the locale's own code page is another one when the whole system has
// been switched to UTF-8, and GetACP answers for this process.
unsigned SystemCodePage() {
  static const auto codePage = [] {
    wchar_t number[16] = {};
    DWORD size = sizeof number;
    RegGetValueW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", L"ACP",
                 RRF_RT_REG_SZ, nullptr, number, &size);
    return static_cast<unsigned>(std::wcstoul(number, nullptr, 10));
  }();
  return codePage != 0 ? codePage : GetACP();
}

}  // namespace

std::wstring Filled(std::wstring_view text, Parts parts) {
  std::wstring filled;
  for (const std::wstring_view part : parts) {
    const std::size_t gap = text.find(L"{}");
    if (gap == text.npos) break;
    filled.append(text.substr(0, gap)).append(part);
    text.remove_prefix(gap + 2);
  }
  filled += text;
  return filled;
}

std::wstring Quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

std::wstring Shown(std::wstring text) {
  constexpr std::size_t kMaxShown = 200;
  if (text.size() > kMaxShown) text.replace(kMaxShown, std::wstring::npos, L"…");
  for (wchar_t& c : text) {
    if (c < L' ') c = L'?';
  }
  return Quoted(text);
}

std::wstring FilesInWords(std::uint64_t count) {
  return std::to_wstring(count) + (count == 1 ? L" file" : L" files");
}

std::wstring BytesInWords(std::uint64_t bytes) {
  if (bytes < 1000) return std::to_wstring(bytes) + (bytes == 1 ? L" byte" : L" bytes");
  const wchar_t* const units[] = {L" kB", L" MB", L" GB", L" TB"};
  double amount = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  for (; amount >= 1000 && unit + 1 < std::size(units); ++unit) amount /= 1000;
  return OneDecimal(amount) + units[unit];
}

std::wstring OneDecimal(double number) {
  const std::wstring text = std::to_wstring(number);  // with six of them
  return text.substr(0, text.size() - 5);
}

std::wstring SystemMessage(DWORD error) {
  wchar_t text[512] = {};
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
      nullptr, error, 0, text, 512, nullptr);
  std::wstring message(text, length);
  const std::size_t name = message.find(L"%1");  // of a file
  if (name != message.npos) message.replace(name, 2, L"this file");
  message.resize(message.find_last_not_of(L" .\r\n") + 1);
  const std::wstring number = std::to_wstring(error);
  return message.empty() ? L"Error " + number + L"." : message + L" (error " + number + L").";
}

std::string ForHelper(const std::wstring& text) { return WideToCodePage(text, SystemCodePage()); }

std::wstring FromHelper(const std::string& bytes) {
  return CodePageToWide(bytes, SystemCodePage());
}

bool HelperReads(const std::wstring& text) { return FromHelper(ForHelper(text)) == text; }

}  // namespace uaclient
