// The application's side of the helper: says what is to be done, checks it, has uactask.exe do it
// with one request for raised rights, and tells what became of every item.
//
//   uaclient::CopyPlan plan;
//   plan.Folder(newSkins, install / L"skins");
//   plan.File(newIni, install / L"player.ini");
//   const uaclient::Result result = uaclient::Run(plan);
//   for (const uaclient::Item& item : result.items)
//     if (!item.done) log(item.destination, item.reason);
//
// Errors are values; only exhausted memory and threads throw. Texts are English, in whole
// sentences, for a log or a developer; statuses are for the program. Every call may be made from
// any thread, several at once, a GUI thread included: none needs a message loop, and the process's
// current directory, environment, COM apartments and signal handlers stay as they are. What blocks
// says so.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace uaclient {

// What a check found.
enum class Severity {
  kWarning,  // worth a look; a plan with it can be carried out
  kError     // a plan is refused; a task file fails in the helper
};

struct Finding {
  Severity severity = Severity::kWarning;
  // Carried out, it would destroy what nobody asked to destroy, or what it would destroy cannot be
  // told. Run starts nothing then.
  bool harmful = false;
  std::filesystem::path file;  // the task file or the operation list; empty for a plan or a job
  std::size_t line = 0;        // in that file, from 1; 0 where no line is meant
  std::wstring text;           // what it is, why, and what to do instead
  // Of a plan: the item that is meant, from 0; kNoItem where it is none or several.
  static constexpr std::size_t kNoItem = static_cast<std::size_t>(-1);
  std::size_t item = kNoItem;
};
using Findings = std::vector<Finding>;

bool HasErrors(const Findings& findings);

// Whether a finding keeps Run from starting anything: an error, or something that does harm.
bool SpeaksAgainst(const Finding& finding);

// Files and folders to copy, in the order in which the helper will work: folders first, then files,
// each kind as it was added. All paths are absolute and on drives that the raised helper sees too.
struct CopyItem {
  std::filesystem::path source;
  std::filesystem::path destination;
  bool isFolder = false;
};

class CopyPlan {
 public:
  // A file goes over the one that is there. Of the folders above it, one may be missing.
  void File(const std::filesystem::path& source, const std::filesystem::path& destination);

  // A folder replaces its destination: everything in it is deleted first. Missing folders above the
  // destination are made.
  void Folder(const std::filesystem::path& source, const std::filesystem::path& destination);

  const std::vector<CopyItem>& Items() const { return items_; }

  // What speaks against the plan (errors: Run refuses it) and what it would delete (warnings).
  // Blocks while it walks all sources and destinations; changes nothing.
  Findings Check() const;

 private:
  std::vector<CopyItem> items_;
};

// A job of the Task Scheduler that starts a program, as the user who confirms the elevation, while
// that user is logged on. One of the same name is replaced.
struct Job {
  enum class Every { kDay, kWeek, kMonth };

  std::wstring name;
  Every every = Every::kDay;
  int hour = 0;  // local time, from today on
  int minute = 0;
  // Of a week: bit 0 Sunday to bit 6 Saturday. Of a month: bit 0 day 1 to bit 30 day 31.
  std::uint32_t days = 0;
  std::filesystem::path program;        // absolute
  std::vector<std::wstring> arguments;  // at least one; the program finds them as given here
  std::wstring author;

  Findings Check() const;
};

struct JobRemoval {
  std::wstring name;

  Findings Check() const;
};

// An existing task file, which the helper deletes when it succeeds.
struct TaskFile {
  std::filesystem::path path;
};

// How far the helper has come, as its destinations show it.
struct Progress {
  std::uint64_t files = 0;
  std::uint64_t allFiles = 0;
  std::uint64_t bytes = 0;
  std::uint64_t allBytes = 0;
  std::filesystem::path current;  // the destination at work; empty where that is not known
  std::chrono::milliseconds elapsed{0};
  bool comparing = false;  // the helper has ended; what it copied is being compared
};

