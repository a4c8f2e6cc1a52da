// Folders that programs or the user's own data live in. A copy replaces none of these and no folder
// around one: what it would delete is more than any copy can bring.
#pragma once

#include <string>
#include <vector>

#include "uaclient/check_path.h"

namespace uaclient {

struct KeptFolder {
  std::wstring name;         // in a sentence
  std::wstring key;          // for comparison
  bool isKeptWhole = false;  // what is in it, too
};

std::vector<KeptFolder> KeptFolders(Places& places);

}  // namespace uaclient
