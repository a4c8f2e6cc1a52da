#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <memory>
#include <utility>

#include "uaclient/claims.h"
#include "uaclient/copy_progress.h"
#include "uaclient/end_state.h"
#include "uaclient/helper_files.h"
#include "uaclient/helper_process.h"
#include "uaclient/jobs.h"
#include "uaclient/path.h"
#include "uaclient/uaclient.h"
#include "uaclient/win32.h"
#include "uaclient/words.h"
#include "uaclient/work.h"
#include "uactask/exit_codes.h"

namespace uaclient {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kBetweenReports{100};
constexpr DWORD kBetweenLooks = 20;  // milliseconds

bool Refuses(const Finding& finding) { return finding.severity != Severity::kWarning; }

// What a run has on the disk while the helper works. The claim goes last.
struct Traces {
  RunClaim claim;
  HelperFiles files;
  HelperProcess helper;
};

void CALLBACK RemoveTraces(PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT wait, TP_WAIT_RESULT) {
  delete static_cast<Traces*>(context);
  CloseThreadpoolWait(wait);
}

// One run of the helper, from the check's report to what became of every item.
class HelperRun {
 public:
  HelperRun(Work work, const Options& options) : work_(std::move(work)), options_(options) {
    const std::vector<Step>& steps = work_.result.report.steps;
    work_.result.items.resize(steps.size());
    for (std::size_t i = 0; i < steps.size(); ++i) {
      Item& item = work_.result.items[IsJob() ? i : work_.copies[i].item];
      item.source = steps[i].source;
      item.destination = steps[i].destination;
      item.job = steps[i].job;
      item.isDeletion = steps[i].kind == Step::Kind::kDeleteJob;
    }
  }
  ~HelperRun() {
    if (!traces_ || traces_->helper.Get() == nullptr || traces_->helper.HasEnded(0)) return;
    // They go when the helper has ended, if this process lives that long.
    Traces* const left = traces_.release();
    const PTP_WAIT wait = CreateThreadpoolWait(RemoveTraces, left, nullptr);
    if (wait != nullptr) SetThreadpoolWait(wait, left->helper.Get(), nullptr);
  }

  Result Run() {
    Result& result = work_.result;
    try {
      result.status = Carry();
    } catch (const NotStarted& reason) {
      result.status = reason.status;
      result.reason = reason.why;
    }
    if (result.status == Status::kDone || result.status == Status::kFailed) {
      IsJob() ? LookAtJob() : LookAtCopies();
      if (result.status != Status::kFailed) DeleteTaskFile();
    }
    result.elapsed = Elapsed();
    return std::move(result);
  }

 private:
  bool IsJob() const { return work_.copies.empty() && !work_.result.items.empty(); }

  // kDone when the helper has ended with success.
  Status Carry() {
    if (const Finding* const refusal = FirstRefusal(work_.result.report)) Refuse(*refusal);
    if (options_.confirm && !options_.confirm(work_.result.report)) GiveUp();
    if (work_.task.empty() && work_.list.empty()) return Status::kDone;  // everything is there
    traces_ = std::make_unique<Traces>();
    if (IsJob()) work_.claims = {PlaceOf(work_.result.items[0].job)};
    traces_->claim.Take(work_.claims, traces_->files.Folder());
    if (IsJob()) jobBefore_ = FindJob(work_.result.items[0].job);
    traces_->files.Create(work_.task, work_.list);
    if (options_.progress && !options_.progress(progress_)) GiveUp();
    traces_->helper.Start(options_, traces_->files.TaskPath());
    traces_->claim.AddHelper(traces_->helper.Get());
    start_ = Clock::now();  // what the user took to allow it does not count
    if (Wait()) return Verdict();
    work_.result.reason =
        L"Waiting was given up. The helper cannot be ended: it goes on, and its files in " +
        Quoted(traces_->files.Folder()) + L" are left to it." +
        (work_.taskFile ? L" The task file stays." : L"");
    return Status::kStillRunning;
  }

  // What is said of one item is no reason against another.
  [[noreturn]] void Refuse(const Finding& refusal) {
    Result& result = work_.result;
    if (refusal.item != Finding::kNoItem) {
      for (Item& item : result.items) item.reason = L"Another item was refused.";
    }
    for (const Finding& finding : result.report.findings) {
      if (!Refuses(finding) || finding.item == Finding::kNoItem) continue;
      result.items[finding.item].reason = finding.text;
    }
    throw NotStarted{refusal.text, Status::kInvalid};
  }

  [[noreturn]] static void GiveUp() {
    throw NotStarted{L"The run was given up before the helper was started. Nothing was done."};
  }

  // Until the helper has ended; false when the waiting is given up before.
  bool Wait() {
    const HelperProcess& helper = traces_->helper;
    while (!helper.HasEnded(kBetweenLooks)) {
      const bool isLate = options_.timeout.count() > 0 && Elapsed() >= options_.timeout;
      if (isLate || !Report()) return helper.HasEnded(0);
    }
    return true;
  }

