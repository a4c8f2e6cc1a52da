// What became of copies: when the helper has ended, sources and destinations are looked at again,
// and every file is compared once.
#pragma once

#include <vector>

#include "uaclient/content_compare.h"
#include "uaclient/copies.h"
#include "uaclient/uaclient.h"

namespace uaclient {

// One for each item of the survey, with `done` and `reason` set. An item is done when all of its
// source, as it is now, is at the destination with the same content, and nothing else if it
// replaced a folder. `progress` counts what has arrived.
std::vector<Item> JudgeEndState(const Survey& survey, Comparison comparison, const Tick& tick,
                                Progress& progress);

}  // namespace uaclient
