// The application's side of the helper: says what is to be done, checks it, has uactask.exe do it
// with one elevation, and tells what became of every item.
//
//   uaclient::CopyPlan plan;
//   plan.Folder(newSkins, install / L"skins");
//   plan.File(newIni, install / L"player.ini");
//   const uaclient::Result result = uaclient::Run(plan);
//   for (const uaclient::Item& item : result.items)
//     if (!item.done) log(item.destination, item.reason);
//
// Errors are values; only exhausted memory and threads throw, and what a callback throws leaves
// Run. Texts are English, in whole sentences, for a log or a developer; statuses are for the
// program. Every call may be made from any thread, several at once, a GUI thread included: none
// needs a message loop, and the process's current directory, environment, COM apartments and signal
// handlers stay as they are. What blocks says so.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace uaclient {

enum class Severity {
  kWarning,  // worth a look; Run starts the helper all the same
  kHarmful,  // of a task file: the helper would carry it out, but Run starts nothing
  kError     // the plan or job is refused; the helper would fail with the task file
};

// What a check found.
struct Finding {
  Severity severity = Severity::kWarning;
  std::wstring text;     // what is wrong, why, and what to write instead
  std::wstring file;     // path of the task file or the list; empty for a plan or a job
  std::size_t line = 0;  // in that file, from 1; 0 where no line is meant
  // The item of a plan that is meant, from 0; kNoItem where it is none or several.
  static constexpr std::size_t kNoItem = static_cast<std::size_t>(-1);
  std::size_t item = kNoItem;
};
using Findings = std::vector<Finding>;

struct CopyItem {
  enum class Kind { kFile, kFolder, kReplaceFolder };

  Kind kind = Kind::kFile;
  std::filesystem::path source;
  std::filesystem::path destination;
};

// Files and folders to copy with one elevation. All paths are absolute and on drives that the
// elevated helper sees, too. Missing folders above a destination are made.
class CopyPlan {
 public:
  // Overwrites the file at the destination, if there is one.
  void File(const std::filesystem::path& source, const std::filesystem::path& destination) {
    items_.push_back({CopyItem::Kind::kFile, source, destination});
  }

  // Adds the folder's files to what is at the destination and overwrites files of the same name.
  // Deletes nothing.
  void Folder(const std::filesystem::path& source, const std::filesystem::path& destination) {
    items_.push_back({CopyItem::Kind::kFolder, source, destination});
  }

  // Deletes everything at the destination first, then copies the folder there. Replaced folders
  // come before everything else in the plan.
  void ReplaceFolder(const std::filesystem::path& source,
                     const std::filesystem::path& destination) {
    items_.push_back({CopyItem::Kind::kReplaceFolder, source, destination});
  }

  const std::vector<CopyItem>& Items() const { return items_; }

 private:
  std::vector<CopyItem> items_;
};

// A job of the Task Scheduler that starts a program, as the user who confirms the elevation and
// while that user is logged on. It replaces a job of the same name. It is not started while the
// computer runs on battery, a missed start is not made up for, and after 72 hours it is ended.
struct Job {
  enum class Every { kDay, kWeek, kMonth };

  // For `days` of a week, added up. Of a month: DayOfMonth(1) | DayOfMonth(15).
  static constexpr std::uint32_t kSunday = 1;
  static constexpr std::uint32_t kMonday = 2;
  static constexpr std::uint32_t kTuesday = 4;
  static constexpr std::uint32_t kWednesday = 8;
  static constexpr std::uint32_t kThursday = 16;
  static constexpr std::uint32_t kFriday = 32;
  static constexpr std::uint32_t kSaturday = 64;
  // From 1 to 31. Months without that day are skipped.
  static constexpr std::uint32_t DayOfMonth(unsigned day) { return 1U << (day - 1); }

  std::wstring name;  // a "\" in it separates folders of the scheduler
  Every every = Every::kDay;
  int hour = 0;  // local time, from today on
  int minute = 0;
  std::uint32_t days = 0;               // see above; not used by a daily job
  std::filesystem::path program;        // absolute
  std::vector<std::wstring> arguments;  // at least one; the program finds them as given here
  std::wstring author;
};

struct JobRemoval {
  std::wstring name;
};

// An existing task file, by its absolute path. It is deleted when the helper has succeeded with it,
// unless waiting was given up.
struct TaskFile {
  std::filesystem::path path;
};

// What the helper can be asked to do.
using Request = std::variant<CopyPlan, Job, JobRemoval, TaskFile>;

// One thing that the helper would do.
struct Step {
  enum class Kind { kCopyFile, kAddFolder, kReplaceFolder, kRegisterJob, kDeleteJob };

