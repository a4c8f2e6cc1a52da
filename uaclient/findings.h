// How the texts of findings are put together, and how those of a file get into a report.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>

#include "uaclient/uaclient.h"

namespace uaclient {

// The text with each "{}" replaced by the next part; parts that are left over are not needed.
std::wstring Filled(std::wstring text, std::initializer_list<std::wstring> parts);

// Somebody's text in quotes: not too much of it, and without control characters.
std::wstring Shown(std::wstring text);

struct FileFindings {
  using Parts = std::initializer_list<std::wstring>;

  // Line 0 means no line; an empty text is no finding. The helper fails because of an error.
  void Add(Severity severity, std::size_t line, std::wstring text);
  void Warn(std::size_t line, const std::wstring& text, Parts parts = {}) {
    Add(Severity::kWarning, line, Filled(text, parts));
  }
  void Harm(std::size_t line, const std::wstring& text, Parts parts = {}) {
    Add(Severity::kHarmful, line, Filled(text, parts));
  }
  void Fail(std::size_t line, const std::wstring& text, Parts parts = {}) {
    Add(Severity::kError, line, Filled(text, parts));
  }

  std::wstring file;
  Report& report;
};

}  // namespace uaclient
