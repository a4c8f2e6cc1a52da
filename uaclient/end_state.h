// What became of copies: when the helper has ended, sources and destinations are looked at again,
// and every file is compared once.
#pragma once

#include <vector>

#include "uaclient/file_access.h"
#include "uaclient/work.h"

namespace uaclient {

// Sets `done` and `reason` of the items, one for each copy. An item is done when all of its source,
// as it is now, is at the destination with the same content, and nothing else if it replaced a
// folder. `progress` counts what has arrived.
void JudgeEndState(const std::vector<Copy>& copies, Comparison comparison, const Tick& tick,
                   Progress& progress, std::vector<Item>& items);

}  // namespace uaclient
