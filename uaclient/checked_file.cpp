#include "uaclient/checked_file.h"

#include <cstdint>
#include <utility>

namespace uaclient {

std::wstring ReadWhole(const std::wstring& path, DWORD access, DWORD share, Handle& file,
                       std::string& bytes) {
  // Whoever waits behind the name of a pipe must not act as this user.
  constexpr DWORD kNoImpersonation = SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
  file = Handle(CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING,
                            FILE_FLAG_SEQUENTIAL_SCAN | kNoImpersonation, nullptr));
  if (!file) {
    const DWORD error = GetLastError();
    if (IsFolder(path)) return L" is a folder. Write the path of a file.";
    const bool exists = GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
    return exists ? L" cannot be opened: " + SystemMessage(error)
                  : L" does not exist. Write its whole path.";
  }
  if (GetFileType(file.get()) != FILE_TYPE_DISK) {
    return L" is a device, which the helper does not read. Write the path of a file on a disk.";
  }
  LARGE_INTEGER size = {};
  if (!GetFileSizeEx(file.get(), &size) || size.QuadPart > INT32_MAX) {
    return L" has 2 GiB or more, which the helper does not read. Use several smaller ones.";
  }
  bytes.resize(static_cast<std::size_t>(size.QuadPart));
  DWORD count = 0;
  if (!ReadFile(file.get(), bytes.data(), size.LowPart, &count, nullptr)) {
    return L" cannot be read: " + SystemMessage(GetLastError());
  }
  bytes.resize(count);
  return {};
}

std::wstring Shown(std::wstring text) {
  constexpr std::size_t kMaxShown = 200;
  if (text.size() > kMaxShown) text.replace(kMaxShown, std::wstring::npos, L"…");
  for (wchar_t& c : text) {
    if (c < L' ') c = L'?';
  }
  return Quoted(text);
}

FileFindings::FileFindings(std::filesystem::path file, Report& report)
    : file_(std::move(file)), report_(report) {}

void FileFindings::Add(Severity severity, std::size_t line, std::wstring text) {
  report_.helperFails |= severity == Severity::kError;
  Finding finding;
  finding.severity = severity;
  finding.text = std::move(text);
  finding.file = file_;
  finding.line = line;
  report_.findings.push_back(std::move(finding));
}

}  // namespace uaclient
