#include "uaclient/private_folder.h"

#include <sddl.h>
#include <winternl.h>

#include "uaclient/path.h"

namespace uaclient {
namespace {

// What is made is what is open: nothing can take its place in between.
Handle CreateAndOpenFolder(const std::wstring& fullPath, PSECURITY_DESCRIPTOR access) {
  std::wstring path = L"\\??" + Verbatim(fullPath).substr(3);
  UNICODE_STRING name = {};
  name.Buffer = path.data();
  name.Length = name.MaximumLength = static_cast<USHORT>(path.size() * sizeof(wchar_t));
  OBJECT_ATTRIBUTES attributes = {};
  attributes.Length = sizeof attributes;
  attributes.ObjectName = &name;
  attributes.Attributes = OBJ_CASE_INSENSITIVE;
  attributes.SecurityDescriptor = access;
  IO_STATUS_BLOCK result = {};
  HANDLE folder = nullptr;
  const NTSTATUS status =
      NtCreateFile(&folder, FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES | SYNCHRONIZE, &attributes,
                   &result, nullptr, FILE_ATTRIBUTE_NORMAL, FILE_SHARE_READ | FILE_SHARE_WRITE,
                   FILE_CREATE, FILE_DIRECTORY_FILE | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
  SetLastError(RtlNtStatusToDosError(status));
  return Handle(folder);
}

}  // namespace

std::wstring UserSid() {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return {};
  const Handle token(opened);
  alignas(TOKEN_USER) char user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  wchar_t* sid = nullptr;
  if (!GetTokenInformation(token.get(), TokenUser, user, sizeof user, &size) ||
      !ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user)->User.Sid, &sid)) {
    return {};
  }
  const std::unique_ptr<wchar_t, LocalMemory> owner(sid);
  return sid;
}

SecurityDescriptor OwnAccessOnly() {
  const std::wstring sid = UserSid();
  const std::wstring list = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;" + sid + L")";
  void* descriptor = nullptr;
  if (!sid.empty()) {
    ConvertStringSecurityDescriptorToSecurityDescriptorW(list.c_str(), SDDL_REVISION_1, &descriptor,
                                                         nullptr);
  }
  return SecurityDescriptor(descriptor);
}

Handle MakePrivateFolder(const std::wstring& fullPath, std::wstring& why) {
  const SecurityDescriptor access = OwnAccessOnly();
  Handle folder = access ? CreateAndOpenFolder(fullPath, access.get()) : Handle();
  DWORD flags = 0;
  if (!folder) {
    why = L"no folder can be made in it: " + SystemMessage(GetLastError());
  } else if (!GetVolumeInformationByHandleW(folder.get(), nullptr, 0, nullptr, nullptr, &flags,
                                            nullptr, 0) ||
             (flags & FILE_PERSISTENT_ACLS) == 0) {
    why = L"its file system keeps no access lists. Set TMP to a folder on an NTFS drive.";
    folder.reset();
    RemoveDirectoryW(fullPath.c_str());
  }
  return folder;
}

}  // namespace uaclient
