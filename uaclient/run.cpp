#include <windows.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "corekit/text.h"
#include "uaclient/claims.h"
#include "uaclient/code_page.h"
#include "uaclient/copies.h"
#include "uaclient/copy_progress.h"
#include "uaclient/end_state.h"
#include "uaclient/findings.h"
#include "uaclient/helper_files.h"
#include "uaclient/helper_process.h"
#include "uaclient/jobs.h"
#include "uaclient/path.h"
#include "uaclient/task_reading.h"
#include "uaclient/uaclient.h"
#include "uaclient/win32.h"
#include "uactask/exit_codes.h"
#include "uactask/task_file_op.h"
#include "uactask/task_scheduler.h"

namespace uaclient {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kBetweenReports{100};
constexpr DWORD kBetweenLooks = 20;  // milliseconds

// What is to be done, checked and put into the helper's words.
struct Work {
  Result result;     // with the check's report and one item for each of the survey, or for the job
  Survey survey;     // of copies
  std::string task;  // the task file's bytes; empty: one that names the list
  std::string list;
  JobState jobBefore = JobState::kUnknown;

  bool IsJob() const { return !result.items.empty() && !result.items[0].job.empty(); }
};

// What a run has on the disk while the helper works.
struct Traces {
  RunClaim claim;
  HelperFiles files;
  Handle helper;
};

void CALLBACK RemoveTraces(PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT wait, TP_WAIT_RESULT) {
  const std::unique_ptr<Traces> traces(static_cast<Traces*>(context));
  CloseThreadpoolWait(wait);
}

// Leaves them to the helper: they go when it has ended, if this process lives that long.
void LeaveToHelper(std::unique_ptr<Traces> traces, HANDLE helper) {
  HANDLE own = nullptr;
  DuplicateHandle(GetCurrentProcess(), helper, GetCurrentProcess(), &own, SYNCHRONIZE, FALSE, 0);
  traces->helper = Handle(own);
  traces->claim.LeaveToHelper();
  const PTP_WAIT wait = CreateThreadpoolWait(RemoveTraces, traces.get(), nullptr);
  if (wait != nullptr) SetThreadpoolWait(wait, traces.release()->helper.get(), nullptr);
}

// One run of the helper, from the check's report to what became of every item.
class HelperRun {
 public:
  HelperRun(Work work, const Options& options)
      : work_(std::move(work)), options_(options), progress_(work_.survey) {}

  Result Run() {
    Result& result = work_.result;
    if (const Finding* refusal = FirstRefusal(result.report)) {
      Refuse(*refusal);
      return std::move(result);
    }
    result.status = Carry(result.reason);
    traces_.reset();  // or they would be found in sources
    work_.IsJob() ? LookAtJob() : LookAtCopies();
    result.elapsed = Elapsed();
    return std::move(result);
  }

 private:
  // What is said of one item is no reason against another.
  void Refuse(const Finding& refusal) {
    Result& result = work_.result;
    result.status = Status::kInvalid;
    result.reason = refusal.text;
    for (std::size_t i = 0; i < result.items.size(); ++i) {
      const auto& findings = result.report.findings;
      const auto own = std::find_if(findings.begin(), findings.end(), [i](const Finding& one) {
        return one.item == i && Refuses(one);
      });
      if (own == findings.end() && refusal.item == Finding::kNoItem) continue;
      result.items[i].reason = own == findings.end() ? L"Another item was refused." : own->text;
    }
  }

