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
  CopyItem::Kind kind = CopyItem::Kind::kFile;
  std::wstring source;  // full paths where it is usable
  std::wstring destination;

  // What its survey finds out.
  std::vector<Target> targets;
  bool isUsable = false;    // or nothing can come of it
  bool losesFiles = false;  // those at the destination
};

struct Work {
  Result result;                // the check's report, and the item of a job
  std::vector<Copy> copies;     // one for each item, unless it is a job
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

// The numbers of the copies in the order in which the helper comes to them.
std::vector<std::size_t> HelpersOrder(const std::vector<Copy>& copies);

}  // namespace uaclient
