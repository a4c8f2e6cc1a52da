#include "uaclient/list_reading.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <map>
#include <utility>
#include <vector>

#include "corekit/text.h"
#include "uaclient/copies.h"
#include "uaclient/findings.h"
#include "uaclient/win32.h"
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
  for (const ptree::value_type& attribute : attributes) {
    const auto isIt = [&](const auto& name) { return name.second == attribute.first; };
    if (std::none_of(names.begin(), names.end(), isIt)) {
      found.Warn(line, L"{} is not read. An item has \"key\", \"src\", \"dec\" and \"type\".",
                 {ShownUtf8(attribute.first)});
    }
  }
  for (const auto& [field, name] : names) {
    if (attributes.count(name) == 0) {
      found.Warn(line, L"The item has no {}, so the helper takes {} for it. Write it.",
                 {ShownUtf8(name), ShownUtf8(kMissingField)});
    }
  }
  const std::string type = attributes.get(names.at(kTypeField), std::string(kFileType));
  if (type != kFolderType && type != kFileType) {
    found.Warn(line, L"The type {} means a file. Write \"dir\" or \"file\", in lower case.",
               {ShownUtf8(type)});
  }
}

// What makes the helper refuse the whole list, and what to do about it; null when nothing does.
const wchar_t* Refusal(const std::string& name, const ptree& element) {
  return name == kComment                      ? L"a comment in \"task\". Move it out."
         : name.find('.') != std::string::npos ? L"a dot in an element's name. Write \"item\"."
         : element.count(kAttributes) == 0     ? L"an element without attributes. Remove it."
                                               : nullptr;
}

// The lines of the items that count, by key.
using Items = std::map<std::string, std::size_t>;

Items ReadElements(const ptree& list, const std::vector<std::size_t>& lines, FileFindings& found) {
  Items items;
  auto next = lines.begin();
  for (const auto& [name, element] : list) {
    if (name == kAttributes) continue;
    const std::size_t line = next == lines.end() ? 0 : *next++;
    if (const wchar_t* const refused = Refusal(name, element)) {
      found.Fail(line, L"The helper refuses a list with {}", {refused});
      continue;
    }
    const ptree& attributes = element.get_child(kAttributes);
    CheckAttributes(attributes, line, found);
    const std::string key =
        attributes.get(OperationFieldNames().at(kKeyField), std::string(kMissingField));
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
Work SurveyItems(const Items& items, const std::vector<Operation>& operations, FileFindings& found,
                 const Options& options) {
  std::vector<Copy> copies;
  std::vector<std::size_t> lines;
  // Both end at a NUL, like what the helper makes of them.
  const auto pathIn = [](const std::string& text) {
    return Utf8ToWide(text.substr(0, text.find('\0')));
  };
  for (const auto& [key, line] : items) {
    const auto& [source, destination, isFolder] = operations[lines.size()];
    lines.push_back(line);
    copies.push_back({isFolder ? CopyItem::Kind::kReplaceFolder : CopyItem::Kind::kFile,
                      pathIn(source),
                      pathIn(destination),
                      false,
                      {},
                      {}});
  }
  Work work = SurveyCopies(std::move(copies), Origin::kList, options);
  for (const Finding& finding : work.result.report.findings) {
    found.Add(finding.severity, lines[finding.item], finding.text);
  }
  return work;
}

}  // namespace

void ReadList(const std::wstring& file, const Options& options, Work& work) {
  const std::string& text = work.list;
  FileFindings found{file, work.result.report};
  if (text.find('\0') != std::string::npos) {
    found.Warn(1, L"The list is in UTF-16 or holds NUL bytes, where it ends. Save it as UTF-8.");
  }
  XMLParse store;
  DocumentError why;
  if (!ParseDocument(text.c_str(), store.GetTree(), &why)) {
    return found.Fail(why.line, L"The helper cannot read this: {}. Close all elements and quotes.",
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
  const Items items = ReadElements(*list, ItemLines(text.c_str()), found);
  const auto operations = ReadOperationList(store);
  if (!operations) return;  // because of what has been named
  if (items.empty()) found.Warn(0, L"The list is empty, so nothing is copied. Add an item.");
  CheckOrder(items, found);
  Work surveyed = SurveyItems(items, *operations, found, options);
  found.report.steps = std::move(surveyed.result.report.steps);
  work.copies = std::move(surveyed.copies);
  work.claims = std::move(surveyed.claims);
}

}  // namespace uaclient
