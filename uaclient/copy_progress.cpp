#include "uaclient/copy_progress.h"

#include <windows.h>

#include <algorithm>

#include "uaclient/path.h"
#include "uaclient/win32.h"

namespace uaclient {

CopyProgress::CopyProgress(const Survey& survey)
    : survey_(survey), isEmptied_(survey.items.size(), false) {
  stages_.reserve(survey.targets.size());
  for (const Target& target : survey.targets) {
    stages_.push_back({&target, progress_.allFiles, progress_.allBytes});
    progress_.allFiles += target.isFolder ? 0 : 1;
    progress_.allBytes += target.isFolder ? 0 : target.state.size;
  }
}

// Whether what was in a replaced folder has been deleted, so that what is there now is new. The
// file that goes last is away for most of the copying.
bool CopyProgress::IsEmptied(std::size_t item) {
  const std::wstring& last = survey_.lastDeleted[item];
  isEmptied_[item] = isEmptied_[item] || last.empty() ||
                     GetFileAttributesW(last.c_str()) == INVALID_FILE_ATTRIBUTES;
  return isEmptied_[item];
}

// Whether the helper is done with it: it sets a copy's time when the content is there. What looked
// done before the start has changed only in a folder that was emptied.
bool CopyProgress::IsComplete(const Stage& stage) {
  const Target& target = *stage.target;
  const Copy& item = survey_.items[target.item];
  const bool replaces = item.kind == CopyItem::Kind::kReplaceFolder;
  if (replaces ? !IsEmptied(target.item) : target.lookedDone) return false;
  const std::wstring destination = Below(item.destination, target.path);
  FileState now;
  return target.isFolder ? IsFolder(destination)
                         : ReadFileState(destination, now) && now.Matches(target.state);
}

void CopyProgress::Advance(std::uint64_t bytesWritten) {
  for (bool moved = true; moved;) {
    const std::size_t before = at_;
    while (at_ < stages_.size() && IsComplete(stages_[at_])) ++at_;
    // What cannot be copied is never complete, nor is seen to be what looked done before; that the
    // helper is past it shows at what comes later.
    std::size_t ahead = at_;
    for (std::size_t step = 1; at_ + step < stages_.size(); step *= 2) {
      if (IsComplete(stages_[at_ + step])) ahead = at_ + step;
    }
    at_ = ahead;
    moved = at_ > before;
  }
  if (at_ == stages_.size()) {
    progress_.files = progress_.allFiles;
    progress_.bytes = progress_.allBytes;
    progress_.current.clear();
    return;
  }
  const Stage& stage = stages_[at_];
  const std::uint64_t size = stage.target->isFolder ? 0 : stage.target->state.size;
  const std::uint64_t written = bytesWritten - std::min(bytesWritten, stage.bytes);
  progress_.files = std::max(progress_.files, stage.files);
  progress_.bytes = std::max(progress_.bytes, stage.bytes + std::min(written, size));
  progress_.current = Below(survey_.items[stage.target->item].destination, stage.target->path);
}

}  // namespace uaclient
