// Walks through the nodes of a document's text without allocating and without recursion. That
// guards the XML reader, which recurses for every level of nesting and has no limit of its own. It
// also tells where in the text a node of the reader's tree stands, which the tree does not know.
#pragma once

#include <cstddef>
#include <string_view>

namespace xmlstore {

// An element or a comment. Both are nodes of the reader's tree.
struct XmlNode {
  const char* start = nullptr;  // its "<"
  std::string_view name;        // empty for a comment
  int depth = 0;                // 1 for the document element
};

// Visits the nodes of the zero-terminated text in document order, as far as the property tree's
// reader would get.
class NodeScanner {
 public:
  explicit NodeScanner(const char* text) : at_(text) {}

  // Fills `node` with the next node. False when there is none, or when the text is not well-formed
  // from here on.
  bool Next(XmlNode& node);

  // The same, but stops at closing tags, too. Their depth is that of the element that they close.
  bool NextTag(XmlNode& node, bool& isEnd);

 private:
  const char* at_;
  int depth_ = 0;
};

// The "<" of the first element that is nested deeper than `limit`; null when there is none.
const char* FindNestedDeeperThan(const char* text, int limit);

// The line, from 1, of the first closing tag that does not have its element's name, which the
// reader lets pass; 0 when there is none.
std::size_t LineOfMismatch(const char* text);

}  // namespace xmlstore
