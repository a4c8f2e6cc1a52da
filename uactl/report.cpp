#include "uactl/report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "corekit/text.h"
#include "uaclient/size_text.h"
#include "uaclient/win32.h"
#include "uactask/exit_codes.h"
#include "uactl/console.h"

namespace {

using namespace uaclient;

// In the order of Status.
constexpr const char* kStatuses[] = {"done",       "incomplete", "invalid",     "refused",
                                     "notStarted", "failed",     "stillRunning"};
constexpr int kExitCodes[] = {0, 1, 2, 3, 1, 1, 4};

// In the order of Step::Kind.
constexpr const char* kKinds[] = {"copyFile", "addFolder", "replaceFolder", "registerJob",
                                  "deleteJob"};

std::wstring ErrorLine(const std::wstring& text) { return Line(L"uactl: " + text); }

std::wstring SeverityName(const Finding& finding) {
  return finding.severity == Severity::kError ? L"error" : L"warning";
}

std::wstring FindingLines(const Report& report) {
  std::wstring text;
  for (const Finding& finding : report.findings) {
    std::wstring line = finding.file;
    if (finding.line > 0) line += L":" + std::to_wstring(finding.line);
    line += L": " + SeverityName(finding) + L": " + finding.text;
    if (finding.severity == Severity::kHarmful) line += L" \"uactl run\" does not start it.";
    if (!finding.file.empty()) {
      text += Line(line);
    } else {
      text += Refuses(finding) ? ErrorLine(finding.text) : WarningLine(finding.text);
    }
  }
  return text;
}

double Seconds(std::chrono::milliseconds time) {
  return std::chrono::duration<double>(time).count();
}

std::wstring CheckText(const Report& report) {
  std::wstring text = FindingLines(report);
  for (const Step& step : report.steps) text += Line(L"plan: " + step.text);
  if (report.helperFails || !report.exists) {
    const int code = report.exists ? uactask::kHelperFailed : uactask::kHelperFoundNoTaskFile;
    text += report.steps.empty() ? L"plan: nothing, " : L"plan: then ";
    text += Line(L"the helper would fail with exit code " + std::to_wstring(code));
  } else if (report.steps.empty()) {
    text += Line(L"plan: nothing");
  }
  return text;
}

std::wstring RefusalText(const Result& result) {
  const std::wstring findings = FindingLines(result.report);
  return (findings.empty() ? ErrorLine(result.reason) : findings) +
         ErrorLine(L"Nothing was started.");
}

const std::wstring& ReasonOf(const Item& item, const Result& result) {
  return item.done || !item.reason.empty() ? item.reason : result.reason;
}

std::wstring JobLine(const Item& item) {
  const std::wstring added = item.replaced ? L"replaced" : L"registered";
  return Line(L"The job " + Quoted(item.job) + L" was " + (item.isDeletion ? L"deleted" : added) +
              L".");
}

Lines RunText(const Result& result) {
  Lines lines;
  // The end state was compared with the sources.
  const bool wasJudged = result.status == Status::kDone || result.status == Status::kIncomplete ||
                         result.status == Status::kFailed;
  bool isReasonTold = result.reason.empty();
  bool copies = false;
  for (const Item& item : result.items) {
    copies |= item.job.empty();
    if (item.done && !item.job.empty()) lines.output += JobLine(item);
    const std::wstring& reason = wasJudged ? ReasonOf(item, result) : item.reason;
    if (reason.empty()) continue;
    const std::wstring name = item.job.empty() ? item.destination.wstring() : item.job;
    lines.errors += ErrorLine(Quoted(name) + L": " + reason);
    isReasonTold |= reason == result.reason;
  }
  if (!isReasonTold) lines.errors.insert(0, ErrorLine(result.reason));
  if (copies && wasJudged) {
    lines.output += Line(FilesInWords(result.files) + L", " + BytesInWords(result.bytes) + L", " +
                         OneDecimal(Seconds(result.elapsed)) + L" s");
  }
  if (result.status == Status::kDone && result.items.empty()) {
    lines.output = Line(L"There was nothing to do.");
  }
  return lines;
}

}  // namespace

Outcome OutcomeOf(const Result& result, bool ofTaskFile) {
  const auto status = static_cast<std::size_t>(result.status);
  // The argument was right; what is wrong stands in the file.
  const bool isFileWrong = result.status == Status::kInvalid && ofTaskFile && result.report.exists;
  return {isFileWrong ? 1 : kExitCodes[status], kStatuses[status], false, result};
}

Outcome OutcomeOf(const Report& report, bool ofTaskFile) {
  const Finding* const refusal = FirstRefusal(report);
  const bool fails = ofTaskFile ? report.helperFails || !report.exists : refusal != nullptr;
  const bool isClean = report.findings.empty() && !report.leavesOut;
  Result result;
  result.report = report;
  if (refusal != nullptr) result.reason = refusal->text;
  if (fails) return {2, "fails", true, result};
  if (isClean) return {0, "clean", true, result};
  return {ofTaskFile ? 1 : 0, "suspicious", true, result};
}

Outcome Exhausted(bool isCheck) {
  Result result;
  result.reason = L"not enough memory";
  return {isCheck ? 2 : 1, isCheck ? "fails" : "failed", isCheck, result};
}

Lines AsText(const Outcome& outcome) {
  if (outcome.isCheck) return {CheckText(outcome.result.report), {}};
  if (outcome.result.status == Status::kInvalid) return {{}, RefusalText(outcome.result)};
  return RunText(outcome.result);
}

std::string AsJson(const Outcome& outcome) {
  using Json = nlohmann::ordered_json;
  const auto text = [](const std::filesystem::path& path) { return WideToUtf8(path.wstring()); };
  const Json none = Json::array();
  Json json = {{"exit", outcome.exitCode},
               {"status", outcome.status},
               {"reason", text(outcome.result.reason)},
               {"findings", none},
               {"steps", none},
               {"items", none}};
  for (const Finding& finding : outcome.result.report.findings) {
    json["findings"].push_back(
        {{"severity", text(SeverityName(finding))},
         {"harmful", finding.severity == Severity::kHarmful},
         {"file", text(finding.file)},
         {"line", finding.line},
         {"item", finding.item == Finding::kNoItem ? Json() : Json(finding.item)},
         {"text", text(finding.text)}});
  }
  for (const Step& step : outcome.result.report.steps) {
    json["steps"].push_back({{"kind", kKinds[static_cast<int>(step.kind)]},
                             {"source", text(step.source)},
                             {"destination", text(step.destination)},
                             {"job", text(step.job)},
                             {"files", step.files},
                             {"bytes", step.bytes},
                             {"deletes", step.deletes},
                             {"deletedFiles", step.deletedFiles},
                             {"deletedBytes", step.deletedBytes},
                             {"text", text(step.text)}});
  }
  for (const Item& item : outcome.result.items) {
    json["items"].push_back({{"source", text(item.source)},
                             {"destination", text(item.destination)},
                             {"job", text(item.job)},
                             {"done", item.done},
                             {"reason", text(ReasonOf(item, outcome.result))}});
  }
  return json.dump(2, ' ', true) + "\n";
}

std::wstring WarningLine(const std::wstring& text) { return ErrorLine(L"warning: " + text); }

std::wstring Announcement(const Report& report) {
  std::wstring text = FindingLines(report);
  for (const Step& step : report.steps) {
    if (step.deletes) text += ErrorLine(L"plan: " + step.text);
  }
  return text;
}

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