  Kind kind = Kind::kCopyFile;
  std::filesystem::path source;
  std::filesystem::path destination;
  std::wstring job;
  std::uint64_t files = 0;  // to be copied
  std::uint64_t bytes = 0;
  bool deletes = false;  // or may: the job, or the folder at the destination with this in it
  std::uint64_t deletedFiles = 0;
  std::uint64_t deletedBytes = 0;
  std::wstring text;  // all that in words
};

struct Report {
  Findings findings;
  std::vector<Step> steps;  // in the helper's order; where it would fail, what it does before that

  // Of a task file.
  bool exists = true;
  bool helperFails = false;  // its exit code would be 1, or 2 where the file does not exist
  bool leavesOut = false;    // the list holds items that the helper passes over
};

// The first finding because of which Run starts nothing; null when there is none.
const Finding* FirstRefusal(const Report& report);

// How far the helper has come, as its destinations and its process show it.
struct Progress {
  std::uint64_t files = 0;
  std::uint64_t allFiles = 0;
  std::uint64_t bytes = 0;
  std::uint64_t allBytes = 0;
  std::filesystem::path current;  // the destination at work; empty where that is not known
  std::chrono::milliseconds elapsed{0};
  bool comparing = false;  // the helper has ended; counted anew: files that equal their sources
};

enum class Comparison {
  kContent,     // every byte
  kSizeAndTime  // faster, times to two seconds; by content what looked like its source before
};

struct Options {
  void* owner = nullptr;         // the window (HWND) that the elevation prompt belongs to
  std::filesystem::path helper;  // absolute; empty: uactask.exe beside the calling program
  // How long to wait for the helper, counted from its start; zero: until it ends. The time that the
  // user takes for the prompt does not count.
  std::chrono::milliseconds timeout{0};
  // Called in the calling thread after the check, with what is about to be done and deleted, unless
  // the check refuses it. Returns false to start nothing.
  std::function<bool(const Report&)> confirm;
  // Called in the calling thread: once right before the start, then about ten times a second, and
  // once in the end, with what has arrived. Returns false to stop waiting; before the start, to do
  // nothing. When it throws, the helper goes on and its files are left to it.
  std::function<bool(const Progress&)> progress;
  Comparison comparison = Comparison::kContent;
};

// What Run would do and why it would refuse it. Blocks while it looks at all sources and
// destinations; changes nothing and needs no rights. A task file is read with the helper's own
// code. Not found: what the Task Scheduler refuses by itself, and what only an elevated process can
// see. Of the options only `helper` matters.
Report Check(const Request& request, const Options& options = {});

enum class Status {
  kDone,         // everything; looked at afterwards
  kIncomplete,   // the helper went through it, but not every item is as it should be
  kInvalid,      // refused by the check: nothing was started
  kRefused,      // the user refused the elevation: nothing was done
  kNotStarted,   // no helper, no place for its files, another run at work there, or given up before
  kFailed,       // the helper gave up, or ended abnormally
  kStillRunning  // waiting was given up. The helper cannot be ended from here: it goes on
};

// What became of one item.
struct Item {
  std::filesystem::path source;
  std::filesystem::path destination;  // empty for a job
  std::wstring job;                   // the job's name; empty for a copy
  bool isDeletion = false;            // of the job
  bool replaced = false;              // a job of that name was there before
  bool done = false;
  // Why it is not done; of one that is, what could not be looked at. Empty where Result::reason
  // says it all.
  std::wstring reason;
};

struct Result {
  Status status = Status::kNotStarted;
  std::wstring reason;      // for every status but kDone; there what else is to be known
  std::vector<Item> items;  // those of the plan, in its order
  Report report;            // of the check that came first
  // What arrived.
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  std::chrono::milliseconds elapsed{0};  // from the start of the helper to the end of comparing
};

// Checks, starts the helper, waits for it and compares the end state with the sources. Blocks
// until the helper has ended, or waiting is given up, and everything is compared.
//
// The helper's files lie meanwhile in a new folder below the one that the environment variable TMP
// names. Only this user, administrators and the system can open it, where its file system keeps
// access lists. A run claims its sources and destinations, or its job; another one that meets them
// is not started until the helper has ended, whoever waits for it. After kStillRunning the files go
// when the helper has ended, if this process lives that long, and at this user's next run
// otherwise, also where somebody holds them open.
//
// An existing task file is read once and held while the helper works with a copy of it: what was
// checked is what runs.
Result Run(const Request& request, const Options& options = {});

}  // namespace uaclient
