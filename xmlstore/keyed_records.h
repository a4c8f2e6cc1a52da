// Reads a list of XML elements, each with a key and further fields as attributes, into a map.
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <cstdint>
#include <map>
#include <string>

// A record's fields by their index, under the record's key: the text of field 0.
using KeyedRecords = std::map<std::string, std::map<std::int32_t, std::string>>;

// Reads the children of the element at `path` (dotted, first match at each level) into `result`,
// which is emptied first. `fields` gives each field's attribute name, indexes counting from 0; an
// attribute that a record lacks reads as `defaultText`. Of several records with the same key the
// first in document order stays.
//
// Returns 0, or 0x80004005 when the element is missing or one of its children has no attributes
// (comments, too, are children) or a "." in its name, which makes its name a path. The records
// before that child stay in `result`. The tree is not changed.
std::int32_t ReadKeyedRecords(boost::property_tree::ptree& tree, std::string path,
                              KeyedRecords& result, std::map<std::int32_t, std::string> fields,
                              std::string defaultText);
