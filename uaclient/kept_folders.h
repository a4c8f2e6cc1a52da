// Folders that no copy may replace: deleting one would delete programs or user data.
#pragma once

#include <windows.h>

#include <shlobj.h>

#include <string>
#include <vector>

#include "uaclient/places.h"
#include "uaclient/uaclient.h"

namespace uaclient {

// A folder of the system's list, such as FOLDERID_Documents; L"" when there is none.
std::wstring KnownFolder(const KNOWNFOLDERID& id);

class KeptFolders {
 public:
  KeptFolders(Folders& folders, const Options& options);

  // Why what is at the place must not be deleted, to follow the folder's name; L"" when it may.
  std::wstring WhyKept(const Folder& folder) const;

 private:
  struct Kept {
    std::wstring path;
    Place place;
  };

  void Keep(Folders& folders, const std::wstring& path);

  std::vector<Kept> kept_;  // these and what holds them
  Place windows_;           // with all in it
  Place profiles_;          // with each folder in it
};

}  // namespace uaclient
