#include "client_support.h"

#include <algorithm>
#include <filesystem>

#include "corekit/text.h"

using uaclient::Finding;
using uaclient::Findings;

std::string Absolute(const TestFolder& folder) {
  return WideToUtf8(std::filesystem::absolute(Utf8ToWide(folder.Path())).generic_wstring());
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

std::string Shown(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += "W!E"[static_cast<int>(finding.severity)];
    if (finding.file.find(L".xml") != std::wstring::npos) text += ":";
    if (finding.line != 0) text += std::to_string(finding.line);
    text += " " + WideToUtf8(finding.text) + "\n";
  }
  return text;
}

testing::AssertionResult Are(const Findings& findings, const std::vector<std::string>& expected) {
  Findings unexpected = findings;
  std::string missing;
  for (const std::string& one : expected) {
    const std::size_t fragment = one.find(' ') + 1;
    const auto found =
        std::find_if(unexpected.begin(), unexpected.end(), [&](const Finding& finding) {
          const std::string line = Shown({finding});
          return line.rfind(one.substr(0, fragment), 0) == 0 &&
                 line.find(one.substr(fragment)) != std::string::npos;
        });
    if (found == unexpected.end()) {
      missing += one + "\n";
    } else {
      unexpected.erase(found);
    }
  }
  if (missing.empty() && unexpected.empty()) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "missing:\n"
                                     << missing << "unexpected:\n"
                                     << Shown(unexpected) << "of:\n"
                                     << Shown(findings);
}
