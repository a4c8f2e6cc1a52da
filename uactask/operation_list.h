// The operation list's format: an XML file that names what the file-operation task copies.
//
//   <root><task><item key="1" src="C:/a/" dec="D:/b/" type="dir"/> … </task></root>
//
// The items may have any name without a "."; all texts are UTF-8. docs/formats.md has the details.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

class IXMLParse;

namespace uactask {

// The path of the items' parent, the attribute names by field index, and what a missing attribute
// reads as.
constexpr char kRootElement[] = "root";
constexpr char kTaskElement[] = "task";
constexpr char kOperationListPath[] = "root.task";
enum OperationField : std::int32_t { kKeyField, kSourceField, kDestinationField, kTypeField };
const std::map<std::int32_t, std::string>& OperationFieldNames();
constexpr char kMissingField[] = "error of read";

// The type of a folder item. Any other text means a file; FormatOperationList writes this one.
constexpr char kFolderType[] = "dir";
constexpr char kFileType[] = "file";

struct Operation {
  std::string source;
  std::string destination;
  bool isFolder = false;
};

// The items of a loaded document in the byte-wise order of their keys. Of items with equal keys
// only the first in the document counts. None when the document holds no list, or when an item has
// no attributes or a "." in its name.
std::optional<std::vector<Operation>> ReadOperationList(IXMLParse& document);

// The text of a whole list, whose keys keep the operations in this order. The operations' texts are
// not checked: control characters are written as they are, and a NUL ends the document when it is
// read.
std::string FormatOperationList(const std::vector<Operation>& operations);

}  // namespace uactask
