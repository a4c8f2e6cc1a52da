#include "uactask/operation_list.h"

#include <boost/property_tree/xml_parser.hpp>
#include <sstream>

#include "uactask/task_file.h"
#include "xmlstore/document.h"
#include "xmlstore/keyed_records.h"
#include "xmlstore/xml_parse.h"

namespace uactask {

using boost::property_tree::ptree;

const std::map<std::int32_t, std::string>& OperationFieldNames() {
  static const std::map<std::int32_t, std::string> kNames = {
      {kKeyField, "key"}, {kSourceField, "src"}, {kDestinationField, "dec"}, {kTypeField, "type"}};
  return kNames;
}

std::optional<std::vector<Operation>> ReadOperationList(IXMLParse& document) {
  KeyedRecords items;
  if (ReadKeyedRecords(document.GetTree(), kOperationListPath, items, OperationFieldNames(),
                       kMissingField) != 0) {
    return std::nullopt;
  }
  std::vector<Operation> operations;
  for (const auto& [key, item] : items) {
    operations.push_back({RequireEntry(item, kSourceField), RequireEntry(item, kDestinationField),
                          RequireEntry(item, kTypeField) == kFolderType});
  }
  return operations;
}

std::string FormatOperationList(const std::vector<Operation>& operations) {
  ptree document;
  ptree& list = document.put_child(kOperationListPath, ptree());
  const std::size_t digits = std::to_string(operations.size()).size();
  std::size_t number = 0;
  for (const Operation& operation : operations) {
    // Padded, because keys are ordered byte by byte and "10" comes before "9".
    std::string key = std::to_string(++number);
    key.insert(0, digits - key.size(), '0');
    ptree& attributes =
        list.push_back({"item", ptree()})->second.put_child(xmlstore::kAttributes, ptree());
    attributes.put(OperationFieldNames().at(kKeyField), key);
    attributes.put(OperationFieldNames().at(kSourceField), operation.source);
    attributes.put(OperationFieldNames().at(kDestinationField), operation.destination);
    attributes.put(OperationFieldNames().at(kTypeField),
                   operation.isFolder ? kFolderType : kFileType);
  }
  std::ostringstream stream;
  write_xml(stream, document,
            boost::property_tree::xml_writer_make_settings<std::string>('\t', 1, "utf-8"));
  return stream.str();
}

}  // namespace uactask
