#include "uaclient/size_text.h"

#include <array>
#include <cstdio>

namespace uaclient {

std::wstring FilesInWords(std::uint64_t count) {
  return std::to_wstring(count) + (count == 1 ? L" file" : L" files");
}

std::wstring BytesInWords(std::uint64_t bytes) {
  if (bytes < 1000) return std::to_wstring(bytes) + (bytes == 1 ? L" byte" : L" bytes");
  double amount = static_cast<double>(bytes) / 1000;
  for (const wchar_t* unit : {L" kB", L" MB", L" GB"}) {
    if (amount < 1000) return OneDecimal(amount) + unit;
    amount /= 1000;
  }
  return OneDecimal(amount) + L" TB";
}

std::wstring OneDecimal(double number) {
  std::array<wchar_t, 64> text;
  std::swprintf(text.data(), text.size(), L"%.1f", number);
  return text.data();
}

}  // namespace uaclient
