// What only this user, administrators and the system may open.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "uaclient/win32.h"

namespace uaclient {

struct LocalMemory {
  void operator()(void* memory) const { LocalFree(memory); }
};
using SecurityDescriptor = std::unique_ptr<void, LocalMemory>;

// The security descriptor that says so, for something and all in it. Null when the system fails.
SecurityDescriptor OwnAccessOnly();

// This user as text, S-1-5-21-…; L"" when the system fails.
std::wstring UserSid();

// Makes a new folder of that kind and holds it open, so that nobody can rename or replace it. When
// it exists already or cannot be kept private, the handle is empty and `why` says why.
Handle MakePrivateFolder(const std::wstring& fullPath, std::wstring& why);

}  // namespace uaclient
