// Compares two files byte for byte.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace uaclient {

// Called between the steps of what takes long; returns false to end it.
using Tick = std::function<bool()>;

enum class Equality { kEqual, kDifferent, kNotRead, kStopped };

class ContentComparer {
 public:
  Equality Compare(const std::wstring& first, const std::wstring& second, const Tick& tick = {});

 private:
  std::vector<char> first_;
  std::vector<char> second_;
};

}  // namespace uaclient
