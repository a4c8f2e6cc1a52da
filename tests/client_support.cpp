#include "client_support.h"

#include <windows.h>

#include <filesystem>

#include "corekit/text.h"

using uaclient::Finding;
using uaclient::Findings;
using uaclient::Severity;

std::string Absolute(const TestFolder& folder) {
  return WideToUtf8(std::filesystem::absolute(Utf8ToWide(folder.Path())).generic_wstring());
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

std::string OwnProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return WideToUtf8(path);
}

std::string Shown(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += finding.severity == Severity::kHarmful ? "!"
            : finding.severity == Severity::kError ? "E"
                                                   : "W";
    if (finding.file.find(L".xml") != std::wstring::npos) text += ":";
    if (finding.line != 0) text += std::to_string(finding.line);
    text += " " + WideToUtf8(finding.text) + "\n";
  }
  return text;
}

testing::AssertionResult Are(const Findings& findings, const std::vector<std::string>& expected) {
  std::vector<bool> met(findings.size());
  std::string faults;
  for (const std::string& one : expected) {
    const std::size_t blank = one.find(' ');
    bool found = false;
    for (std::size_t i = 0; i < findings.size() && !found; ++i) {
      const std::string line = Shown({findings[i]});
      found = !met[i] && line.rfind(one.substr(0, blank + 1), 0) == 0 &&
              line.find(one.substr(blank + 1)) != std::string::npos;
      if (found) met[i] = true;
    }
    if (!found) faults += "missing: " + one + "\n";
  }
  for (std::size_t i = 0; i < findings.size(); ++i) {
    if (!met[i]) faults += "unexpected: " + Shown({findings[i]});
  }
  if (faults.empty()) return testing::AssertionSuccess();
  return testing::AssertionFailure() << faults << "of:\n" << Shown(findings);
}
