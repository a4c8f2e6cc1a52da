#include "xmlstore/nesting.h"

#include <cstring>
#include <string_view>

namespace {

// The scanner takes text apart exactly as the property tree's reader does, loose ends included: an
// element's name may hold quotes, closing tags need not match, and an unknown declaration ends at
// the next ">". Where it did otherwise, a document could hide its depth from it. It may be laxer
// where the reader gives up: a document that fails to load fails for either reason.

bool IsBlank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

bool IsNameEnd(char c) { return c == '\0' || IsBlank(c) || c == '/' || c == '>' || c == '?'; }

bool IsAttributeNameEnd(char c) { return IsNameEnd(c) || c == '<' || c == '=' || c == '!'; }

bool StartsWith(const char* at, std::string_view prefix) {
  return std::strncmp(at, prefix.data(), prefix.size()) == 0;
}

const char* SkipBlanks(const char* at) {
  while (IsBlank(*at)) ++at;
  return at;
}

// The functions below return the position behind what they read, or null where the reader fails.

const char* BehindNext(const char* at, std::string_view end) {
  at = std::strstr(at, end.data());
  return at == nullptr ? nullptr : at + end.size();
}

const char* BehindDoctype(const char* at) {
  int brackets = 0;
  for (; *at != '\0'; ++at) {
    if (*at == '[') ++brackets;
    if (*at == ']' && brackets > 0) --brackets;
    if (*at == '>' && brackets == 0) return at + 1;
  }
  return nullptr;
}

// Behind "<!".
const char* BehindDeclaration(const char* at) {
  if (StartsWith(at, "--")) return BehindNext(at + 2, "-->");
  if (StartsWith(at, "[CDATA[")) return BehindNext(at + 7, "]]>");
  if (StartsWith(at, "DOCTYPE") && IsBlank(at[7])) {
    return BehindDoctype(at + 8);
  }
  return BehindNext(at, ">");
}

const char* BehindClosingTag(const char* at) {
  while (!IsNameEnd(*at)) ++at;
  at = SkipBlanks(at);
  return *at == '>' ? at + 1 : nullptr;
}

const char* BehindAttributes(const char* at) {
  while (!IsAttributeNameEnd(*at)) {
    while (!IsAttributeNameEnd(*at)) ++at;
    at = SkipBlanks(at);
    if (*at != '=') return nullptr;
    at = SkipBlanks(at + 1);
    if (*at != '\'' && *at != '"') return nullptr;
    at = std::strchr(at + 1, *at);
    if (at == nullptr) return nullptr;
    at = SkipBlanks(at + 1);
  }
  return at;
}

struct Tag {
  const char* end;
  bool opens;  // whether contents follow
};

Tag ReadElementTag(const char* at) {
  const char* name = at;
  while (!IsNameEnd(*at)) ++at;
  if (at == name) return {nullptr, false};
  at = BehindAttributes(SkipBlanks(at));
  if (at == nullptr) return {nullptr, false};
  if (*at == '>') return {at + 1, true};
  if (StartsWith(at, "/>")) return {at + 2, false};
  return {nullptr, false};
}

}  // namespace

bool NestsDeeperThan(const char* text, int limit) {
  int depth = 0;
  const char* at = text;
  while (at != nullptr && (at = std::strchr(at, '<')) != nullptr) {
    ++at;
    if (*at == '/') {
      at = BehindClosingTag(at + 1);
      --depth;
    } else if (*at == '?') {
      at = BehindNext(at + 1, "?>");
    } else if (*at == '!') {
      at = BehindDeclaration(at + 1);
    } else {
      const Tag tag = ReadElementTag(at);
      at = tag.end;
      // One without contents is a level of its own as well: the reader enters it.
      if (at != nullptr && depth + 1 > limit) return true;
      if (tag.opens) ++depth;
    }
    if (depth < 0) return false;  // a closing tag at the top: the reader fails
  }
  return false;
}
