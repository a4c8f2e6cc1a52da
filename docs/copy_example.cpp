// Copies new files to where only an administrator may write: the folder "skins" and the file
// "player.ini", from "new" to "installed" in the current directory. One of the tests.

#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "uaclient/uaclient.h"

int main() {
  _setmode(_fileno(stdout), _O_U8TEXT);  // names of every script
  const std::filesystem::path fresh = std::filesystem::current_path() / L"new";
  const std::filesystem::path install = std::filesystem::current_path() / L"installed";

  uaclient::CopyPlan plan;
  plan.Folder(fresh / L"skins", install / L"skins");  // adds and overwrites, deletes nothing
  plan.File(fresh / L"player.ini", install / L"player.ini");

  uaclient::Options options;
  options.owner = nullptr;  // your window, which the elevation prompt then belongs to
  options.confirm = [](const uaclient::Report& report) {  // checked, not started yet
    for (const uaclient::Step& step : report.steps) std::wprintf(L"%ls\n", step.text.c_str());
    return true;  // false: start nothing
  };
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
