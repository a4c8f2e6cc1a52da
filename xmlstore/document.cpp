#include "xmlstore/document.h"

#include <algorithm>
#include <boost/property_tree/xml_parser.hpp>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

#include "xmlstore/nesting.h"

namespace xmlstore {
namespace {

// Well below the 3,000 or so levels at which the reader overflows the smallest usual stack.
constexpr int kMaxNesting = 1000;

bool Fail(DocumentError* why, const std::string& message, std::size_t line) {
  if (why != nullptr) *why = {message, line};
  return false;
}

}  // namespace

bool ParseDocument(const char* text, boost::property_tree::ptree& tree, DocumentError* why) {
  if (std::strlen(text) > INT32_MAX) return Fail(why, "too long", 0);
  if (const char* const node = FindNestedDeeperThan(text, kMaxNesting)) {
    return Fail(why, "nested more than " + std::to_string(kMaxNesting) + " levels deep",
                static_cast<std::size_t>(std::count(text, node, '\n')) + 1);
  }
  try {
    std::istringstream stream{std::string(text)};
    read_xml(stream, tree, boost::property_tree::xml_parser::trim_whitespace);
    return true;
  } catch (const boost::property_tree::xml_parser_error& error) {
    return Fail(why, error.message(), error.line());
  }
}

}  // namespace xmlstore