  // kDone when the helper has ended with success.
  Status Carry(std::wstring& why) {
    if (options_.confirm && !options_.confirm(work_.result.report)) {
      why = L"It was given up before the helper was started. Nothing was done.";
      return Status::kNotStarted;
    }
    if (work_.task.empty() && work_.list.empty()) return Status::kDone;  // everything is there
    const std::wstring helper = HelperPath(options_);
    if (!IsStartable(helper, why) || !LeaveFiles(why)) return Status::kNotStarted;
    if (options_.progress && !options_.progress(progress_.Seen())) {
      why = L"It was given up before the helper was started. Nothing was done.";
      return Status::kNotStarted;
    }
    const Status started = process_.Start(helper, traces_->files.TaskPath(), options_.owner, why);
    if (started != Status::kDone) return started;
    start_ = Clock::now();  // what the user took to allow it does not count
    traces_->claim.AddHelper(process_.Get());
    bool hasEnded = false;
    try {
      hasEnded = Wait();
    } catch (...) {
      LeaveToHelper(std::move(traces_), process_.Get());
      throw;
    }
    if (hasEnded) return Verdict(why);
    why =
        L"Waiting for the helper was given up. It is elevated and cannot be ended from here: it "
        L"goes on, and its files in " +
        Quoted(traces_->files.Folder()) + L" are left to it.";
    LeaveToHelper(std::move(traces_), process_.Get());
    return Status::kStillRunning;
  }

  static bool IsStartable(const std::wstring& helper, std::wstring& why) {
    const DWORD attributes = GetFileAttributesW(helper.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      why = L"The helper " + Quoted(helper) +
            L" is not there. Put it beside the calling program, or write its path into the "
            L"options.";
    } else if (const std::wstring fault = DriveFault(helper); !fault.empty()) {
      why = L"The helper " + Quoted(helper) + L" cannot be started: " + fault;
    }
    return why.empty();
  }

  bool LeaveFiles(std::wstring& why) {
    traces_ = std::make_unique<Traces>();
    HelperFiles& files = traces_->files;
    const std::wstring folder = NewHelperFolder(why);
    if (folder.empty() || !traces_->claim.Take(work_.survey.claims, folder, why) ||
        !files.CreateFolder(folder, why) ||
        (!work_.list.empty() && !files.WriteList(work_.list, why))) {
      return false;
    }
    if (!work_.list.empty()) {
      work_.task = FormatTaskFile(UACTaskFileOp::kType,
                                  {{UACTaskFileOp::kXmlPath, ForHelper(files.ListPath())}});
    }
    return files.WriteTask(work_.task, why);
  }

  bool Wait() {
    while (!process_.HasEnded(kBetweenLooks)) {
      if (!Report()) return process_.HasEnded(0);
    }
    return true;
  }

  // Tells the application how far it is; false when it has given up, or the time is over.
  bool Report() {
    const milliseconds elapsed = Elapsed();
    if (isWaiting_ && options_.timeout.count() > 0 && elapsed >= options_.timeout) {
      isGivenUp_ = true;
    }
    if (!isGivenUp_ && options_.progress && elapsed - lastReport_ >= kBetweenReports) {
      lastReport_ = elapsed;
      if (isWaiting_) {
        progress_.Advance(process_.BytesWritten());
        judged_ = progress_.Seen();
      }
      isGivenUp_ = !Tell(elapsed);
    }
    return !isGivenUp_;
  }

  bool Tell(milliseconds elapsed) {
    judged_.elapsed = elapsed;
    return options_.progress(judged_);
  }

  milliseconds Elapsed() const {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start_);
  }

  Status Verdict(std::wstring& why) const {
    const DWORD code = process_.ExitCode();
    if (code == kHelperSucceeded) return Status::kDone;
    wchar_t number[16];
    std::swprintf(number, std::size(number), code < 256 ? L"%lu" : L"0x%08lX", code);
    why = code == kHelperFailed ? L"The helper gave up (exit code 1)."
          : code == kHelperFoundNoTaskFile
              ? L"The helper did not find its task file (exit code 2)."
              : L"The helper ended abnormally, with exit code " + std::wstring(number) + L".";
    return Status::kFailed;
  }

