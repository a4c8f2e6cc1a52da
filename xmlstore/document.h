// Reads text into a property tree, with the limits that the XML store sets.
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <cstddef>
#include <string>

namespace xmlstore {

// Why text is no document.
struct DocumentError {
  std::string message;   // of the reader
  std::size_t line = 0;  // from 1; 0 where no line is meant
};

// Replaces `tree` when the whole zero-terminated text is well-formed, shorter than 2 GiB, and not
// nested so deep that the reader could overflow the stack. Otherwise returns false, leaves the tree
// as it was and fills `why`, which may be null.
bool ParseDocument(const char* text, boost::property_tree::ptree& tree, DocumentError* why);

}  // namespace xmlstore
