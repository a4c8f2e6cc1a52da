#include "uaclient/check_list.h"

#include <windows.h>

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "corekit/text.h"
#include "uaclient/path.h"
#include "uactask/operation_list.h"
#include "xmlstore/document.h"
#include "xmlstore/nesting.h"
#include "xmlstore/xml_parse.h"

namespace uaclient {
namespace {

using boost::property_tree::ptree;

constexpr char kAttributes[] = "<xmlattr>";
constexpr char kComment[] = "<xmlcomment>";

std::wstring ShownUtf8(const std::string& text) { return Shown(Utf8ToWide(text)); }

// The lines in which the elements and comments of the first "task" of the first "root" begin.
std::vector<std::size_t> ItemLines(const char* text) {
  std::vector<std::size_t> lines;
  const char* counted = text;
  std::size_t line = 1;
  int roots = 0;
  int tasks = 0;
  bool inRoot = false;
  bool inTask = false;
  xmlstore::NodeScanner scanner(text);
  for (xmlstore::XmlNode node; scanner.Next(node);) {
    line += static_cast<std::size_t>(std::count(counted, node.start, '\n'));
    counted = node.start;
    if (node.depth == 1) inRoot = node.name == uactask::kRootElement && ++roots == 1;
    if (node.depth == 2) inTask = inRoot && node.name == uactask::kTaskElement && ++tasks == 1;
    if (node.depth == 3 && inTask) lines.push_back(line);
  }
  return lines;
}

std::optional<std::uint64_t> NumberIn(const std::string& key) {
  std::uint64_t number = 0;
  const char* const end = key.data() + key.size();
  const auto [at, error] = std::from_chars(key.data(), end, number);
  if (at != end || error != std::errc()) return std::nullopt;
  return number;
}

bool IsFieldName(const std::string& name) {
  const auto& fields = uactask::OperationFieldNames();
  return std::any_of(fields.begin(), fields.end(),
                     [&](const auto& field) { return field.second == name; });
}

class ListCheck {
 public:
  ListCheck(const std::wstring& path, TaskReading& reading)
      : reading_(reading), found_(path, reading.report) {}

  void Check(const Options& options) {
    XMLParse store;
    if (!Load(store)) return;
    const auto operations = uactask::ReadOperationList(store);
    CheckElements(store.GetTree());
    if (!operations) return;  // something in the elements, which has been named
    CheckOrder();
    SurveyItems(*operations, options);
  }

 private:
  struct Item {
    std::size_t line = 0;
    bool isNamed = false;  // what is wrong with its paths
  };

  bool Load(XMLParse& store) {
    const std::string& text = reading_.list;
    const bool isLoaded = store.LoadString(text.c_str(), static_cast<std::int32_t>(text.size()));
    if (text.find('\0') != std::string::npos) {
      const auto add = isLoaded ? &FileFindings::Warn : &FileFindings::Fail;
      (found_.*add)(1, L"The list is in UTF-16 or holds NUL bytes, and the helper reads up to the "
                       L"first of them. Save it as UTF-8.");
    } else if (!isLoaded) {
      xmlstore::DocumentError why;
      ptree ignored;
      xmlstore::ParseDocument(text.c_str(), ignored, &why);
      found_.Fail(why.line, L"The helper cannot read the list's XML: " + Utf8ToWide(why.message) +
                                L". Look for an element or a quote that is not closed in this "
                                L"line or above it.");
    }
    return isLoaded;
  }

  void CheckElements(const ptree& document) {
    const auto list = document.get_child_optional(uactask::kOperationListPath);
    if (!list) {
      return found_.Fail(0, L"There is no element \"task\" in an element \"root\". Names are "
                            L"case-sensitive: write <root><task>…</task></root>.");
    }
    if (document.count(uactask::kRootElement) > 1 ||
        document.get_child(uactask::kRootElement).count(uactask::kTaskElement) > 1) {
      reading_.report.leavesOut = true;
      found_.Warn(0, L"The helper reads the first \"task\" in the first \"root\" only. Put all "
                     L"items into it.");
    }
    const std::vector<std::size_t> lines = ItemLines(reading_.list.c_str());
    auto line = lines.begin();
    for (const auto& [name, element] : *list) {
      if (name != kAttributes) CheckElement(name, element, line == lines.end() ? 0 : *line++);
    }
    if (lines.empty()) found_.Warn(0, L"The list is empty, so nothing is copied. Add an item.");
  }

  void CheckElement(const std::string& name, const ptree& element, std::size_t line) {
    constexpr wchar_t kRefusal[] = L", which makes the helper refuse the whole list. ";
    const auto attributes = element.find(kAttributes);
    if (name == kComment) {
      found_.Fail(line, std::wstring(L"There is a comment in \"task\"") + kRefusal +
                            L"Move it out of \"task\".");
    } else if (name.find('.') != std::string::npos) {
      found_.Fail(line, L"The name of the element " + ShownUtf8(name) + L" holds a dot" + kRefusal +
                            L"Write \"item\".");
    } else if (attributes == element.not_found()) {
      found_.Fail(line, L"The element " + ShownUtf8(name) + L" has no attributes" + kRefusal +
                            L"Give it \"key\", \"src\", \"dec\" and \"type\", or remove it.");
    } else {
      CheckAttributes(attributes->second, line);
    }
  }

