// What is to be done, before anything is started: checked, and in the helper's words.
#pragma once

#include <string>
#include <vector>

#include "uaclient/claims.h"
#include "uaclient/tree.h"
#include "uaclient/uaclient.h"
#include "uaclient/win32.h"

namespace uaclient {

// A file or folder that an item brings, as it is in the source.
struct Target : TreeEntry {
  bool lookedDone = false;  // the destination looked like the finished copy before the start
};

// An item of a plan or a list.
struct Copy {
  Step::Kind kind = Step::Kind::kCopyFile;
  std::wstring source;  // full paths where it is usable
  std::wstring destination;
  std::size_t line = 0;  // of the list's file

  // What its survey finds out.
  std::vector<Target> targets;
  std::vector<TreeEntry> deleted;  // files of a folder that is replaced
  std::size_t item = 0;            // its place in the plan or the list
  bool isUsable = false;           // or nothing can come of it
};

struct Work {
  Result result;                // the check's report, with a step for each item
  std::vector<Copy> copies;     // one for each item, unless it is a job; in the helper's order
  std::vector<Claimed> claims;  // what the copies read, write and delete

  // What the helper is given. Where there is a list, the task file is one that names it.
  std::string task;
  std::string list;

  Handle taskFile;  // an existing one, held: it goes when the helper has succeeded
};

// kYes: while the work exists nobody else can change or delete the task file, and it can be deleted
// through its handle. A file that cannot be opened so gets a finding that refuses it.
enum class Hold { kNo, kYes };

Work WorkOf(const CopyPlan& plan, const Options& options, Hold hold);
Work WorkOf(const Job& job, const Options& options, Hold hold);
Work WorkOf(const JobRemoval& removal, const Options& options, Hold hold);
Work WorkOf(const TaskFile& task, const Options& options, Hold hold);

// Puts the work's copies into the helper's order and adds what they would do: every file and folder
// that they bring, what they delete, and what is wrong with them. Each tree is listed once. What
// somebody wrote into a list the helper tries, item by item, so most that is wrong with one is a
// warning in its file. A plan, which has no such file, is refused for it, and gets a list. Copies
// of a list are files and replaced folders only.
void SurveyCopies(Work& work, const Options& options, const std::wstring& listFile = {});

}  // namespace uaclient
