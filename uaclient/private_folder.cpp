#include "uaclient/private_folder.h"

#include <sddl.h>

#include <memory>

namespace uaclient {
namespace {

// Whom new files of this process belong to, and who it runs as.
class Token {
 public:
  Token() {
    HANDLE opened = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) token_ = Handle(opened);
    isRead_ = Read(TokenUser, user_) && Read(TokenOwner, owner_);
  }

  bool IsRead() const { return isRead_; }
  PSID User() const { return reinterpret_cast<const TOKEN_USER*>(user_)->User.Sid; }
  PSID Owner() const { return reinterpret_cast<const TOKEN_OWNER*>(owner_)->Owner; }

 private:
  static constexpr DWORD kSize = sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE;

  bool Read(TOKEN_INFORMATION_CLASS what, char* into) const {
    DWORD size = 0;
    return token_ && GetTokenInformation(token_.get(), what, into, kSize, &size);
  }

  Handle token_;
  bool isRead_ = false;
  alignas(TOKEN_USER) char user_[kSize] = {};
  alignas(TOKEN_OWNER) char owner_[kSize] = {};
};

// Opened so that nobody can rename it, remove it or put something else in its place.
Handle HoldFolder(const std::wstring& folder) {
  return Handle(CreateFileW(folder.c_str(), FILE_LIST_DIRECTORY | READ_CONTROL | WRITE_DAC,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// Whether the file system keeps access lists, and no link has taken the folder's place.
bool IsPlainFolder(const Handle& folder) {
  BY_HANDLE_FILE_INFORMATION info = {};
  DWORD flags = 0;
  return GetFileInformationByHandle(folder.get(), &info) &&
         (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0 &&
         GetVolumeInformationByHandleW(folder.get(), nullptr, 0, nullptr, nullptr, &flags, nullptr,
                                       0) &&
         (flags & FILE_PERSISTENT_ACLS) != 0;
}

// Between its creation and its opening another folder may have come to stand there. One of somebody
// else is refused; of one of this user's the access list is made what it should be.
bool MakeOwn(const Handle& folder, const Token& token, const SecurityDescriptor& access) {
  alignas(SECURITY_DESCRIPTOR) char bytes[sizeof(SECURITY_DESCRIPTOR) + SECURITY_MAX_SID_SIZE];
  DWORD size = 0;
  PSID owner = nullptr;
  BOOL isDefault = FALSE;
  return GetKernelObjectSecurity(folder.get(), OWNER_SECURITY_INFORMATION, bytes, sizeof bytes,
                                 &size) &&
         GetSecurityDescriptorOwner(bytes, &owner, &isDefault) && owner != nullptr &&
         (EqualSid(owner, token.User()) || EqualSid(owner, token.Owner())) &&
         SetKernelObjectSecurity(folder.get(),
                                 DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                 access.get());
}

}  // namespace

std::wstring UserSid() {
  const Token token;
  wchar_t* sid = nullptr;
  if (!token.IsRead() || !ConvertSidToStringSidW(token.User(), &sid)) return {};
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

Handle MakePrivateFolder(const std::wstring& path, std::wstring& why) {
  const Token token;
  const SecurityDescriptor access = OwnAccessOnly();
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, access.get(), FALSE};
  if (!access || !CreateDirectoryW(path.c_str(), &attributes)) {
    why = L"no folder can be made in it: " + SystemMessage(GetLastError());
    return Handle();
  }
  Handle folder = HoldFolder(path);
  if (!folder) {
    why = L"the folder made in it cannot be opened: " + SystemMessage(GetLastError());
  } else if (!IsPlainFolder(folder)) {
    why = L"its file system keeps no access lists. Set TMP to a folder on an NTFS drive.";
  } else if (!MakeOwn(folder, token, access)) {
    why =
        L"the folder made in it is not this user's own, or another one has come in its place. Set "
        L"TMP to a folder that only you can change.";
  } else {
    return folder;
  }
  folder.reset();
  RemoveDirectoryW(path.c_str());
  return Handle();
}

}  // namespace uaclient
