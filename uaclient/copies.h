// What a set of copies would do: every file and folder that it brings, what it deletes, and what is
// wrong with it. Plans and operation lists have this in common; each tree is listed once.
#pragma once

#include "uaclient/work.h"

namespace uaclient {

// What somebody wrote into a list the helper tries, item by item, so most that is wrong with one is
// a warning there. A plan is refused for it, and gets a list.
enum class Origin { kPlan, kList };

// Adds what the work's copies would do. Those of a list are files and replaced folders only.
// Findings are in the order of the copies, steps in the helper's.
void SurveyCopies(Work& work, Origin origin, const Options& options);

}  // namespace uaclient
