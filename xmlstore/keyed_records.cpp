#include "xmlstore/keyed_records.h"

#include <utility>

#include "xmlstore/status.h"

namespace {

using boost::property_tree::ptree;
using Fields = std::map<std::int32_t, std::string>;

constexpr char kAttributes[] = "<xmlattr>";

std::string AttributeOr(const ptree& attributes, const std::string& name,
                        const std::string& defaultText) {
  const auto found = attributes.find(name);
  return found == attributes.not_found() ? defaultText : found->second.data();
}

// An index that the table lacks stands for the attribute without a name.
std::string FieldName(const Fields& fields, std::int32_t index) {
  const auto found = fields.find(index);
  return found == fields.end() ? std::string() : found->second;
}

Fields ReadRecord(const ptree& attributes, const Fields& fields, const std::string& defaultText) {
  Fields record;
  const auto count = static_cast<std::int32_t>(fields.size());
  for (std::int32_t index = 0; index < count; ++index) {
    record.emplace_hint(record.end(), index,
                        AttributeOr(attributes, FieldName(fields, index), defaultText));
  }
  return record;
}

void ReadRecords(const ptree& collection, KeyedRecords& result, const Fields& fields,
                 const std::string& defaultText) {
  const std::string keyName = FieldName(fields, 0);
  for (const auto& [name, child] : collection) {
    if (name == kAttributes) continue;

    // Looked up by path from a tree that holds this child alone.
    if (name.find('.') != std::string::npos) {
      throw boost::property_tree::ptree_bad_path("no such node", ptree::path_type(name));
    }
    const ptree& attributes = child.get_child(kAttributes);

    std::string key = AttributeOr(attributes, keyName, defaultText);
    const auto position = result.lower_bound(key);
    if (position != result.end() && position->first == key) continue;
    result.emplace_hint(position, std::move(key), ReadRecord(attributes, fields, defaultText));
  }
}

}  // namespace

std::int32_t ReadKeyedRecords(ptree& tree, std::string path, KeyedRecords& result,
                              std::map<std::int32_t, std::string> fields, std::string defaultText) {
  result.clear();
  try {
    ReadRecords(tree.get_child(path), result, fields, defaultText);
    return kStatusOk;
  } catch (...) {
    return kStatusFailed;
  }
}