  void LookAtCopies() {
    Result& result = work_.result;
    if (result.status != Status::kDone && result.status != Status::kFailed) return;
    isWaiting_ = false;
    isGivenUp_ = false;  // a time-out that came with the helper's end concerned the waiting alone
    judged_ = progress_.Seen();
    std::vector<Item> items =
        JudgeEndState(work_.survey, options_.comparison, [this] { return Report(); }, judged_);
    if (!isGivenUp_ && options_.progress) Tell(Elapsed());
    result.files = judged_.files;
    result.bytes = judged_.bytes;
    std::size_t missing = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
      Item& item = result.items[i];
      item.done = items[i].done;
      item.reason = std::move(items[i].reason);
      if (item.done) continue;
      ++missing;
      if (!work_.survey.lastDeleted[i].empty())
        item.reason += L" The folder's old content is gone.";
    }
    if (result.status == Status::kFailed) return;
    if (missing != 0) {
      result.reason = Filled(L"{} of {} items did not arrive as they should.",
                             {std::to_wstring(missing), std::to_wstring(items.size())});
    } else if (result.report.leavesOut) {
      result.reason = L"Not everything in the list was done: the helper leaves items out.";
    }
    if (!result.reason.empty()) result.status = Status::kIncomplete;
  }

  void LookAtJob() {
    Result& result = work_.result;
    Item& item = result.items.front();
    const JobState now = result.status == Status::kDone || result.status == Status::kFailed
                             ? FindJob(item.job)
                             : JobState::kUnknown;
    if (result.status == Status::kFailed) {
      const std::wstring output = process_.Output();
      result.reason += Filled(item.isDeletion ? L" The job {} was not deleted.{}"
                                              : L" The job {} was not registered, and an older one "
                                                L"of that name may be gone.{}",
                              {Quoted(item.job), item.isDeletion && now == JobState::kNotThere
                                                     ? L" There is no job of that name."
                                                 : output.empty() ? L""
                                                                  : L" It said: " + output + L"."});
    }
    if (result.status != Status::kDone) return;
    item.replaced = !item.isDeletion && work_.jobBefore == JobState::kThere;
    item.done = now != (item.isDeletion ? JobState::kThere : JobState::kNotThere);
    if (!item.done) {
      result.status = Status::kIncomplete;
      result.reason = item.isDeletion ? L"The helper reports success, but the job is still there."
                                      : L"The helper reports success, but the job is not there.";
    } else if (now == JobState::kUnknown && !item.isDeletion) {
      item.reason =
          L"The helper reports success, but this user cannot see the job. If another account "
          L"confirmed the elevation, the job is that account's, and starts only while it is "
          L"logged on.";
    } else if (now == JobState::kUnknown && work_.jobBefore != JobState::kThere) {
      item.reason = L"The helper reports success, but this user could not see the job before.";
    }
  }

  Work work_;
  const Options& options_;
  CopyProgress progress_;
  Progress judged_;
  HelperProcess process_;
  std::unique_ptr<Traces> traces_;
  Clock::time_point start_ = Clock::now();
  milliseconds lastReport_{0};
  bool isWaiting_ = true;
  bool isGivenUp_ = false;
};

Survey SurveyPlan(const CopyPlan& plan, const Options& options) {
  std::vector<Copy> items;
  for (const CopyItem& item : plan.Items()) {
    items.push_back({item.kind, item.source.wstring(), item.destination.wstring()});
  }
  return SurveyCopies(std::move(items), Origin::kPlan, options);
}

Report ReportOf(Survey survey) {
  Report report;
  report.findings = std::move(survey.findings);
  report.steps = std::move(survey.steps);
  if (survey.items.empty()) {
    report.findings.push_back(
        {Severity::kError, L"The plan is empty. Add a file or a folder.", {}});
  }
  return report;
}

Item ItemOf(const std::filesystem::path& source, const std::filesystem::path& destination) {
  Item item;
  item.source = source;
  item.destination = destination;
  return item;
}

Item ItemOf(const std::wstring& job, bool isDeletion) {
  Item item;
  item.job = job;
  item.isDeletion = isDeletion;
  return item;
}

