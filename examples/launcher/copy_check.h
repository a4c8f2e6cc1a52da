// What must hold before a copy, so that it does no harm, and after it, so that it counts as done.
#pragma once

#include <string>

// Full paths; those of folders end in a separator.
struct Copy {
  std::wstring source;
  std::wstring destination;
  bool isFolder = false;
};

// The path from the drive down, without a separator at its end. Throws BadArguments for what cannot
// be a path.
std::wstring FullPath(const std::wstring& path);

// Throws BadArguments for a source that does not exist and for a copy that would destroy its own
// source, a whole drive, or something of another kind.
Copy CheckedCopy(const std::wstring& source, const std::wstring& destination);

// Whether everything in the source is at the destination, by names and sizes.
bool WasCopied(const Copy& copy);
