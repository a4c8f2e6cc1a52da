// How texts for people are put together, amounts and system errors in words, and text as the helper
// reads it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace uaclient {

using Parts = std::initializer_list<std::wstring_view>;

// The text with each "{}" replaced by the next part; parts that are left over are not needed.
std::wstring Filled(std::wstring_view text, Parts parts);

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

// Text where the helper reads the ANSI code page: the system's, which an application whose manifest
// chooses UTF-8 does not share.
std::string ForHelper(const std::wstring& text);
std::wstring FromHelper(const std::string& bytes);

// Whether the helper reads the text as it is: the code page has all its characters.
bool HelperReads(const std::wstring& text);

}  // namespace uaclient
