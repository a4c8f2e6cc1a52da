// Text as the helper reads it where it reads the ANSI code page: the system's, which an application
// whose manifest chooses UTF-8 does not share.
#pragma once

#include <string>

namespace uaclient {

// Whether the helper reads the text as it is: the code page has all its characters.
bool HelperReads(const std::wstring& text);

// For text that the helper reads.
std::string ForHelper(const std::wstring& text);

// What the helper takes these bytes for.
std::wstring FromHelper(const std::string& bytes);

}  // namespace uaclient
