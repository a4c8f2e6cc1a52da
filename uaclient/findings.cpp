#include "uaclient/findings.h"

#include <utility>

#include "uaclient/win32.h"

namespace uaclient {

std::wstring Filled(std::wstring text, std::initializer_list<std::wstring> parts) {
  std::size_t at = 0;
  for (const std::wstring& part : parts) {
    at = text.find(L"{}", at);
    if (at == std::wstring::npos) break;
    text.replace(at, 2, part);
    at += part.size();
  }
  return text;
}

std::wstring Shown(std::wstring text) {
  constexpr std::size_t kMaxShown = 200;
  if (text.size() > kMaxShown) text.replace(kMaxShown, std::wstring::npos, L"…");
  for (wchar_t& c : text) {
    if (c < L' ') c = L'?';
  }
  return Quoted(text);
}

void FileFindings::Add(Severity severity, std::size_t line, std::wstring text) {
  if (text.empty()) return;
  report.helperFails |= severity == Severity::kError;
  report.findings.push_back({severity, std::move(text), file, line});
}

}  // namespace uaclient
