// Conversions between the system's three forms of text: UTF-8 in every std::string that names a
// path, UTF-16 at the wide system calls, and the process's ANSI code page at the narrow ones.
#pragma once

#include <string>

// UTF-16 to UTF-8. An unpaired surrogate becomes U+FFFD. Returns "" on any failure.
std::string WideToUtf8(const std::wstring& text);

// UTF-8 to UTF-16. Returns L"" on any failure. Any invalid sequence is a failure, overlong forms
// and encoded surrogates included.
std::wstring Utf8ToWide(const std::string& text);

namespace corekit {

// UTF-16 to the code page with this number, and back. Both return an empty string on any failure.
// Characters that the code page lacks are replaced, as in Utf8ToAnsi.
std::string WideToCodePage(const std::wstring& text, unsigned codePage);
std::wstring CodePageToWide(const std::string& text, unsigned codePage);

// UTF-8 to the ANSI code page. Characters that the code page lacks become a similar one or the
// default character (usually "?"), so the result may name a different file. Returns "" on any
// failure, and for text that is not valid UTF-8.
std::string Utf8ToAnsi(const std::string& text);

// The ANSI code page to UTF-16. Returns L"" on any failure.
std::wstring AnsiToWide(const std::string& text);

}  // namespace corekit
