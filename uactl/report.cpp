#include "uactl/report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "corekit/text.h"
#include "uaclient/win32.h"
#include "uaclient/words.h"
#include "uactask/exit_codes.h"
#include "uactl/console.h"

namespace {

using namespace uaclient;

// In the order of Status.
constexpr const char* kStatuses[] = {"done",       "incomplete", "invalid",     "refused",
                                     "notStarted", "failed",     "stillRunning"};
constexpr int kExitCodes[] = {0, 1, 2, 3, 1, 1, 4};

// In the order of Severity.
const std::wstring kSeverities[] = {L"warning", L"warning", L"error"};

// In the order of Step::Kind.
constexpr const char* kKinds[] = {"copyFile", "addFolder", "replaceFolder", "registerJob",
                                  "deleteJob"};

std::wstring ErrorLine(const std::wstring& text) { return Line(L"uactl: " + text); }

std::wstring FindingLines(const Report& report) {
  std::wstring text;
  for (const Finding& finding : report.findings) {
    const std::wstring line = finding.line > 0 ? L":" + std::to_wstring(finding.line) : L"";
    const wchar_t* const remark =
        finding.severity == Severity::kHarmful ? L" \"uactl run\" does not start it." : L"";
    text += Line(Filled(L"{}{}: {}: {}{}",
                        {finding.file.empty() ? L"uactl" : finding.file, line,
                         kSeverities[static_cast<int>(finding.severity)], finding.text, remark}));
  }
  return text;
}

std::wstring CheckText(const Report& report) {
  std::wstring text = FindingLines(report);
  for (const Step& step : report.steps) text += Line(L"plan: " + step.text);
  if (report.helperFails || !report.exists) {
    const int code = report.exists ? uactask::kHelperFailed : uactask::kHelperFoundNoTaskFile;
    text += Line(L"plan: the helper fails with exit code " + std::to_wstring(code));
  } else if (report.steps.empty()) {
    text += Line(L"plan: nothing");
  }
  return text;
}

std::wstring JobLine(const Item& item) {
  const wchar_t* const added = item.replaced ? L"replaced." : L"registered.";
  return Line(L"The job " + Quoted(item.job) + L" was " + (item.isDeletion ? L"deleted." : added));
}

Lines RunText(const Result& result) {
  Lines lines;
  if (!result.reason.empty()) lines.errors = ErrorLine(result.reason);
  for (const Item& item : result.items) {
    const std::wstring name = Quoted(item.job.empty() ? item.destination.wstring() : item.job);
    if (!item.reason.empty()) lines.errors += ErrorLine(name + L": " + item.reason);
    if (item.done && !item.job.empty()) lines.output = JobLine(item);
  }
  const bool isJob = !result.items.empty() && !result.items[0].job.empty();
  const bool isJudged = result.status == Status::kDone || result.status == Status::kIncomplete;
  if (!isJob && (isJudged || result.files > 0)) {
    lines.output = Line(FilesInWords(result.files) + L", " + BytesInWords(result.bytes) + L", " +
                        OneDecimal(static_cast<double>(result.elapsed.count()) / 1000) + L" s");
  }
  return lines;
}

}  // namespace

Outcome OutcomeOf(Result result, bool ofTaskFile) {
  const auto status = static_cast<std::size_t>(result.status);
  // The argument was right; what is wrong stands in the file.
  const bool isFileWrong = result.status == Status::kInvalid && ofTaskFile && result.report.exists;
  return {isFileWrong ? 1 : kExitCodes[status], kStatuses[status], false, std::move(result)};
}

Outcome Failure(Status status, const std::wstring& reason) {
  Result result;
  result.status = status;
  result.reason = reason;
  result.report.findings = {{Severity::kError, reason, {}}};
  return OutcomeOf(std::move(result), false);
}

Outcome OutcomeOf(Report report, bool ofTaskFile) {
  const Finding* const refusal = FirstRefusal(report);
  const bool fails = ofTaskFile ? report.helperFails || !report.exists : refusal != nullptr;
  const bool isClean = report.findings.empty() && !report.leavesOut;
  const int code = fails ? 2 : isClean || !ofTaskFile ? 0 : 1;
  Outcome outcome = {code, fails ? "fails" : isClean ? "clean" : "suspicious", true, {}};
  if (refusal != nullptr) outcome.result.reason = refusal->text;
  outcome.result.report = std::move(report);
  return outcome;
}

Lines AsText(const Outcome& outcome) {
  const Result& result = outcome.result;
  if (outcome.isCheck) return {CheckText(result.report), {}};
  if (result.status != Status::kInvalid) return RunText(result);
  return {{}, FindingLines(result.report) + ErrorLine(L"Nothing was started.")};
}

std::string AsJson(const Outcome& outcome) {
  using Json = nlohmann::ordered_json;
  const auto text = [](const std::filesystem::path& path) { return WideToUtf8(path.wstring()); };
  Json json = {{"exit", outcome.exitCode},
               {"status", outcome.status},
               {"reason", text(outcome.result.reason)},
               {"findings", Json::array()},
               {"steps", Json::array()},
               {"items", Json::array()}};
  for (const Finding& finding : outcome.result.report.findings) {
    json["findings"].push_back(
        {{"severity", text(kSeverities[static_cast<int>(finding.severity)])},
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
    const bool isTold = item.done || !item.reason.empty();
    json["items"].push_back({{"source", text(item.source)},
                             {"destination", text(item.destination)},
                             {"job", text(item.job)},
                             {"done", item.done},
                             {"replaced", item.replaced},
                             {"reason", text(isTold ? item.reason : outcome.result.reason)}});
  }
  return json.dump(2, ' ', true) + "\n";
}

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
  const auto elapsed = std::max<std::int64_t>(progress.elapsed.count(), 1);
  const std::uint64_t share = progress.allBytes > 0 ? progress.bytes * 100 / progress.allBytes
                                                    : progress.files * 100 / progress.allFiles;
  return std::to_wstring(share) + L" %, " + std::to_wstring(progress.files) + L" of " +
         FilesInWords(progress.allFiles) + L", " + BytesInWords(progress.bytes) + L" of " +
         BytesInWords(progress.allBytes) + L", " +
         BytesInWords(progress.bytes * 1000 / static_cast<std::uint64_t>(elapsed)) + L"/s";
}