enum class Comparison {
  kContent,     // every byte
  kSizeAndTime  // faster; files that looked like their source before the start by content still
};

struct Options {
  void* owner = nullptr;         // the window (HWND) that the request for raised rights belongs to
  std::filesystem::path helper;  // empty: uactask.exe beside the calling program
  // How long to wait for the helper from its start on, which the user may take time to allow; zero:
  // until it ends.
  std::chrono::milliseconds timeout{0};
  // Called in the calling thread: once right before the start, then about ten times a second, and
  // once in the end, with what has arrived. Returns false to wait no longer; before the start, to
  // do nothing. What it throws leaves Run; the files are then left to the helper.
  std::function<bool(const Progress&)> progress;
  Comparison comparison = Comparison::kContent;
};

enum class Status {
  kDone,         // everything; looked at afterwards
  kIncomplete,   // the helper went through it, but not every item is as it should be
  kInvalid,      // refused by the check: nothing was started
  kRefused,      // the user refused the raised rights: nothing was started
  kNotStarted,   // no helper, no place for its files, given up before: nothing was done
  kFailed,       // the helper gave up, or ended abnormally
  kStillRunning  // waiting was given up. The helper cannot be ended from here: it goes on
};

// What became of one item.
struct Item {
  std::filesystem::path source;
  std::filesystem::path destination;  // empty for a job
  std::wstring job;                   // the job's name; empty for a copy
  bool done = false;
  std::wstring reason;      // why not, or what could not be looked at
  bool isDeletion = false;  // of the job
};

struct Result {
  Status status = Status::kNotStarted;
  std::wstring reason;      // for every status but kDone; there what else is to be known
  std::vector<Item> items;  // those of the plan, in its order
  Findings findings;        // of the check that ran first
  // What arrived.
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  std::chrono::milliseconds elapsed{0};  // from the start of the helper to the end of comparing
};

// Check, start the helper, wait for it, compare. Blocks until the helper has ended or the waiting
// is given up; then once more until everything is compared. What the helper needs lies meanwhile in
// a new folder below the folder that the environment variable TMP names, which only this user,
// administrators and the system can open, and which is gone afterwards; with kStillRunning it goes
// when the helper has ended, if this process lives that long.
//
// A plan that has errors or a task file that would do harm (see Finding) is not started. A task
// file with other errors is: the helper's answer is what counts.
Result Run(const CopyPlan& plan, const Options& options = {});
Result Run(const Job& job, const Options& options = {});
Result Run(const JobRemoval& removal, const Options& options = {});
Result Run(const TaskFile& task, const Options& options = {});

// One thing that the helper would do.
struct Step {
  enum class Kind { kCopyFolder, kCopyFile, kRegisterJob, kDeleteJob };

  Kind kind = Kind::kCopyFile;
  std::filesystem::path source;
  std::filesystem::path destination;
  std::wstring job;
  std::uint64_t files = 0;  // to be copied
  std::uint64_t bytes = 0;
  bool empties = false;  // a folder is there, with this in it, which goes
  std::uint64_t emptiedFiles = 0;
  std::uint64_t emptiedBytes = 0;
  std::wstring text;  // in plain words
};

struct TaskFileReport {
  bool exists = false;
  bool helperFails = false;  // its exit code would be 1 (2 where the file does not exist)
  Findings findings;
  std::vector<Step> steps;  // in the helper's order; where it fails, what it has deleted by then
  bool leavesOut = false;   // the list holds items that it passes over
};

// What the helper would do with a task file, and what is wrong with it, found with the helper's own
// reading code. Blocks while it reads and walks; changes nothing and needs no rights. Not found:
// what the Task Scheduler refuses by itself, and what only raised rights can see.
TaskFileReport CheckTaskFile(const std::filesystem::path& taskFile);

}  // namespace uaclient
