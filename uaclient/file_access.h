// Whether a folder can be replaced: its source's files read, its own deleted. As far as this user
// can see; what the elevation is for is no fault.
#pragma once

#include <string>

namespace uaclient {

// Why not, to follow the path; L"" when nothing is in the way.
std::wstring ReadingFault(const std::wstring& fullPath);
std::wstring DeletionFault(const std::wstring& fullPath);

}  // namespace uaclient
