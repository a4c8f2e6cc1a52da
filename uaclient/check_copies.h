// What would become of a list of copies: what the library's own plans and the operation lists of
// others have in common.
#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

#include "uaclient/check_path.h"
#include "uaclient/uaclient.h"

namespace uaclient {

// A plan is written by this library. Of a list that somebody wrote everything counts: how paths are
// written, and whether each file in a source can be read.
enum class Origin { kPlan, kList };

struct CopyRemark {
  std::size_t item = 0;
  Remark remark;
};

struct CopyCheck {
  std::vector<CopyRemark> remarks;  // by item
  std::vector<Step> steps;          // one for each item
};

// `items` in the helper's order: folders first. `files` are those that tell the helper what to do.
CopyCheck CheckCopies(std::vector<CopyItem> items, Origin origin,
                      const std::vector<std::filesystem::path>& files = {});

// The order in which the helper carries items out: their indexes, folders first.
std::vector<std::size_t> HelperOrder(const std::vector<CopyItem>& items);

}  // namespace uaclient
