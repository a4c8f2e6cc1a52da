// Parses text into a property tree, within the XML store's limits of size and depth.
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <cstddef>
#include <string>

namespace xmlstore {

// The child under which Boost's reader puts the attributes of an element.
constexpr char kAttributes[] = "<xmlattr>";

// Why a text is not accepted as a document.
struct DocumentError {
  std::string message;
  std::size_t line = 0;  // from 1; 0 when the message is about no line
};

// Replaces `tree` by the document in the zero-terminated text. Returns false, with `tree` unchanged
// and `why` filled, when the text is not well-formed, is 2 GiB or longer, or nests so deep that the
// reader could overflow the stack. `why` may be null.
bool ParseDocument(const char* text, boost::property_tree::ptree& tree, DocumentError* why);

}  // namespace xmlstore
