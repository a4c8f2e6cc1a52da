#include "xmlstore/nesting.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace xmlstore {
namespace {

// The scanner splits text exactly as the property tree's reader does, quirks included: an element's
// name may hold quotes, closing tags need not match, and an unknown declaration ends at the next
// ">". Any difference would let a document hide its depth. The scanner may be laxer only where the
// reader gives up, because such a document fails to load anyway.

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

// The functions below return the position after what they read, or null where the reader fails.

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

// Starts after "<!".
const char* BehindDeclaration(const char* at) {
  if (StartsWith(at, "--")) return BehindNext(at + 2, "-->");
  if (StartsWith(at, "[CDATA[")) return BehindNext(at + 7, "]]>");
  if (StartsWith(at, "DOCTYPE") && IsBlank(at[7])) {
    return BehindDoctype(at + 8);
  }
  return BehindNext(at, ">");
}

std::size_t NameSize(const char* at) {
  std::size_t size = 0;
  while (!IsNameEnd(at[size])) ++size;
  return size;
}

const char* BehindClosingTag(const char* at) {
  at = SkipBlanks(at + NameSize(at));
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
  std::size_t nameSize;
  bool opens;  // whether contents follow
};

Tag ReadElementTag(const char* at) {
  const std::size_t nameSize = NameSize(at);
  if (nameSize == 0) return {};
  at = BehindAttributes(SkipBlanks(at + nameSize));
  if (at == nullptr) return {};
  if (*at == '>') return {at + 1, nameSize, true};
  if (StartsWith(at, "/>")) return {at + 2, nameSize, false};
  return {};
}

}  // namespace

bool NodeScanner::Next(XmlNode& node) {
  bool isEnd = false;
  while (NextTag(node, isEnd)) {
    if (!isEnd) return true;
  }
  return false;
}

bool NodeScanner::NextTag(XmlNode& node, bool& isEnd) {
  isEnd = false;
  while (at_ != nullptr && (at_ = std::strchr(at_, '<')) != nullptr) {
    const char* const start = at_++;
    if (*at_ == '/') {
      node = {start, {at_ + 1, NameSize(at_ + 1)}, depth_};
      at_ = BehindClosingTag(at_ + 1);
      if (--depth_ < 0 || at_ == nullptr) break;  // nothing is open here: the reader fails
      return isEnd = true;
    } else if (*at_ == '?') {
      at_ = BehindNext(at_ + 1, "?>");
    } else if (*at_ == '!') {
      const bool isComment = StartsWith(at_, "!--");
      at_ = BehindDeclaration(at_ + 1);
      if (!isComment || at_ == nullptr) continue;
      node = {start, {}, depth_ + 1};
      return true;
    } else {
      const Tag tag = ReadElementTag(at_);
      if (tag.end == nullptr) break;
      node = {start, {at_, tag.nameSize}, depth_ + 1};
      at_ = tag.end;
      if (tag.opens) ++depth_;
      return true;
    }
  }
  at_ = nullptr;
  return false;
}

const char* FindNestedDeeperThan(const char* text, int limit) {
  NodeScanner scanner(text);
  for (XmlNode node; scanner.Next(node);) {
    // An empty element counts as a level too, because the reader enters it. A comment does not.
    if (node.depth > limit && !node.name.empty()) return node.start;
  }
  return nullptr;
}

std::size_t LineOfMismatch(const char* text) {
  std::vector<std::string_view> open;  // the names of the elements that are open
  NodeScanner scanner(text);
  bool isEnd = false;
  for (XmlNode node; scanner.NextTag(node, isEnd);) {
    const auto depth = static_cast<std::size_t>(node.depth);
    if (isEnd && open[depth - 1] != node.name) {
      return static_cast<std::size_t>(std::count(text, node.start, '\n')) + 1;
    }
    open.resize(depth);
    if (!isEnd) open.back() = node.name;
  }
  return 0;
}

}  // namespace xmlstore
