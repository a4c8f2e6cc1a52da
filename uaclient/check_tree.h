// What lies in a folder that the helper would copy or empty, and what of it would not work.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "uaclient/check_path.h"

namespace uaclient {

struct TreeSize {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
};

// Why a file or folder cannot be opened as the helper will open it, as the end of a sentence; L""
// when it can. What only lacks rights can be deleted and overwritten with raised ones, so for these
// that is no reason.
enum class Access { kRead, kOverwrite, kDelete };
std::wstring AccessFault(const std::wstring& fullPath, Access access);

// Walk the whole folder; links are not followed. `remarks`, empty before, gets what stands in the
// way, `links` the paths of the links. `openFiles` tries to read each file as well.
TreeSize MeasureSource(const std::wstring& folder, const std::wstring& destination, bool openFiles,
                       Remarks& remarks, std::vector<std::wstring>& links);
TreeSize MeasureEmptied(const std::wstring& folder, Remarks& remarks);

}  // namespace uaclient
