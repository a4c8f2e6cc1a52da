// Files as they are opened: to see whether they can be copied, overwritten or deleted, as far as
// this user can see, and to be compared.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace uaclient {

// Why the file cannot be opened for that, to follow its name; L"" when it can. Where only the
// elevation is lacking, it can be deleted and overwritten.
std::wstring ReadingFault(const std::wstring& fullPath);
std::wstring OverwritingFault(const std::wstring& fullPath);
std::wstring DeletionFault(const std::wstring& fullPath);

// Called between the steps of what takes long; returns false to end it.
using Tick = std::function<bool()>;

enum class Equality { kEqual, kDifferent, kNotRead, kStopped };

class ContentComparer {
 public:
  // Every byte of two files.
  Equality Compare(const std::wstring& first, const std::wstring& second, const Tick& tick = {});

 private:
  std::vector<char> first_;
  std::vector<char> second_;
};

}  // namespace uaclient
