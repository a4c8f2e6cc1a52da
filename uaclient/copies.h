// What a set of copies would do: every file and folder that it brings, what it deletes, and what is
// wrong with it. Plans and operation lists have this in common; each tree is listed once.
#pragma once

#include <string>
#include <vector>

#include "uaclient/claims.h"
#include "uaclient/places.h"
#include "uaclient/uaclient.h"
#include "uactask/operation_list.h"

namespace uaclient {

// What somebody wrote into a list the helper tries, item by item, so most that is wrong with one is
// a warning there. A plan is refused for it.
enum class Origin { kPlan, kList };

// A file or folder that an item brings.
struct Target {
  std::wstring path;  // below the item's source and destination; empty for the item itself
  bool isFolder = false;
  FileState state;          // of the source
  bool lookedDone = false;  // the destination looked like the finished copy before the start
};

// An item of a plan or a list.
struct Copy {
  CopyItem::Kind kind = CopyItem::Kind::kFile;
  std::wstring source;  // full paths in a survey, unless the item is refused for one of them
  std::wstring destination;

  // What the survey finds out.
  bool isUsable = false;  // or nothing can come of it
  std::vector<Target> targets = {};
  std::wstring lastDeleted = {};  // the path of the file that goes last
};

struct Survey {
  std::vector<Copy> items;
  Findings findings;                           // in the order of the items
  std::vector<Step> steps;                     // one an item, in the helper's order
  std::vector<uactask::Operation> operations;  // of a plan: what the helper is to be given
  std::vector<Claimed> claims;                 // what the run reads, writes and deletes
};

// The items of a list are files and replaced folders only.
Survey SurveyCopies(std::vector<Copy> items, Origin origin, const Options& options);

// The numbers of the items in the order in which the helper comes to them.
std::vector<std::size_t> HelpersOrder(const std::vector<Copy>& items);

}  // namespace uaclient
