#include <windows.h>

#include <algorithm>

#include "corekit/text.h"
#include "uaclient/check_copies.h"
#include "uaclient/code_page.h"
#include "uaclient/copy_watch.h"
#include "uaclient/helper_files.h"
#include "uaclient/helper_process.h"
#include "uaclient/job_task.h"
#include "uaclient/scheduled_jobs.h"
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

std::wstring CurrentDirectory() {
  std::wstring directory(32768, L'\0');
  directory.resize(GetCurrentDirectoryW(static_cast<DWORD>(directory.size()), directory.data()));
  return directory;
}

// One run of the helper: starts it, waits for it while a CopyWatch follows, and says how it ended.
class HelperRun {
 public:
  HelperRun(const Options& options, CopyWatch& watch) : options_(options), watch_(watch) {}

  // kDone when the helper ended with success. `files` may be null: the files are somebody else's.
  Status Carry(const std::wstring& taskFile, const std::wstring& directory, HelperFiles* files,
               std::wstring& why) {
    const std::wstring helper = options_.helper.empty() ? OwnFolder() + L"uactask.exe"
                                                        : FullPath(options_.helper.wstring());
    if (GetFileAttributesW(helper.c_str()) == INVALID_FILE_ATTRIBUTES) {
      why = L"The helper " + Quoted(helper) +
            L" is not there. It must stand beside the calling program, or where the options say.";
      return Status::kNotStarted;
    }
    start_ = Clock::now();
    if (options_.progress && !options_.progress(watch_.Seen())) {
      why = L"It was given up before the helper was started. Nothing was done.";
      return Status::kNotStarted;
    }
    const Status started = process_.Start(helper, taskFile, directory, options_.owner, why);
    if (started != Status::kDone) return started;
    start_ = Clock::now();  // what the user took to allow it does not count
    bool hasEnded = false;
    try {
      hasEnded = Wait();
    } catch (...) {
      if (files != nullptr) files->LeaveTo(process_.Get());
      throw;
    }
    if (!hasEnded) {
      why =
          L"Waiting for the helper was given up. It has administrator rights and cannot be ended "
          L"from here: it goes on";
      why += files == nullptr
                 ? L"."
                 : L", and its files in " + Quoted(files->Folder()) + L" are left to it.";
      if (files != nullptr) files->LeaveTo(process_.Get());
      return Status::kStillRunning;
    }
    return Verdict(why);
  }

  // After that: what became of the copies. The last report is of what has arrived.
  std::vector<Item> CompareAll() {
    isWaiting_ = false;
    isGivenUp_ = false;  // a time-out that came with the helper's end concerned the waiting alone
    std::vector<Item> items = watch_.Finish([this] { return Report(); });
    if (!isGivenUp_ && options_.progress) Tell(Elapsed());
    return items;
  }

  std::wstring Output() const { return process_.Output(); }

  milliseconds Elapsed() const {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start_);
  }

 private:
  bool Wait() {
    const Tick tick = [this] { return Report(); };
    while (!process_.HasEnded(kBetweenLooks)) {
      watch_.Advance();
      watch_.CompareBehind(tick);
      if (!Report()) return process_.HasEnded(0);
    }
    return true;
  }

  // Tells the application how far it is; false when it has given up, or the time is over.
  bool Report() {
    const milliseconds elapsed = Elapsed();
    if (isWaiting_ && options_.timeout.count() > 0 && elapsed >= options_.timeout)
      isGivenUp_ = true;
    if (!isGivenUp_ && options_.progress && elapsed - lastReport_ >= kBetweenReports) {
      lastReport_ = elapsed;
      if (isWaiting_) watch_.Advance();
      isGivenUp_ = !Tell(elapsed);
    }
    return !isGivenUp_;
  }

  bool Tell(milliseconds elapsed) const {
    Progress progress = watch_.Seen();
    progress.elapsed = elapsed;
    return options_.progress(progress);
  }

  Status Verdict(std::wstring& why) const {
    const DWORD code = process_.ExitCode();
    if (code == kHelperSucceeded) return Status::kDone;
    if (code == kHelperFailed) {
      why = L"The helper gave up (exit code 1).";
    } else if (code == kHelperFoundNoTaskFile) {
      why = L"The helper did not find its task file (exit code 2).";
    } else {
      why = L"The helper ended abnormally: " + SystemMessage(code);
    }
    return Status::kFailed;
  }

  const Options& options_;
  CopyWatch& watch_;
  HelperProcess process_;
  Clock::time_point start_ = Clock::now();
  milliseconds lastReport_{0};
  bool isWaiting_ = true;
  bool isGivenUp_ = false;
};

