#include "uaclient/list_reading.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <map>
#include <utility>
#include <vector>

#include "corekit/text.h"
#include "uaclient/copies.h"
#include "uaclient/win32.h"
#include "uactask/operation_list.h"
#include "xmlstore/document.h"
#include "xmlstore/nesting.h"
#include "xmlstore/xml_parse.h"

namespace uaclient {
namespace {

using boost::property_tree::ptree;

constexpr char kAttributes[] = "<xmlattr>";

std::wstring ShownUtf8(const std::string& text) { return Shown(Utf8ToWide(text)); }

// The lines in which the elements and comments of the first "task" of the first "root" begin.
std::vector<std::size_t> ItemLines(const char* text) {
  std::vector<std::size_t> lines;
  const char* counted = text;
  std::size_t line = 1;
  bool inRoot = false;
  bool inTask = false;
  NodeScanner scanner(text);
  for (XmlNode node; scanner.Next(node) && (!inTask || node.depth >= 3);) {
    line += static_cast<std::size_t>(std::count(counted, node.start, '\n'));
    counted = node.start;
    if (node.depth == 1) inRoot = node.name == kRootElement;
    if (node.depth == 2) inTask = inRoot && node.name == kTaskElement;
    if (node.depth == 3 && inTask) lines.push_back(line);
  }
  return lines;
}

void CheckAttributes(const ptree& attributes, std::size_t line, FileFindings& found) {
  const auto& names = OperationFieldNames();
  const auto isThere = [&](const auto& field) { return attributes.count(field.second) != 0; };
  if (attributes.size() != names.size() || !std::all_of(names.begin(), names.end(), isThere)) {
    std::wstring present;
    for (const auto& attribute : attributes) present += L" " + ShownUtf8(attribute.first);
    found.Warn(line,
               L"The item has the attributes{}, but the helper reads \"key\", \"src\", \"dec\" and "
               L"\"type\". It takes {} for one that is missing.",
               {present, ShownUtf8(kMissingField)});
  }
  const std::string type = attributes.get(names.at(kTypeField), std::string(kFileType));
  if (type != kFolderType && type != kFileType) {
    found.Warn(line, L"The type {} means a file. Write \"dir\" or \"file\", in lower case.",
               {ShownUtf8(type)});
  }
}

// The lines of the items that count, by key.
using Items = std::map<std::string, std::size_t>;

Items ReadElements(const ptree& list, const std::vector<std::size_t>& lines, FileFindings& found) {
  Items items;
  auto next = lines.begin();
  for (const auto& [name, element] : list) {
    if (name == kAttributes) continue;
    const std::size_t line = next == lines.end() ? 0 : *next++;
    const auto attributes = element.get_child_optional(kAttributes);
    if (!attributes || name.find('.') != std::string::npos) {
      found.Fail(line,
                 L"{} is a comment, has no attributes, or has a dot in its name, so the helper "
                 L"refuses the list. Rename or remove it.",
                 {ShownUtf8(name)});
      continue;
    }
    CheckAttributes(*attributes, line, found);
    const std::string key =
        attributes->get(OperationFieldNames().at(kKeyField), std::string(kMissingField));
    const auto [first, isNew] = items.try_emplace(key, line);
    if (isNew) continue;
    found.report.leavesOut = true;
    found.Warn(line, L"The key {} is in line {} already, so this item is left out. Change it.",
               {ShownUtf8(key), std::to_wstring(first->second)});
  }
  return items;
}

// Of keys that look like numbers a larger one should not come first.
void CheckOrder(const Items& items, FileFindings& found) {
  std::string before;
  for (const auto& [key, line] : items) {
    const bool areNumbers = (before + key).find_first_not_of("0123456789") == std::string::npos;
    if (areNumbers && !key.empty() && before.size() > key.size() && before[0] != '0') {
      return found.Warn(line, L"The key {} comes after {}, as text. Use keys of equal length.",
                        {ShownUtf8(key), ShownUtf8(before)});
    }
    before = key;
  }
}

// `operations` are in the order of the keys, as the items are.
void SurveyItems(const Items& items, const std::vector<Operation>& operations,
                 const Options& options, Work& work, FileFindings& found) {
  std::vector<Copy> copies;
  std::vector<std::size_t> lines;
  for (const auto& [key, line] : items) {
    const Operation& operation = operations[lines.size()];
    lines.push_back(line);
    Copy& copy = copies.emplace_back();
    if (operation.isFolder) copy.kind = CopyItem::Kind::kReplaceFolder;
    copy.source = Utf8ToWide(operation.source);
    copy.destination = Utf8ToWide(operation.destination);
  }
  Work surveyed = SurveyCopies(std::move(copies), Origin::kList, options);
  for (const Finding& finding : surveyed.result.report.findings) {
    found.Add(finding.severity, lines[finding.item], finding.text);
  }
  found.report.steps = std::move(surveyed.result.report.steps);
  work.copies = std::move(surveyed.copies);
  work.claims = std::move(surveyed.claims);
}

}  // namespace

void ReadList(const std::wstring& file, const Options& options, Work& work) {
  const char* const text = work.list.c_str();  // like the helper's, it ends at a NUL
  FileFindings found{file, work.result.report};
  XMLParse store;
  DocumentError why;
  if (!ParseDocument(text, store.GetTree(), &why)) {
    return found.Fail(
        why.line,
        L"The helper cannot read this: {}. Close all elements and quotes, and save it as UTF-8.",
        {Utf8ToWide(why.message)});
  }
  const ptree& document = store.GetTree();
  const auto list = document.get_child_optional(kOperationListPath);
  if (!list) {
    return found.Fail(0, L"There is no \"task\" in a \"root\". Write <root><task>…</task></root>.");
  }
  if (document.count(kRootElement) + document.get_child(kRootElement).count(kTaskElement) > 2) {
    found.report.leavesOut = true;
    found.Warn(0, L"Only the first \"task\" in the first \"root\" is read. Put all items there.");
  }
  const Items items = ReadElements(*list, ItemLines(text), found);
  const auto operations = ReadOperationList(store);
  if (!operations) return;  // because of what has been named
  if (items.empty()) found.Warn(0, L"The list is empty, so nothing is copied. Add an item.");
  CheckOrder(items, found);
  SurveyItems(items, *operations, options, work, found);
}

}  // namespace uaclient
