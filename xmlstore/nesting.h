// A look at a document's nodes that needs neither memory nor recursion. It guards the XML reader,
// which recurses for every level of nesting and has no limit of its own, and tells where in the
// text the nodes of the reader's tree stand, which the tree does not know.
#pragma once

#include <string_view>

namespace xmlstore {

// An element, or a comment, which is a node of the tree as well.
struct XmlNode {
  const char* start = nullptr;  // its "<"
  std::string_view name;        // empty for a comment
  int depth = 0;                // 1 for the document element
};

// Goes through the zero-terminated text in document order, as far as the property tree's reader
// would get in it.
class NodeScanner {
 public:
  explicit NodeScanner(const char* text) : at_(text) {}

  // False when there is no further node, or the text is not well-formed from here on.
  bool Next(XmlNode& node);

 private:
  const char* at_;
  int depth_ = 0;
};

// The first element that nests deeper than `limit`; null when there is none.
const char* FindNestedDeeperThan(const char* text, int limit);

}  // namespace xmlstore
