// How far the helper is with its copies, as it shows at their destinations and in what the helper's
// process has written. Never by a destination's size: the system sets that before it copies.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "uaclient/copies.h"
#include "uaclient/uaclient.h"

namespace uaclient {

class CopyProgress {
 public:
  explicit CopyProgress(const Survey& survey);

  // Goes on from where the last look ended, and so costs little however often it is called.
  void Advance(std::uint64_t bytesWritten);

  const Progress& Seen() const { return progress_; }

 private:
  // A target with what comes before it.
  struct Stage {
    const Target* target;
    std::uint64_t files;
    std::uint64_t bytes;
  };

  bool IsComplete(const Stage& stage);
  bool IsEmptied(std::size_t item);

  const Survey& survey_;
  std::vector<Stage> stages_;
  std::vector<bool> isEmptied_;  // by item
  std::size_t at_ = 0;           // where the helper is
  Progress progress_;
};

}  // namespace uaclient
