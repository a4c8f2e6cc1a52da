#include "uaclient/check_list.h"

#include <windows.h>

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "corekit/text.h"
#include "uaclient/path.h"
#include "uaclient/whole_file.h"
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

bool IsNumber(const std::string& key) {
  return !key.empty() && key.find_first_not_of("0123456789") == std::string::npos;
}

class ListCheck {
 public:
  ListCheck(const std::wstring& path, TaskReading& reading)
      : reading_(reading), found_{path, reading.report} {}

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
      found_.Add(isLoaded ? Severity::kWarning : Severity::kError, 1,
                 L"The list is in UTF-16 or holds NUL bytes, where it ends. Save it as UTF-8.");
    } else if (!isLoaded) {
      xmlstore::DocumentError why;
      ptree ignored;
      xmlstore::ParseDocument(text.c_str(), ignored, &why);
      found_.Fail(why.line,
                  L"The helper cannot read the list's XML: {}. Look for an element or a quote that "
                  L"is not closed in this line or above it.",
                  {Utf8ToWide(why.message)});
    }
    return isLoaded;
  }

  void CheckElements(const ptree& document) {
    const auto list = document.get_child_optional(uactask::kOperationListPath);
    if (!list) {
      return found_.Fail(0,
                         L"There is no element \"task\" in an element \"root\". Write "
                         L"<root><task>…</task></root>, in lower case.");
    }
    if (document.count(uactask::kRootElement) > 1 ||
        document.get_child(uactask::kRootElement).count(uactask::kTaskElement) > 1) {
      reading_.report.leavesOut = true;
      found_.Warn(0,
                  L"Only the first \"task\" in the first \"root\" is read. Put all items there.");
    }
    const std::vector<std::size_t> lines = ItemLines(reading_.list.c_str());
    auto line = lines.begin();
    for (const auto& [name, element] : *list) {
      if (name != kAttributes) CheckElement(name, element, line == lines.end() ? 0 : *line++);
    }
    if (lines.empty()) found_.Warn(0, L"The list is empty, so nothing is copied. Add an item.");
  }

  // The first three make the helper refuse the whole list.
  void CheckElement(const std::string& name, const ptree& element, std::size_t line) {
    const auto attributes = element.find(kAttributes);
    if (name == kComment) {
      found_.Fail(line, L"The helper refuses lists with a comment in \"task\". Move it out.");
    } else if (name.find('.') != std::string::npos) {
      found_.Fail(line,
                  L"The helper refuses lists with a dot in an element's name. Write \"item\".");
    } else if (attributes == element.not_found()) {
      found_.Fail(line, L"The helper refuses lists with an element without attributes. Remove it.");
    } else {
      CheckItem(attributes->second, line);
    }
  }

  void CheckItem(const ptree& attributes, std::size_t line) {
    Item item{line};
    const auto& fields = uactask::OperationFieldNames();
    std::map<std::int32_t, std::string> values;  // the first of each
    for (const ptree::value_type& attribute : attributes) {
      const auto known = std::find_if(fields.begin(), fields.end(), [&](const auto& field) {
        return field.second == attribute.first;
      });
      if (known != fields.end()) {
        values.try_emplace(known->first, attribute.second.data());
      } else {
        found_.Warn(line, L"{} is not read. An item has \"key\", \"src\", \"dec\" and \"type\".",
                    {ShownUtf8(attribute.first)});
      }
    }
    for (const auto& [field, name] : fields) {
      if (!values.try_emplace(field, uactask::kMissingField).second) continue;
      const bool isPath = field == uactask::kSourceField || field == uactask::kDestinationField;
      item.isNamed |= isPath;
      found_.Add(isPath ? Severity::kHarmful : Severity::kWarning, line,
                 Filled(L"The item has no {}, so the helper takes {} for it. Write it.",
                        {ShownUtf8(name), ShownUtf8(uactask::kMissingField)}));
    }
    const std::string& type = values[uactask::kTypeField];
    if (type != uactask::kFolderType && type != uactask::kFileType &&
        type != uactask::kMissingField) {
      found_.Warn(line, L"The type {} means a file. Write \"dir\" or \"file\", in lower case.",
                  {ShownUtf8(type)});
    }
    const std::string& key = values[uactask::kKeyField];
    const auto [first, isNew] = items_.try_emplace(key, item);
    if (isNew) return;
    reading_.report.leavesOut = true;
    found_.Warn(line,
                L"The key {} is in line {} already, so this item is left out. Give it another.",
                {ShownUtf8(key), std::to_wstring(first->second.line)});
  }

  // Of keys that look like numbers a larger one should not come first.
  void CheckOrder() {
    std::string before;
    for (const auto& [key, item] : items_) {
      if (IsNumber(key) && IsNumber(before) && before[0] != '0' && before.size() > key.size()) {
        return found_.Warn(item.line,
                           L"The key {} comes after {}, because keys are compared character by "
                           L"character. Write them with equally many digits.",
                           {ShownUtf8(key), ShownUtf8(before)});
      }
      before = key;
    }
  }

  // `operations` are in the order of the keys, as the items are.
  void SurveyItems(const std::vector<uactask::Operation>& operations, const Options& options) {
    std::vector<Copy> copies;
    std::vector<const Item*> items;
    auto item = items_.begin();
    for (const uactask::Operation& operation : operations) {
      Item& listed = (item++)->second;
      items.push_back(&listed);
      copies.push_back({operation.isFolder ? CopyItem::Kind::kReplaceFolder : CopyItem::Kind::kFile,
                        PathIn(L"src", operation.source, listed),
                        PathIn(L"dec", operation.destination, listed)});
    }
    reading_.survey = SurveyCopies(std::move(copies), Origin::kList, options);
    for (Finding& finding : reading_.survey.findings) {
      const Item& meant = *items[finding.item];
      if (!meant.isNamed) found_.Add(finding.severity, meant.line, std::move(finding.text));
    }
    reading_.report.steps = std::move(reading_.survey.steps);
  }

  std::wstring PathIn(const wchar_t* name, const std::string& text, Item& item) {
    std::wstring path = Utf8ToWide(text.substr(0, text.find('\0')));  // like the helper
    if (path.empty() && !text.empty()) {
      item.isNamed = true;
      found_.Warn(item.line,
                  L"\"{}\" is not UTF-8, whatever the list's first line says. Save it as that.",
                  {name});
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
  const std::wstring fault =
      IsAbsolute(list) ? DriveFault(FullPath(list))
                       : L"The helper may be started in another folder. Write the whole path.";
  if (!fault.empty()) inTaskFile.Harm(line, L"\"xml_path\" is {}. {}", {Shown(list), fault});
  WholeFile file = ReadWhole(list, GENERIC_READ, kShareAll);
  if (!file.fault.empty()) {
    return inTaskFile.Fail(line, L"The list in \"xml_path\", {},{}", {Shown(list), file.fault});
  }
  reading.list = std::move(file.bytes);
  ListCheck(list, reading).Check(options);
}

}  // namespace uaclient
