#include "uactl/report.h"

#include <nlohmann/json.hpp>

#include "corekit/text.h"
#include "uaclient/size_text.h"
#include "uactask/exit_codes.h"
#include "uactl/console.h"

namespace {

using uaclient::BytesInWords;
using uaclient::FilesInWords;
using uaclient::Finding;
using uaclient::OneDecimal;
using uaclient::SpeaksAgainst;
using uaclient::Status;
using uaclient::Step;

const wchar_t* SeverityName(const Finding& finding) {
  return finding.severity == uaclient::Severity::kError ? L"error" : L"warning";
}

std::wstring FindingLine(const Finding& finding, const std::wstring& addition = {}) {
  if (finding.file.empty()) {
    return ErrorLine(SpeaksAgainst(finding) ? finding.text : L"warning: " + finding.text);
  }
  std::wstring place = finding.file.wstring();
  if (finding.line > 0) place += L":" + std::to_wstring(finding.line);
  return Line(place + L": " + SeverityName(finding) + L": " + finding.text + addition);
}

double Seconds(std::chrono::milliseconds time) {
  return std::chrono::duration<double>(time).count();
}

int ExitCodeOf(const uaclient::TaskFileReport& report) {
  if (!report.exists || report.helperFails) return kExitRefused;
  return report.findings.empty() ? kExitDone : kExitNotDone;
}

// Whether the files at the destinations were counted and compared.
bool WasLookedAt(Status status) {
  return status == Status::kDone || status == Status::kIncomplete || status == Status::kFailed;
}

// Of what was not even started: what speaks against it.
Report ReportRefusal(const uaclient::Findings& findings) {
  Report report;
  report.exitCode = kExitRefused;
  for (const Finding& finding : findings) {
    if (SpeaksAgainst(finding)) report.errors += FindingLine(finding);
  }
  report.errors += ErrorLine(L"Nothing was started.");
  return report;
}

const char* KindName(Step::Kind kind) {
  switch (kind) {
    case Step::Kind::kCopyFolder:
      return "copyFolder";
    case Step::Kind::kCopyFile:
      return "copyFile";
    case Step::Kind::kRegisterJob:
      return "registerJob";
    case Step::Kind::kDeleteJob:
      return "deleteJob";
  }
  return "";
}

}  // namespace

std::wstring ErrorLine(const std::wstring& text) { return Line(L"uactl: " + text); }

std::wstring ProgressText(const uaclient::Progress& progress) {
  if (progress.allFiles == 0) return {};
  if (progress.comparing) return L"comparing with the sources";
  const double seconds = Seconds(progress.elapsed);
  const double rate = seconds > 0 ? static_cast<double>(progress.bytes) / seconds : 0;
  const std::uint64_t share = progress.allBytes > 0 ? progress.bytes * 100 / progress.allBytes
                                                    : progress.files * 100 / progress.allFiles;
  return std::to_wstring(share) + L" %, " + std::to_wstring(progress.files) + L" of " +
         FilesInWords(progress.allFiles) + L", " + BytesInWords(progress.bytes) + L" of " +
         BytesInWords(progress.allBytes) + L", " + BytesInWords(static_cast<std::uint64_t>(rate)) +
         L"/s";
}

Report ReportRun(const uaclient::Result& result) {
  if (result.status == Status::kInvalid) return ReportRefusal(result.findings);
  Report report;
  report.exitCode = result.status == Status::kDone ? kExitDone : kExitNotDone;
  if (!result.reason.empty()) report.errors = ErrorLine(result.reason);
  bool copies = false;
  for (const uaclient::Item& item : result.items) {
    copies |= item.job.empty();
    if (item.done && !item.job.empty()) {
      report.output += Line(L"The job \"" + item.job +
                            (item.isDeletion ? L"\" was deleted." : L"\" was registered."));
    }
    if (!item.reason.empty() && item.reason != result.reason) {
      const std::wstring name = item.job.empty() ? item.destination.wstring() : item.job;
      report.errors += ErrorLine(L"\"" + name + L"\": " + item.reason);
    }
  }
  if (copies && WasLookedAt(result.status)) {
    report.output += Line(FilesInWords(result.files) + L", " + BytesInWords(result.bytes) + L", " +
                          OneDecimal(Seconds(result.elapsed)) + L" s");
  }
  if (result.status == Status::kDone && result.items.empty()) {
    report.output += Line(L"There was nothing to do.");
  }
  // What explains the outcome, and what was deleted for it. The reason may hold one of them.
  for (const Finding& finding : result.findings) {
    if (!WasLookedAt(result.status) || result.reason.find(finding.text) != std::wstring::npos) {
      continue;
    }
    report.errors += FindingLine(finding);
  }
  return report;
}

Report ReportPlanCheck(const uaclient::Findings& findings) {
  Report report;
  for (const Finding& finding : findings) {
    report.output += FindingLine(finding);
    if (SpeaksAgainst(finding)) report.exitCode = kExitRefused;
  }
  if (findings.empty()) report.output = Line(L"Nothing speaks against it.");
  return report;
}

Report ReportCheck(const uaclient::TaskFileReport& report) {
  Report text;
  text.exitCode = ExitCodeOf(report);
  for (const Finding& finding : report.findings) {
    text.output +=
        FindingLine(finding, finding.harmful ? L" \"uactl run\" does not start it." : L"");
  }
  for (const Step& step : report.steps) text.output += Line(L"plan: " + step.text);
  if (text.exitCode != kExitRefused && report.steps.empty()) text.output += Line(L"plan: nothing");
  if (text.exitCode == kExitRefused) {
    const int code = report.exists ? uactask::kHelperFailed : uactask::kHelperFoundNoTaskFile;
    text.output += Line((report.steps.empty() ? L"plan: nothing, the helper would fail"
                                              : L"plan: then the helper would fail") +
                        (L" with exit code " + std::to_wstring(code)));
  }
  return text;
}

Report ReportCheckAsJson(const uaclient::TaskFileReport& report,
                         const std::filesystem::path& file) {
  using Json = nlohmann::ordered_json;
  const auto utf8 = [](const std::filesystem::path& path) { return WideToUtf8(path.wstring()); };
  const int exitCode = ExitCodeOf(report);
  Json findings = Json::array();
  for (const Finding& finding : report.findings) {
    findings.push_back({{"severity", WideToUtf8(SeverityName(finding))},
                        {"harmful", finding.harmful},
                        {"file", utf8(finding.file)},
                        {"line", finding.line},
                        {"text", WideToUtf8(finding.text)}});
  }
  Json steps = Json::array();
  for (const Step& step : report.steps) {
    steps.push_back({{"kind", KindName(step.kind)},
                     {"source", utf8(step.source)},
                     {"destination", utf8(step.destination)},
                     {"job", WideToUtf8(step.job)},
                     {"files", step.files},
                     {"bytes", step.bytes},
                     {"empties", step.empties},
                     {"emptiedFiles", step.emptiedFiles},
                     {"emptiedBytes", step.emptiedBytes},
                     {"text", WideToUtf8(step.text)}});
  }
  const Json json = {
      {"file", utf8(file)}, {"exists", report.exists}, {"helperFails", report.helperFails},
      {"exit", exitCode},   {"findings", findings},    {"steps", steps}};
  return {exitCode, Utf8ToWide(json.dump(2)) + L"\n", L""};
}
