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

  // Why the folder must not be deleted, to follow its name; L"" when it may.
  std::wstring WhyKept(const Folder& folder) const;

 private:
  std::vector<const Folder*> kept_;  // these and what holds them
  const Folder* windows_;            // with all in it
  const Folder* profiles_;           // with each folder in it
};

}  // namespace uaclient
