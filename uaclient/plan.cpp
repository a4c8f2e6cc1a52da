#include <algorithm>
#include <utility>

#include "uaclient/check_copies.h"
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

// The plan as the helper will carry it out.
Findings CopyPlan::Check() const {
  if (items_.empty()) {
    return {{Severity::kError, false, {}, 0, L"The plan is empty; add a file or a folder."}};
  }
  std::vector<CopyItem> ordered;
  const std::vector<std::size_t> order = HelperOrder(items_);
  ordered.reserve(order.size());
  for (const std::size_t item : order) ordered.push_back(items_[item]);

  Findings findings;
  for (CopyRemark& found : CheckCopies(std::move(ordered), Origin::kPlan).remarks) {
    const bool isError = found.remark.weight >= Weight::kFails;
    findings.push_back({isError ? Severity::kError : Severity::kWarning,
                        found.remark.weight == Weight::kHarms,
                        {},
                        0,
                        std::move(found.remark.text),
                        order[found.item]});
  }
  return findings;
}

}  // namespace uaclient
