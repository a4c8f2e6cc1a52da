// One run at a time at one place. What a run reads and writes it claims, in a file in one folder of
// this user, before the elevation prompt; the claim holds while the run's process or its helper
// lives, also when nobody waits for the helper any more.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace uaclient {

// A file or a folder that a run needs.
struct Claimed {
  bool isWritten = false;
  std::wstring folder;  // full path
  std::wstring file;    // its name in that folder; empty for the folder with all in it
};

// Where they meet, because one of them writes what one of the others needs; null when they do not.
// Looks up where the paths lead.
const Claimed* Meet(const std::vector<Claimed>& ones, const std::vector<Claimed>& others);

// Goes at the end of the scope, after the helper's files.
class RunClaim {
 public:
  RunClaim() = default;
  ~RunClaim();
  RunClaim(const RunClaim&) = delete;
  RunClaim& operator=(const RunClaim&) = delete;

  // Makes the folder for claims. Called before anything is listed, because a source may hold it.
  static void Prepare();

  // Claims the places, unless a claim that holds meets them. Removes claims that hold no longer,
  // each with its helper's files, which lie in `helperFolder`. Throws NotStarted.
  void Take(const std::vector<Claimed>& places, const std::wstring& helperFolder);

  // From now on the claim is the helper's as well.
  void AddHelper(HANDLE helper);

 private:
  std::wstring file_;  // empty: nothing is claimed
  std::wstring helperFolder_;
};

}  // namespace uaclient
