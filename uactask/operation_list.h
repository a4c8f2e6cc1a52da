// The operation list's format: an XML file that names what the file-operation task copies.
//
//   <root><task><item key="1" src="C:/a/" dec="D:/b/" type="dir"/> … </task></root>
//
// The items may have any name without a "."; all texts are UTF-8.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

class IXMLParse;

namespace uactask {

// Where the items stand, their attributes by field index, and what a missing one reads as.
constexpr char kRootElement[] = "root";
constexpr char kTaskElement[] = "task";
constexpr char kOperationListPath[] = "root.task";
enum OperationField : std::int32_t { kKeyField, kSourceField, kDestinationField, kTypeField };
const std::map<std::int32_t, std::string>& OperationFieldNames();
constexpr char kMissingField[] = "error of read";

// The type of a folder. Any other text means a file, this one by name.
constexpr char kFolderType[] = "dir";
constexpr char kFileType[] = "file";

struct Operation {
  std::string source;
  std::string destination;
  bool isFolder = false;
};

// The items of a loaded document in the byte-wise order of their keys, of equal keys the first in
// the document. None when it holds no such list, or one of its items has no attributes or a "." in
// its name.
std::optional<std::vector<Operation>> ReadOperationList(IXMLParse& document);

// A whole list, with keys that keep the operations in this order. The texts are not checked:
// control characters are written as they are, and at a NUL the reader's document ends.
std::string FormatOperationList(const std::vector<Operation>& operations);

}  // namespace uactask