Result RunJob(const std::wstring& name, bool isDeletion, Report report, const TaskParams& params,
              const Options& options) {
  Work work;
  work.result.items.push_back(ItemOf(name, isDeletion));
  work.result.report = std::move(report);
  work.task = FormatTaskFile(UACTaskScheduler::kType, params);
  work.jobBefore = FindJob(name);
  return HelperRun(std::move(work), options).Run();
}

}  // namespace

void CopyPlan::File(const std::filesystem::path& source, const std::filesystem::path& destination) {
  items_.push_back({CopyItem::Kind::kFile, source, destination});
}

void CopyPlan::Folder(const std::filesystem::path& source,
                      const std::filesystem::path& destination) {
  items_.push_back({CopyItem::Kind::kFolder, source, destination});
}

void CopyPlan::ReplaceFolder(const std::filesystem::path& source,
                             const std::filesystem::path& destination) {
  items_.push_back({CopyItem::Kind::kReplaceFolder, source, destination});
}

bool Refuses(const Finding& finding) { return finding.severity != Severity::kWarning; }

const Finding* FirstRefusal(const Report& report) {
  const auto found = std::find_if(report.findings.begin(), report.findings.end(), Refuses);
  return found == report.findings.end() ? nullptr : &*found;
}

const wchar_t* Text(Status status) {
  constexpr const wchar_t* kTexts[] = {L"Done.",
                                       L"Not everything was done.",
                                       L"Nothing was started, because the check found errors.",
                                       L"Nothing was done, because the elevation was refused.",
                                       L"Nothing was started.",
                                       L"The helper failed.",
                                       L"The helper is still at work."};
  return kTexts[static_cast<std::size_t>(status)];
}

Report Check(const CopyPlan& plan, const Options& options) {
  return ReportOf(SurveyPlan(plan, options));
}

Result Run(const CopyPlan& plan, const Options& options) {
  RunClaim::Prepare();
  Work work;
  work.survey = SurveyPlan(plan, options);
  work.result.report = ReportOf(work.survey);
  for (const CopyItem& item : plan.Items()) {
    work.result.items.push_back(ItemOf(item.source, item.destination));
  }
  if (!work.survey.operations.empty()) {
    work.list = uactask::FormatOperationList(work.survey.operations);
  }
  return HelperRun(std::move(work), options).Run();
}

Result Run(const Job& job, const Options& options) {
  return RunJob(job.name, false, Check(job, options), RegistrationParams(job), options);
}

Result Run(const JobRemoval& removal, const Options& options) {
  return RunJob(removal.name, true, Check(removal, options), DeletionParams(removal), options);
}

Result Run(const TaskFile& task, const Options& options) {
  RunClaim::Prepare();
  TaskReading reading = ReadTask(task.path, Hold::kYes, options);
  Work work;
  work.result.report = std::move(reading.report);
  work.survey = std::move(reading.survey);
  if (reading.type == UACTaskScheduler::kType) {
    work.task = std::move(reading.bytes);
    work.result.items.push_back(ItemOf(reading.job, reading.isDeletion));
    work.jobBefore = FindJob(reading.job);
  } else {
    work.list = std::move(reading.list);
    for (const Copy& item : work.survey.items) {
      work.result.items.push_back(ItemOf(item.source, item.destination));
    }
  }
  Result result = HelperRun(std::move(work), options).Run();
  if (result.status != Status::kDone && result.status != Status::kIncomplete) return result;
  FILE_DISPOSITION_INFO disposition = {TRUE};
  if (!SetFileInformationByHandle(reading.file.get(), FileDispositionInfo, &disposition,
                                  sizeof disposition)) {
    result.reason += Filled(
        L"{}The task file {} could not be deleted: {} Delete it, or it may be "
        L"run again.",
        {result.reason.empty() ? L"" : L" ", Quoted(task.path.wstring()),
         SystemMessage(GetLastError())});
  }
  return result;
}

}  // namespace uaclient
