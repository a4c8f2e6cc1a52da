// An application that brings its new files to where only an administrator may write: the folder
// "skins" and the file "player.ini". Usage: copy_example NEW INSTALLED
//
// This program is one of the tests.

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <filesystem>

#include "uaclient/uaclient.h"

int wmain(int argumentCount, wchar_t* arguments[]) {
  if (argumentCount != 3) return 2;
  _setmode(_fileno(stdout), _O_U8TEXT);  // wide text of every script, as UTF-8
  const std::filesystem::path fresh = std::filesystem::absolute(arguments[1]).make_preferred();
  const std::filesystem::path install = std::filesystem::absolute(arguments[2]).make_preferred();

  uaclient::CopyPlan plan;
  plan.Folder(fresh / L"skins", install / L"skins");
  plan.File(fresh / L"player.ini", install / L"player.ini");

  uaclient::Options options;  // options.owner: the window that the request for rights belongs to
  options.progress = [](const uaclient::Progress& now) {
    std::wprintf(L"%llu of %llu files\n", now.files, now.allFiles);
    return true;  // false: stop waiting
  };
  const uaclient::Result result = uaclient::Run(plan, options);
  if (result.status == uaclient::Status::kRefused) return 1;  // the user said no
  for (const uaclient::Item& item : result.items) {           // each compared with its source
    if (!item.done) std::wprintf(L"%ls: %ls\n", item.destination.c_str(), item.reason.c_str());
  }
  if (!result.reason.empty()) std::wprintf(L"%ls\n", result.reason.c_str());
  return result.status == uaclient::Status::kDone ? 0 : 1;
}
