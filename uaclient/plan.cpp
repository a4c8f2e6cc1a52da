#include <algorithm>

#include "uaclient/uaclient.h"

namespace uaclient {

bool HasErrors(const Findings& findings) {
  return std::any_of(findings.begin(), findings.end(),
                     [](const Finding& finding) { return finding.severity == Severity::kError; });
}

bool SpeaksAgainst(const Finding& finding) {
  return finding.harmful || finding.severity == Severity::kError;
}

void CopyPlan::File(const std::filesystem::path& source, const std::filesystem::path& destination) {
  items_.push_back({source, destination, false});
}

void CopyPlan::Folder(const std::filesystem::path& source,
                      const std::filesystem::path& destination) {
  items_.push_back({source, destination, true});
}

}  // namespace uaclient
