#include "xmlstore/keyed_records.h"

#include <utility>
#include <vector>

#include "xmlstore/document.h"
#include "xmlstore/status.h"

namespace {

using boost::property_tree::ptree;
using xmlstore::kAttributes;
using xmlstore::kStatusFailed;
using xmlstore::kStatusOk;
using Record = KeyedRecords::mapped_type;

const std::string& AttributeOr(const ptree& attributes, const std::string& name,
                               const std::string& defaultText) {
  const auto found = attributes.find(name);
  return found == attributes.not_found() ? defaultText : found->second.data();
}

// The attribute names by index. An index that the table lacks gets an empty name.
std::vector<std::string> FieldNames(const std::map<std::int32_t, std::string>& fields) {
  std::vector<std::string> names(fields.size());
  for (const auto& [index, name] : fields) {
    const auto place = static_cast<std::size_t>(index);
    if (index >= 0 && place < names.size()) names[place] = name;
  }
  return names;
}

Record ReadRecord(const ptree& attributes, const std::vector<std::string>& names,
                  const std::string& defaultText) {
  Record record;
  std::int32_t index = 0;
  for (const std::string& name : names) {
    record.emplace_hint(record.end(), index++, AttributeOr(attributes, name, defaultText));
  }
  return record;
}

std::int32_t ReadRecords(const ptree& collection, KeyedRecords& result,
                         const std::vector<std::string>& names, const std::string& defaultText) {
  const std::string keyName = names.empty() ? std::string() : names.front();
  for (const auto& [name, child] : collection) {
    if (name == kAttributes) continue;

    // A name with a "." counts as a path, which leads nowhere.
    const auto found = child.find(kAttributes);
    if (found == child.not_found() || name.find('.') != std::string::npos) return kStatusFailed;

    const ptree& attributes = found->second;
    const std::string& key = AttributeOr(attributes, keyName, defaultText);
    const auto position = result.lower_bound(key);
    if (position != result.end() && position->first == key) continue;
    result.emplace_hint(position, key, ReadRecord(attributes, names, defaultText));
  }
  return kStatusOk;
}

}  // namespace

std::int32_t ReadKeyedRecords(ptree& tree, std::string path, KeyedRecords& result,
                              std::map<std::int32_t, std::string> fields, std::string defaultText) {
  result.clear();
  try {
    return ReadRecords(tree.get_child(path), result, FieldNames(fields), defaultText);
  } catch (...) {
    return kStatusFailed;
  }
}
