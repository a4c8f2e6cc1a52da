// Whether files can be read, overwritten and deleted, as far as this user can see.
#pragma once

#include <string>

namespace uaclient {

enum class Access { kRead, kOverwrite, kDelete };

// Why not, to follow the path; L"" when nothing is in the way. That this user alone lacks the right
// to write or delete is no fault: that is what the elevation is for.
std::wstring AccessFault(const std::wstring& fullPath, Access access);

}  // namespace uaclient
