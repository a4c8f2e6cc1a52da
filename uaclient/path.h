// What the text of a path says by itself.
#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace uaclient {

// The longest paths, in UTF-16 units, that Windows takes without a prefix of its own: a folder must
// leave space for a file of the old form (8.3) in it.
constexpr std::size_t kMaxFilePath = 259;
constexpr std::size_t kMaxFolderPath = 247;

// Whether the path begins with a drive and a separator, or with a server and a share.
bool IsAbsolute(const std::wstring& path);

// What is wrong with the path, whatever there is on the disk; L"" when nothing is. A sentence that
// begins with the path in quotes, or with `name` where the path is empty.
std::wstring PathFault(const std::wstring& path, const std::wstring& name);

// The whole path with "\" alone and without a separator at its end, unless it is a root. L"" for
// what the system takes for no path.
std::wstring FullPath(const std::wstring& path);

// How much of a full path is the drive's root or the share: "C:\", "\\server\share".
std::size_t RootSize(const std::wstring& fullPath);
bool IsRoot(const std::wstring& fullPath);
std::wstring ParentOf(const std::wstring& fullPath);

// Adds "\" at the end where there is no separator.
std::wstring WithSeparator(std::wstring folder);

// A full path in the form in which Windows sets no limit to its length.
std::wstring Verbatim(const std::wstring& fullPath);

// Why the elevated helper does not reach the path's drive by this letter, and what to write
// instead; L"" when it does. A sentence that begins with the drive.
std::wstring DriveFault(const std::wstring& fullPath);

}  // namespace uaclient
