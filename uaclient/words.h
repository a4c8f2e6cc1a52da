// How texts for people are put together, and amounts and system errors in words.
#pragma once

#include <windows.h>

#include <cstdint>
#include <initializer_list>
#include <string>

namespace uaclient {

// The text with each "{}" replaced by the next part; parts that are left over are not needed.
std::wstring Filled(std::wstring text, std::initializer_list<std::wstring> parts);

std::wstring Quoted(const std::wstring& text);

// Somebody's text in quotes: not too much of it, and without control characters.
std::wstring Shown(std::wstring text);

// "1 file", "12 files".
std::wstring FilesInWords(std::uint64_t count);

// "12 bytes", "3.4 MB"; 1000 of a unit are one of the next.
std::wstring BytesInWords(std::uint64_t bytes);

// A number with one digit behind the point.
std::wstring OneDecimal(double number);

// The system's own words for an error, with its number, ending in a full stop.
std::wstring SystemMessage(DWORD error);

}  // namespace uaclient
