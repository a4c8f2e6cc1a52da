// Registers a weekly job with the Task Scheduler and removes it again, with one elevation for each.

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <string>

#include "uaclient/uaclient.h"

namespace {

bool Tell(const wchar_t* what, const uaclient::Result& result) {
  const std::wstring text = result.reason.empty() ? L"Done." : result.reason;
  std::wprintf(L"%ls: %ls\n", what, text.c_str());
  // Even a registered job can have a reason: another account may have confirmed the elevation.
  for (const uaclient::Item& item : result.items) {
    if (!item.reason.empty()) std::wprintf(L"  %ls\n", item.reason.c_str());
  }
  return result.status == uaclient::Status::kDone;
}

}  // namespace

int main() {
  _setmode(_fileno(stdout), _O_U8TEXT);

  uaclient::Job job;
  job.name = L"Player\\weekly update";  // in the scheduler's folder "Player"
  job.every = uaclient::Job::Every::kWeek;
  job.days = uaclient::Job::kMonday | uaclient::Job::kFriday;
  job.hour = 8;
  job.program = L"C:\\Windows\\System32\\notepad.exe";  // your updater
  job.arguments = {L"/silent"};                         // at least one; L"" is an empty one
  job.author = L"Player";

  const bool registered = Tell(L"registering", uaclient::Run(job));
  const bool removed = Tell(L"removing", uaclient::Run(uaclient::JobRemoval{job.name}));
  return registered && removed ? 0 : 1;
}
