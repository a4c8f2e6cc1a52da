#include "uaclient/win32.h"

namespace uaclient {

bool WriteAll(const Handle& file, const std::string& bytes) {
  DWORD written = 0;
  const auto size = static_cast<DWORD>(bytes.size());
  return file && WriteFile(file.get(), bytes.data(), size, &written, nullptr) && written == size;
}

std::wstring Quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

std::wstring SystemMessage(DWORD error) {
  wchar_t text[512] = {};
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
      nullptr, error, 0, text, 512, nullptr);
  std::wstring message(text, length);
  message.resize(message.find_last_not_of(L" .\r\n") + 1);
  return message + (message.empty() ? L"error " : L" (error ") + std::to_wstring(error) +
         (message.empty() ? L"." : L").");
}

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool (*IsElevated)() = [] {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return false;
  const Handle token(opened);
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  return GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof elevation, &size) &&
         elevation.TokenIsElevated != 0;
};

}  // namespace uaclient