// The first error, or the first finding that would do harm, is why nothing is started.
const Finding* Objection(const Findings& findings) {
  const auto found = std::find_if(findings.begin(), findings.end(), SpeaksAgainst);
  return found == findings.end() ? nullptr : &*found;
}

// What is known of the copies after the helper has been started, or not.
void LookAtCopies(HelperRun& run, const CopyWatch& watch, Result& result) {
  if (result.status != Status::kDone && result.status != Status::kFailed) {
    for (Item& item : result.items) item.reason = result.reason;
    return;
  }
  result.items = run.CompareAll();
  result.files = watch.Seen().files;
  result.bytes = watch.Seen().bytes;
  const auto missing = std::count_if(result.items.begin(), result.items.end(),
                                     [](const Item& item) { return !item.done; });
  if (missing == 0 || result.status == Status::kFailed) return;
  result.status = Status::kIncomplete;
  result.reason = std::to_wstring(missing) + L" of " + std::to_wstring(result.items.size()) +
                  L" items did not arrive as they should.";
}

// What is known of a job after the helper has been started, or not.
void LookAtJob(const HelperRun& run, Result& result) {
  Item& item = result.items.front();
  const bool isDeletion = item.isDeletion;
  if (result.status == Status::kFailed) {
    const std::wstring output = run.Output();
    result.reason += isDeletion
                         ? L" The job " + Quoted(item.job) + L" was not deleted."
                         : L" The job " + Quoted(item.job) +
                               L" was not registered; an older one of that name may be gone.";
    if (isDeletion && FindJob(item.job) == JobState::kNotThere) {
      result.reason += L" There is no job of that name.";
    } else if (!output.empty()) {
      result.reason += L" It said: " + output + L".";
    }
  }
  item.reason = result.reason;
  if (result.status != Status::kDone) return;

  const JobState state = FindJob(item.job);
  const JobState wanted = isDeletion ? JobState::kNotThere : JobState::kThere;
  // The helper's own answer stands where this process may not look.
  item.done = state == wanted || state == JobState::kUnknown;
  if (item.done && state == JobState::kUnknown) {
    item.reason =
        L"The helper reports success. This process could not look into the Task Scheduler";
    item.reason += IsElevated() ? L"." : L" without administrator rights.";
  }
  if (item.done) return;
  result.status = Status::kIncomplete;
  item.reason = isDeletion ? L"The helper reports success, but the job is still there."
                           : L"The helper reports success, but the job is not there.";
  result.reason = item.reason;
}

Result RunJobTask(const std::wstring& name, bool isDeletion, const TaskParams& params,
                  Findings findings, const Options& options) {
  Result result;
  result.items.push_back({{}, {}, name, false, {}, isDeletion});
  result.findings = std::move(findings);
  CopyWatch nothing({}, options.comparison);
  HelperRun run(options, nothing);
  HelperFiles files;
  if (files.CreateFolder(result.reason) &&
      files.WriteTask(UACTaskScheduler::kType, params, result.reason)) {
    result.status = run.Carry(files.TaskPath(), OwnFolder(), &files, result.reason);
  }
  LookAtJob(run, result);
  result.elapsed = run.Elapsed();
  return result;
}

// What the helper has done may be less than the files say, or something else than what this process
// could read of them.
void CompareWithReport(const TaskFileReport& report, Result& result) {
  if (result.status != Status::kDone || (!report.helperFails && !report.leavesOut)) return;
  result.status = Status::kIncomplete;
  result.reason =
      report.leavesOut
          ? L"Not everything in the list was done: the helper leaves items out."
          : L"The helper reports success, but what it was to do could not be read here, "
            L"and so nothing is known of it. " +
                Objection(result.findings)->text;
}

Result Refused(Findings findings, std::vector<Item> items) {
  Result result;
  result.status = Status::kInvalid;
  result.reason = Objection(findings)->text;
  for (std::size_t i = 0; i < items.size(); ++i) {
    // What is said of one item is no reason against another.
    const auto meansIt = [&](const Finding& finding) {
      return finding.item == i && SpeaksAgainst(finding);
    };
    const auto own = std::find_if(findings.begin(), findings.end(), meansIt);
    const bool hasOwn = own != findings.end();
    const bool isCommon = items.size() == 1 || Objection(findings)->item == Finding::kNoItem;
    items[i].reason = L"Nothing was started: " + (hasOwn     ? own->text
                                                  : isCommon ? result.reason
                                                             : L"another item was refused.");
  }
  result.findings = std::move(findings);
  result.items = std::move(items);
  return result;
}

}  // namespace

