// What the helper would do with an operation list, what is wrong with it, and how what is found in
// a file comes into a report.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <utility>

#include "uaclient/words.h"
#include "uaclient/work.h"

namespace uaclient {

struct FileFindings {
  using Parts = std::initializer_list<std::wstring>;

  // Line 0 means no line; an empty text is no finding. The helper fails because of an error.
  void Add(Severity severity, std::size_t line, std::wstring text) {
    if (text.empty()) return;
    report.helperFails |= severity == Severity::kError;
    report.findings.push_back({severity, std::move(text), file, line});
  }
  void Warn(std::size_t line, const std::wstring& text, Parts parts = {}) {
    Add(Severity::kWarning, line, Filled(text, parts));
  }
  void Fail(std::size_t line, const std::wstring& text, Parts parts = {}) {
    Add(Severity::kError, line, Filled(text, parts));
  }

  std::wstring file;
  Report& report;
};

// Reads the list in `work`, which stands in this file, and adds to the work.
void ReadList(const std::wstring& file, const Options& options, Work& work);

}  // namespace uaclient