  // Tells the application now and then how far it is; false when it has given up.
  bool Report() {
    progress_.elapsed = Elapsed();
    if (isGivenUp_ || !options_.progress) return !isGivenUp_;
    if (progress_.elapsed - lastReport_ < kBetweenReports) return true;
    lastReport_ = progress_.elapsed;
    if (!progress_.comparing) watch_.Advance(traces_->helper.BytesWritten());
    isGivenUp_ = !options_.progress(progress_);
    return !isGivenUp_;
  }

  milliseconds Elapsed() const {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start_);
  }

  Status Verdict() {
    const DWORD code = traces_->helper.ExitCode();
    if (code == kHelperSucceeded) return Status::kDone;
    wchar_t number[16];
    std::swprintf(number, std::size(number), code < 256 ? L"%lu" : L"0x%08lX", code);
    work_.result.reason =
        code == kHelperFailed ? L"The helper gave up (exit code 1)."
        : code == kHelperFoundNoTaskFile
            ? L"The helper did not find its task file (exit code 2)."
            : std::wstring(L"The helper ended abnormally, with exit code ") + number + L".";
    return Status::kFailed;
  }

  void LookAtCopies() {
    Result& result = work_.result;
    traces_.reset();     // or they would be found in sources
    isGivenUp_ = false;  // that came with the helper's end and concerned the waiting alone
    JudgeEndState(
        work_.copies, options_.comparison, [this] { return Report(); }, progress_, result.items);
    if (!isGivenUp_ && options_.progress) options_.progress(progress_);
    result.files = progress_.files;
    result.bytes = progress_.bytes;
    if (result.status == Status::kFailed) return;
    const auto missing = std::count_if(result.items.begin(), result.items.end(),
                                       [](const Item& item) { return !item.done; });
    if (missing != 0) {
      result.reason = Filled(L"{} of {} items did not arrive as they should, or were not compared.",
                             {std::to_wstring(missing), std::to_wstring(result.items.size())});
    } else if (result.report.leavesOut) {
      result.reason = L"Not everything in the list was done: the helper leaves items out.";
    }
    if (!result.reason.empty()) result.status = Status::kIncomplete;
  }

  void LookAtJob() {
    Result& result = work_.result;
    Item& item = result.items.front();
    const JobState now = FindJob(item.job);
    if (result.status == Status::kFailed) {
      const std::wstring output = traces_->helper.Output();
      result.reason +=
          L" The job " + Quoted(item.job) +
          (item.isDeletion && now == JobState::kNotThere ? L" does not exist."
           : item.isDeletion                             ? L" was not deleted."
           : now == JobState::kUnknown ? L" was not registered; an older one may be gone."
           : now == jobBefore_         ? L" was not registered."
           : now == JobState::kThere   ? L" is there all the same."
                                       : L" was not registered, and the older one is gone.");
      if (!output.empty()) result.reason += L" The helper said: " + output + L".";
      return;
    }
    item.replaced = !item.isDeletion && jobBefore_ == JobState::kThere;
    item.done = now != (item.isDeletion ? JobState::kThere : JobState::kNotThere);
    if (!item.done) {
      result.status = Status::kIncomplete;
      result.reason = std::wstring(L"The helper reports success, but the job is ") +
                      (item.isDeletion ? L"still" : L"not") + L" there.";
    } else if (now == JobState::kUnknown && (!item.isDeletion || jobBefore_ != JobState::kThere)) {
      item.reason =
          L"The helper reports success, but this user cannot see the job, perhaps another user's.";
    }
  }

  // The helper has done so with the one that it was given.
  void DeleteTaskFile() {
    FILE_DISPOSITION_INFO disposition = {TRUE};
    if (!work_.taskFile || SetFileInformationByHandle(work_.taskFile.get(), FileDispositionInfo,
                                                      &disposition, sizeof disposition)) {
      return;
    }
    std::wstring& reason = work_.result.reason;
    if (!reason.empty()) reason += L" ";
    reason += Filled(L"The task file {} could not be deleted: {} Delete it, or it may run again.",
                     {Quoted(FinalPath(work_.taskFile.get())), SystemMessage(GetLastError())});
  }

  Work work_;
  const Options& options_;
  Progress progress_;
  CopyProgress watch_{work_.copies, progress_};
  std::unique_ptr<Traces> traces_;
  JobState jobBefore_ = JobState::kUnknown;
  Clock::time_point start_ = Clock::now();
  milliseconds lastReport_{0};
  bool isGivenUp_ = false;
};

Work WorkFor(const Request& request, const Options& options, Hold hold) {
  return std::visit([&](const auto& what) { return WorkOf(what, options, hold); }, request);
}

}  // namespace

const Finding* FirstRefusal(const Report& report) {
  const auto found = std::find_if(report.findings.begin(), report.findings.end(), Refuses);
  return found == report.findings.end() ? nullptr : &*found;
}

Report Check(const Request& request, const Options& options) {
  return WorkFor(request, options, Hold::kNo).result.report;
}

Result Run(const Request& request, const Options& options) {
  RunClaim::Prepare();
  return HelperRun(WorkFor(request, options, Hold::kYes), options).Run();
}

}  // namespace uaclient
