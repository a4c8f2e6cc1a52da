// One run at a time at one place. What a run reads and writes it claims, in a file in one folder of
// this user, before the elevation prompt; the claim holds while the run's process or its helper
// lives, also when nobody waits for the helper any more.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "uaclient/places.h"

namespace uaclient {

class RunClaim {
 public:
  RunClaim() = default;
  ~RunClaim();
  RunClaim(const RunClaim&) = delete;
  RunClaim& operator=(const RunClaim&) = delete;

  // Makes the folder for claims. Called before anything is listed, because a source may hold it.
  static void Prepare();

  // Claims the places, unless a claim that holds meets them: then returns false, and `why` says so.
  // Removes claims that hold no longer, each with its helper's files, which lie in `helperFolder`.
  bool Take(const std::vector<Claimed>& places, const std::wstring& helperFolder,
            std::wstring& why);

  // From now on the claim is the helper's as well.
  void AddHelper(HANDLE helper);

  // It is the helper's alone when this process goes on with something else.
  void LeaveToHelper();

 private:
  struct Process {
    std::uint64_t id = 0;
    std::uint64_t start = 0;  // 0 where it cannot be read
  };
  struct Claim;

  static Process Describe(DWORD id, HANDLE process);
  static bool Lives(const Process& process);
  static bool Read(const std::wstring& file, Claim& claim);
  bool Write() const;

  std::wstring file_;  // empty: nothing is claimed
  std::wstring helperFolder_;
  Process owner_;
  Process helper_;
  std::wstring places_;  // as the file has them
};

}  // namespace uaclient
