#include "uaclient/copy_progress.h"

#include <algorithm>

#include "uaclient/path.h"
#include "uaclient/win32.h"

namespace uaclient {

CopyProgress::CopyProgress(const std::vector<Copy>& copies, Progress& progress)
    : progress_(progress) {
  for (const std::size_t i : HelpersOrder(copies)) {
    const Copy& item = copies[i];
    for (const Target& target : item.targets) {
      stages_.push_back({&item, &target, progress_.allFiles, progress_.allBytes});
      progress_.allFiles += target.isFolder ? 0 : 1;
      progress_.allBytes += target.isFolder ? 0 : target.state.size;
    }
  }
}

std::wstring CopyProgress::Stage::Destination() const {
  return Below(item->destination, target->path);
}

// Whether the helper is done with it: it sets a copy's time when the content is there. What looked
// done before the start has changed only in a folder that was emptied, and that is seen by the file
// that goes last: it is away for most of the copying.
bool CopyProgress::IsComplete(const Stage& stage) {
  const std::wstring& last = stage.item->lastDeleted;
  if (last.empty() && stage.target->lookedDone) return false;
  if (!last.empty() && emptied_.count(stage.item) == 0) {
    if (GetFileAttributesW(last.c_str()) != INVALID_FILE_ATTRIBUTES) return false;
    emptied_.insert(stage.item);
  }
  FileState now;
  return stage.target->isFolder
             ? IsFolder(stage.Destination())
             : ReadFileState(stage.Destination(), now) && now.Matches(stage.target->state);
}

void CopyProgress::Advance(std::uint64_t bytesWritten) {
  // What cannot be copied is never complete, nor is seen to be what looked done before; that the
  // helper is past it shows at what comes later.
  for (std::size_t before = stages_.size(); at_ != before;) {
    before = at_;
    for (std::size_t step = 1; before + step <= stages_.size(); step *= 2) {
      if (IsComplete(stages_[before + step - 1])) at_ = before + step;
    }
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
  progress_.current = stage.Destination();
}

}  // namespace uaclient