Result Run(const CopyPlan& plan, const Options& options) {
  std::vector<Item> items;
  for (const CopyItem& item : plan.Items()) {
    items.push_back({item.source, item.destination, {}, false, {}});
  }
  Findings findings = plan.Check();
  if (Objection(findings) != nullptr) return Refused(std::move(findings), std::move(items));

  const std::vector<std::size_t> order = HelperOrder(plan.Items());
  std::vector<CopyItem> copies;
  std::vector<Operation> operations;
  Result result;
  result.findings = std::move(findings);
  for (const std::size_t place : order) {
    CopyItem copy = plan.Items()[place];
    // With both kinds of separators in it, not all of its missing folders would be made.
    copy.destination.make_preferred();
    copies.push_back(copy);
    if (copy.isFolder) copy.source = WithSeparator(copy.source.wstring());
    if (copy.isFolder) copy.destination = WithSeparator(copy.destination.wstring());
    operations.push_back(
        {WideToUtf8(copy.source.wstring()), WideToUtf8(copy.destination.wstring()), copy.isFolder});
    result.items.push_back(items[place]);
  }

  CopyWatch watch(copies, options.comparison);
  HelperRun run(options, watch);
  HelperFiles files;
  if (files.CreateFolder(result.reason) && files.WriteList(operations, result.reason) &&
      files.WriteTask(UACTaskFileOp::kType,
                      {{UACTaskFileOp::kXmlPath, ForHelper(files.ListPath())}}, result.reason)) {
    result.status = run.Carry(files.TaskPath(), OwnFolder(), &files, result.reason);
  }
  LookAtCopies(run, watch, result);
  result.elapsed = run.Elapsed();

  for (std::size_t i = 0; i < order.size(); ++i) items[order[i]] = std::move(result.items[i]);
  result.items = std::move(items);
  return result;
}

Result Run(const Job& job, const Options& options) {
  Findings findings = job.Check();
  if (Objection(findings) != nullptr) {
    return Refused(std::move(findings), {{{}, {}, job.name, false, {}}});
  }
  return RunJobTask(job.name, false, RegistrationParams(job), std::move(findings), options);
}

Result Run(const JobRemoval& removal, const Options& options) {
  Findings findings = removal.Check();
  if (Objection(findings) != nullptr) {
    return Refused(std::move(findings), {{{}, {}, removal.name, false, {}}});
  }
  return RunJobTask(removal.name, true, DeletionParams(removal), std::move(findings), options);
}

Result Run(const TaskFile& task, const Options& options) {
  TaskFileReport report = CheckTaskFile(task.path);
  std::vector<Item> items;
  std::vector<CopyItem> copies;
  bool isJob = false;
  for (const Step& step : report.steps) {
    const bool isDeletion = step.kind == Step::Kind::kDeleteJob;
    items.push_back({step.source, step.destination, step.job, false, {}, isDeletion});
    isJob = isDeletion || step.kind == Step::Kind::kRegisterJob;
    if (!isJob)
      copies.push_back({step.source, step.destination, step.kind == Step::Kind::kCopyFolder});
  }
  const bool isHarmful = std::any_of(report.findings.begin(), report.findings.end(),
                                     [](const Finding& finding) { return finding.harmful; });
  if (!report.exists || isHarmful) return Refused(std::move(report.findings), std::move(items));

  Result result;
  result.items = std::move(items);
  result.findings = std::move(report.findings);
  CopyWatch watch(std::move(copies), options.comparison);
  HelperRun run(options, watch);
  const std::wstring taskFile = FullPath(task.path.wstring());
  // Relative paths in the files are taken from here, as if the application did the work itself.
  result.status = run.Carry(taskFile, CurrentDirectory(), nullptr, result.reason);
  if (result.status == Status::kFailed && report.helperFails) {
    result.reason += L" " + Objection(result.findings)->text;
  }
  isJob ? LookAtJob(run, result) : LookAtCopies(run, watch, result);
  CompareWithReport(report, result);
  if (result.status == Status::kDone &&
      GetFileAttributesW(taskFile.c_str()) != INVALID_FILE_ATTRIBUTES) {
    result.reason = L"The task file " + Quoted(taskFile) +
                    L" could not be deleted; the system deletes it when it is restarted.";
  }
  result.elapsed = run.Elapsed();
  return result;
}

}  // namespace uaclient
