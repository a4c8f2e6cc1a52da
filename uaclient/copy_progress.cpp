#include "uaclient/copy_progress.h"

#include <algorithm>

#include "uaclient/path.h"
#include "uaclient/win32.h"

namespace uaclient {

CopyProgress::CopyProgress(const std::vector<Copy>& copies, Progress& progress)
    : progress_(progress) {
  for (const Copy& copy : copies) {
    for (const Target& target : copy.targets) {
      stages_.push_back({&copy, &target, progress_.allFiles, progress_.allBytes});
      progress_.allFiles += target.isFolder ? 0 : 1;
      progress_.allBytes += target.state.size;
    }
  }
}

// Whether the helper is done with it: it sets a copy's time when the content is there. What looked
// done before the start does not tell.
bool CopyProgress::IsComplete(const Stage& stage) {
  if (stage.target->lookedDone) return false;
  const std::wstring path = Below(stage.copy->destination, stage.target->path);
  FileState now;
  return stage.target->isFolder ? IsFolder(path)
                                : ReadFileState(path, now) && now.Matches(stage.target->state);
}

void CopyProgress::Advance(std::uint64_t bytesWritten) {
  // What cannot be copied is never complete; that the helper is past it shows at what comes later.
  for (std::size_t before = stages_.size(); at_ != before;) {
    before = at_;
    for (std::size_t step = 1; before + step <= stages_.size(); step *= 2) {
      if (IsComplete(stages_[before + step - 1])) at_ = before + step;
    }
  }
  // Where it has written more than what comes before a target, it is there at least.
  while (at_ + 1 < stages_.size() && stages_[at_ + 1].bytes < bytesWritten) ++at_;
  if (at_ == stages_.size()) {
    progress_.files = progress_.allFiles;
    progress_.bytes = progress_.allBytes;
    progress_.current.clear();
    return;
  }
  const Stage& stage = stages_[at_];
  const std::uint64_t written = bytesWritten - std::min(bytesWritten, stage.bytes);
  progress_.files = std::max(progress_.files, stage.files);
  progress_.bytes =
      std::max(progress_.bytes, stage.bytes + std::min(written, stage.target->state.size));
  progress_.current = Below(stage.copy->destination, stage.target->path);
}

}  // namespace uaclient
