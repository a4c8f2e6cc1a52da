// Follows the helper through the copies of a plan, by what shows at their destinations, and
// compares what has arrived with its source.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "uaclient/content_compare.h"
#include "uaclient/tree_listing.h"
#include "uaclient/uaclient.h"

namespace uaclient {

// Looks at sources and destinations as they are before the start, so it is made ahead of it.
class CopyWatch {
 public:
  // The items stand in the order in which the helper carries them out.
  CopyWatch(std::vector<CopyItem> items, Comparison comparison);

  // Finds out how far the helper has come. Goes on from where the last look ended, and so costs
  // little however often it is called.
  void Advance();

  // Compares what the helper has left behind so far, so that less is to do in the end.
  void CompareBehind(const Tick& tick);

  // When the helper has ended: what became of each item.
  std::vector<Item> Finish(const Tick& tick);

  const Progress& Seen() const { return progress_; }

 private:
  // Something that the helper is to make.
  struct Target {
    std::size_t item = 0;
    TreeEntry entry;  // of the source; for a file item its path is empty
    // Those ahead of it.
    std::uint64_t filesBefore = 0;
    std::uint64_t bytesBefore = 0;
    // Before the start, the destination could have been taken for the finished copy.
    bool lookedDone = false;
    // What the destination was when it was compared byte for byte and found equal.
    std::optional<FileState> equalState;
  };

  // What an item's destination was before the start.
  struct Before {
    bool wasThere = false;
    FileState state;        // of a file item's destination
    std::wstring lastFile;  // of a folder's: what is deleted last, or "" where nothing has to be
  };

  void AddFolder(std::size_t item);
  void AddFile(std::size_t item);
  void AddTarget(Target target);

  bool IsOtherItems(const std::wstring& path) const;
  std::wstring SourceOf(const Target& target) const;
  std::wstring DestinationOf(const Target& target) const;
  bool IsEmptied(std::size_t item);
  bool IsReached(const Target& target, FileState& now);
  bool IsComplete(const Target& target);

  Item FinishFile(const Target& target, const Tick& tick);
  Item FinishFolder(std::size_t item, const Tick& tick);
  // "" when it arrived.
  std::wstring WhyNotArrived(const Target& target, const FileState* there, const Tick& tick);

  const std::vector<CopyItem> items_;
  const Comparison comparison_;
  std::vector<Before> before_;                       // by item
  std::vector<std::vector<std::wstring>> unlisted_;  // by item: folders of the source
  std::vector<std::size_t> firstTarget_;             // by item, and one past the last
  std::set<std::wstring> files_;                     // destinations of file items, to compare
  std::vector<Target> targets_;
  std::size_t cursor_ = 0;    // where the helper is
  std::size_t compared_ = 0;  // what CompareBehind goes on with
  ContentComparer comparer_;
  Progress progress_;
};

}  // namespace uaclient
