// What a path says by itself, and where it leads.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "uaclient/win32.h"

namespace uaclient {

// What speaks against a copy, from the harmless to the worst.
enum class Weight {
  kEmpties,  // what the helper deletes by design
  kDoubt,    // it may not arrive as it is
  kFails,    // it does not arrive
  kHarms     // it destroys what nobody asked to destroy
};

struct Remark {
  Weight weight = Weight::kFails;
  std::wstring text;
};
using Remarks = std::vector<Remark>;

// The longest paths, in UTF-16 units, that Windows takes without a prefix of its own: a folder
// must leave space for a file of the old form (8.3) in it. The helper composes paths of at most
// kMaxFilePath.
constexpr std::size_t kMaxFilePath = 259;
constexpr std::size_t kMaxFolderPath = 247;

// Whether a file's name is one by which every Windows program finds the file again: no sign with a
// meaning of its own, no blank or dot at its end, no device's name.
bool IsPlainName(std::wstring_view name);

// Whether the path begins with a drive and "\", or with "\\".
bool IsAbsolute(const std::wstring& path);

// What is wrong with a path, whatever there is on the disk. "." and ".." are refused, because what
// they mean depends on who looks: the path is to be written out.
Remarks CheckPathText(const std::wstring& path);

// The path from the drive down, with "\" alone, without "." and "..", without a separator at its
// end unless it is a root. L"" for what cannot be a path, or leads elsewhere than from a drive or
// share on: a device's, a volume's.
std::wstring FullPath(const std::wstring& path);

// The same for a path on which CheckPathText has had no remarks; quicker where that is known.
std::wstring FullPath(const std::wstring& path, bool isPlain);

// How much of a full path is the drive's root or the share: "C:\", "\\server\share".
std::size_t RootSize(const std::wstring& fullPath);

// A full path that is nothing else.
bool IsRoot(const std::wstring& fullPath);

// A full path in the form in which Windows sets no limit to its length.
std::wstring Verbatim(const std::wstring& fullPath);

// What there is at a full path.
struct Place {
  bool exists = false;
  bool isUnseen = false;  // this user may not look there, or the system cannot tell
  bool isFolder = false;
  std::uint32_t attributes = 0;
  std::uint64_t size = 0;
  // Where the path leads, whatever links, short names and substituted drives it goes through, as
  // far as it exists.
  std::wstring real;
};

// Looks places up. Each folder is looked at once: what lies in one that is missing costs nothing,
// and of many files in one folder each costs little.
class Places {
 public:
  Place Look(const std::wstring& fullPath);

  // Why the helper, with its raised rights, does not reach the path's drive by this letter, and
  // what to write instead; L"" when it does.
  std::wstring DriveFault(const std::wstring& fullPath);

 private:
  struct KnownFolder {
    Place place;
    std::size_t looks = 0;
    bool isListed = false;
    // By name in upper case. One that does not exist is no plain file and is to be looked at
    // itself.
    std::unordered_map<std::wstring, Place> files;
  };

  KnownFolder* Known(const std::wstring& fullPath);
  KnownFolder& Folder(const std::wstring& fullPath, const KnownFolder* above);
  static Place LookIn(KnownFolder& folder, const std::wstring& fullPath, std::wstring composed);
  static bool List(KnownFolder& folder, const std::wstring& fullPath);

  std::unordered_map<std::wstring, KnownFolder> folders_;
  std::unordered_map<wchar_t, std::wstring> driveFaults_;
};

// Real paths in a form that is equal for equal ones, and in which a folder's is the beginning of
// all that lie in it. Sorted, these follow the folder, because what separates in it comes before
// every sign that a name can hold.
constexpr wchar_t kKeySeparator = L'\x01';
std::wstring ComparisonKey(const std::wstring& real);

}  // namespace uaclient
