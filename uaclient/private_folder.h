// A folder for files that decide what is done with raised rights.
#pragma once

#include <string>

#include "uaclient/win32.h"

namespace uaclient {

// Makes a new folder, open to this user, administrators and the system alone whatever the folder
// above it allows, and holds it: nobody can rename it, remove it or put another one in its place
// while the handle is open. An empty handle, with the reason in `why`, when that cannot be had;
// what has been made by then is gone again.
Handle MakePrivateFolder(const std::wstring& path, std::wstring& why);

}  // namespace uaclient
