// A file that somebody wrote for the helper: its bytes, and what is found in it.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>

#include "uaclient/uaclient.h"
#include "uaclient/win32.h"

namespace uaclient {

// Reads all of a file that the helper could read, too, and leaves it open in `file`. Returns why
// that fails, as the end of a sentence that begins with the file; L"" when it does not.
std::wstring ReadWhole(const std::wstring& path, DWORD access, DWORD share, Handle& file,
                       std::string& bytes);

// Somebody's text in quotes: not too much of it, and without control characters.
std::wstring Shown(std::wstring text);

// Adds findings in a file to a report. Line 0 means no line.
class FileFindings {
 public:
  FileFindings(std::filesystem::path file, Report& report);

  void Add(Severity severity, std::size_t line, std::wstring text);
  void Warn(std::size_t line, std::wstring text) { Add(Severity::kWarning, line, std::move(text)); }
  void Harm(std::size_t line, std::wstring text) { Add(Severity::kHarmful, line, std::move(text)); }
  // The helper fails because of it.
  void Fail(std::size_t line, std::wstring text) { Add(Severity::kError, line, std::move(text)); }

 private:
  std::filesystem::path file_;
  Report& report_;
};

}  // namespace uaclient
