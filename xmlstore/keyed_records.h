// Reads a list of XML elements into a map. Each element holds a key and further fields as
// attributes.
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <cstdint>
#include <map>
#include <string>

// Each record's fields by index, under the record's key, which is the text of field 0.
using KeyedRecords = std::map<std::string, std::map<std::int32_t, std::string>>;

// Reads the children of the element at `path` (dotted, first match at each level) into `result`,
// which is emptied first. `fields` maps each field's index, counted from 0, to the name of its
// attribute. An attribute that a record lacks reads as `defaultText`. Of several records with the
// same key the first in document order counts.
//
// Returns 0, or 0x80004005 when the element is missing, or when one of its children has no
// attributes (a comment, for instance) or a "." in its name. `result` then holds the records before
// that child. The tree is not changed.
std::int32_t ReadKeyedRecords(boost::property_tree::ptree& tree, std::string path,
                              KeyedRecords& result, std::map<std::int32_t, std::string> fields,
                              std::string defaultText);
