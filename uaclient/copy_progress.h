// How far the helper is with its copies, as it shows at their destinations and in what the helper's
// process has written. Never by a destination's size: the system sets that before it copies.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "uaclient/work.h"

namespace uaclient {

class CopyProgress {
 public:
  // `progress` becomes what the helper is to do, and is brought up to date from then on. Both
  // must live as long as this.
  CopyProgress(const std::vector<Copy>& copies, Progress& progress);

  // Goes on from where the last look ended, and so costs little however often it is called.
  void Advance(std::uint64_t bytesWritten);

 private:
  // A target with what comes before it.
  struct Stage {
    const Copy* copy;
    const Target* target;
    std::uint64_t files;
    std::uint64_t bytes;
  };

  static bool IsComplete(const Stage& stage);

  std::vector<Stage> stages_;
  std::size_t at_ = 0;  // where the helper is
  Progress& progress_;
};

}  // namespace uaclient
