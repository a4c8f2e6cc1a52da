// Amounts in words, as every text for users has them.
#pragma once

#include <cstdint>
#include <string>

namespace uaclient {

// "1 file", "12 files".
std::wstring FilesInWords(std::uint64_t count);

// "12 bytes", "3.4 MB"; 1000 of a unit are one of the next.
std::wstring BytesInWords(std::uint64_t bytes);

// A number with one digit behind the point.
std::wstring OneDecimal(double number);

}  // namespace uaclient