  void CheckAttributes(const ptree& attributes, std::size_t line) {
    for (const auto& [name, value] : attributes) {
      if (IsFieldName(name)) continue;
      found_.Warn(line, L"The attribute " + ShownUtf8(name) + L" is unknown, so the helper does " +
                            L"not read it. An item has \"key\", \"src\", \"dec\" and \"type\".");
    }
    Item item{line};
    std::string key = uactask::kMissingField;
    for (const auto& [field, name] : uactask::OperationFieldNames()) {
      const auto attribute = attributes.find(name);
      if (attribute == attributes.not_found()) {
        NameMissing(field, name, item);
      } else if (field == uactask::kKeyField) {
        key = attribute->second.data();
      } else if (field == uactask::kTypeField) {
        CheckType(attribute->second.data(), line);
      }
    }
    const auto [first, isNew] = items_.try_emplace(std::move(key), item);
    if (isNew) return;
    reading_.report.leavesOut = true;
    found_.Warn(line, L"The key " + ShownUtf8(first->first) + L" is in line " +
                          std::to_wstring(first->second.line) +
                          L" already, so this item is left out. Give it a key of its own.");
  }

  void NameMissing(std::int32_t field, const std::string& name, Item& item) {
    const std::wstring missing = L"The item has no " + ShownUtf8(name);
    if (field == uactask::kKeyField) {
      found_.Warn(item.line, missing + L". Of all such items only the first is copied. Give each "
                                       L"item a key of its own.");
    } else if (field == uactask::kTypeField) {
      found_.Warn(item.line, missing + L", so it counts as a file. Write type=\"dir\" or "
                                       L"type=\"file\".");
    } else {
      item.isNamed = true;
      found_.Harm(item.line, missing + L", so the helper takes " +
                                 ShownUtf8(uactask::kMissingField) +
                                 L" in whatever folder it is started in. Write the whole path.");
    }
  }

  void CheckType(const std::string& type, std::size_t line) {
    if (type == uactask::kFolderType || type == uactask::kFileType) return;
    found_.Warn(line, L"The type " + ShownUtf8(type) + L" is neither \"dir\" nor \"file\", so the " +
                          L"item counts as a file. Write one of these, in lower case.");
  }

  // Keys that look like numbers should not surprise.
  void CheckOrder() {
    std::optional<std::uint64_t> before;
    for (const auto& [key, item] : items_) {
      const auto number = NumberIn(key);
      if (before && number && *before > *number) {
        return found_.Warn(item.line, L"The key " + ShownUtf8(key) + L" comes after \"" +
                                          std::to_wstring(*before) +
                                          L"\", because keys are compared character by character. "
                                          L"Write all of them with the same number of digits.");
      }
      before = number;
    }
  }

  // `operations` are in the order of the keys; the helper copies folders first.
  void SurveyItems(const std::vector<uactask::Operation>& operations, const Options& options) {
    std::vector<CopyItem> copies;
    std::vector<const Item*> items;
    for (const bool isFolder : {true, false}) {
      auto item = items_.begin();
      for (const uactask::Operation& operation : operations) {
        Item& listed = (item++)->second;
        if (operation.isFolder != isFolder) continue;
        copies.push_back({isFolder ? CopyItem::Kind::kReplaceFolder : CopyItem::Kind::kFile,
                          PathIn("src", operation.source, listed),
                          PathIn("dec", operation.destination, listed)});
        items.push_back(&listed);
      }
    }
    reading_.survey = SurveyCopies(std::move(copies), Origin::kList, options);
    for (const Finding& finding : reading_.survey.findings) {
      const Item item = finding.item < items.size() ? *items[finding.item] : Item{};
      if (item.isNamed) continue;
      found_.Add(finding.severity, item.line, finding.text);
    }
    reading_.report.steps = reading_.survey.steps;
  }

  std::filesystem::path PathIn(const char* name, const std::string& text, Item& item) {
    std::wstring path = Utf8ToWide(text.c_str());  // up to a NUL, like the helper
    if (path.empty() && !text.empty()) {
      item.isNamed = true;
      found_.Warn(item.line, ShownUtf8(name) + L" is not UTF-8, which the helper expects whatever " +
                                 L"the list's first line says. Save the list as UTF-8.");
    }
    return path;
  }

  TaskReading& reading_;
  FileFindings found_;
  std::map<std::string, Item> items_;  // by key, those that count
};

}  // namespace

void ReadList(const std::wstring& list, std::size_t line, FileFindings& inTaskFile,
              const Options& options, TaskReading& reading) {
  if (list.empty()) {
    return inTaskFile.Fail(line, L"\"xml_path\" is missing or empty. Write the list's path.");
  }
  const std::wstring drive = DriveFault(FullPath(list));
  if (!IsAbsolute(list)) {
    inTaskFile.Harm(line, L"\"xml_path\" is " + Shown(list) +
                              L", which is relative, and the helper may be started in another "
                              L"folder. Write the whole path.");
  } else if (!drive.empty()) {
    inTaskFile.Harm(line, L"\"xml_path\" is " + Shown(list) + L". " + drive);
  }
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  Handle file;
  const std::wstring fault = ReadWhole(list, GENERIC_READ, kShareAll, file, reading.list);
  if (!fault.empty()) {
    return inTaskFile.Fail(line, L"The list that \"xml_path\" names, " + Shown(list) + L"," + fault);
  }
  ListCheck(list, reading).Check(options);
}

}  // namespace uaclient
