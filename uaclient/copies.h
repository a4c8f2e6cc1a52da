// What a set of copies would do: every file and folder that it brings, what it deletes, and what is
// wrong with it. Plans and operation lists have this in common; each tree is listed once.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "uaclient/places.h"
#include "uaclient/uaclient.h"
#include "uactask/operation_list.h"

namespace uaclient {

// What somebody wrote into a list the helper tries, item by item, so most that is wrong with one is
// a warning there. A plan is refused for it.
enum class Origin { kPlan, kList };

// A file or folder that an item brings.
struct Target {
  std::size_t item = 0;
  std::wstring path;  // below the item's source and destination; empty for the item itself
  bool isFolder = false;
  FileState state;          // of the source
  bool lookedDone = false;  // the destination looked like the finished copy before the start
};

// An item of a plan or a list.
struct Copy {
  CopyItem::Kind kind = CopyItem::Kind::kFile;
  std::wstring source;
  std::wstring destination;
};

struct Survey {
  std::vector<Copy> items;      // full paths; both empty for an item of which nothing can come
  Findings findings;            // in the order of the items
  std::vector<Step> steps;      // one an item, in the helper's order: replaced folders come first
  std::vector<Target> targets;  // in the helper's order, those of an item together
  std::vector<std::wstring> lastDeleted;       // by item: the path of the file that goes last
  std::vector<uactask::Operation> operations;  // of a plan: what the helper is to be given
  std::vector<Claimed> claims;                 // what the run reads, writes and deletes
};

// The items of a list are files and replaced folders only.
Survey SurveyCopies(std::vector<Copy> items, Origin origin, const Options& options);

}  // namespace uaclient
