// What the text of a path says by itself.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>

namespace uaclient {

// The longest paths, in UTF-16 units, that Windows takes without a prefix of its own: a folder must
// leave space for a file of the old form (8.3) in it.
constexpr std::size_t kMaxFilePath = 259;
constexpr std::size_t kMaxFolderPath = 247;

// Whether the path begins with a drive and a separator, or with a server's name.
bool IsAbsolute(const std::wstring& path);

// Whether an operation list gives the text back as it was written.
bool ListCarries(const std::wstring& text);

// What is wrong with the path, whatever there is on the disk; L"" when nothing is. Begins with the
// path in quotes, or with `ifEmpty`, a whole sentence. `full` becomes the full path, where there is
// one in spite of that.
std::wstring PathFault(const std::wstring& path, const std::wstring& ifEmpty, std::wstring& full);

// The whole path with "\" alone and without a separator at its end, unless it is a root. L"" for
// what leads elsewhere than from a drive or share on.
std::wstring FullPath(const std::wstring& path);

// Whether a full path is a drive's root or a share.
bool IsRoot(const std::wstring& fullPath);

// Of a full path; a root's is the root.
std::wstring ParentOf(const std::wstring& fullPath);
std::wstring NameOf(const std::wstring& fullPath);
std::wstring RootOf(const std::wstring& fullPath);

// Adds "\" at the end where there is no separator.
std::wstring WithSeparator(std::wstring folder);

// A path below a folder; the folder itself for L"".
std::wstring Below(const std::wstring& folder, const std::wstring& path);

// A full path in the form in which Windows sets no limit to its length.
std::wstring Verbatim(const std::wstring& fullPath);

// The full path by which the system knows what is open; L"" when it cannot say.
std::wstring FinalPath(HANDLE file);

// Why the elevated helper does not reach the path's drive by this letter, and what to write
// instead; L"" when it does.
std::wstring DriveFault(const std::wstring& fullPath);

}  // namespace uaclient
