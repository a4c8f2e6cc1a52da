#include "uaclient/check_list.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <boost/property_tree/ptree.hpp>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

#include "corekit/text.h"
#include "fileop/file_system.h"
#include "fileop/jfile.h"
#include "uaclient/check_copies.h"
#include "uaclient/check_path.h"
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

// The bytes that the XML store reads, found by the same name.
std::optional<std::string> ReadBytes(const std::string& path) {
  JFile file;
  if (!file.Open(path, JFile::OpenRead | JFile::OpenBinary)) return std::nullopt;
  const std::int32_t size = file.GetSize();
  std::string bytes(static_cast<std::size_t>(std::max(size, 0)), '\0');
  const bool isRead = size >= 0 && file.Read(bytes.data(), size) == size;
  file.Close();
  if (!isRead) return std::nullopt;
  return bytes;
}

// Why that fails for a path, and what to do.
std::wstring ReadFault(const std::wstring& path) {
  constexpr LONGLONG kTooLarge = LONGLONG{1} << 31;
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES)
    return L" does not exist; write the list's whole path.";
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return L" is a folder; write the path of the list in it.";
  }
  const Handle file = OpenForReading(path);
  if (!file) {
    return L" cannot be opened: " + SystemMessage(GetLastError()) +
           L" What is done by it cannot be told; let this user read it.";
  }
  if (GetFileType(file.get()) != FILE_TYPE_DISK) {
    return L" is a device, no file on a disk; write the path of the list.";
  }
  LARGE_INTEGER size = {};
  if (GetFileSizeEx(file.get(), &size) && size.QuadPart >= kTooLarge) {
    return L" has 2 GiB or more, which the helper does not read; use several smaller ones.";
  }
  return L" cannot be read; it may have changed meanwhile.";
}

// Where in the text the items stand; and how many lists there are.
struct ItemPlaces {
  std::vector<std::size_t> itemLines;  // of everything in the first task of the first root
  std::size_t secondList = 0;          // the line of another root, or of another task in the first
};

ItemPlaces FindItems(const char* text) {
  ItemPlaces places;
  const char* counted = text;
  std::size_t line = 1;
  int roots = 0;
  int tasks = 0;
  bool inRoot = false;
  bool inTask = false;
  NodeScanner scanner(text);
  for (XmlNode node; scanner.Next(node);) {
    line += static_cast<std::size_t>(std::count(counted, node.start, '\n'));
    counted = node.start;
    if (node.depth == 1) {
      inRoot = node.name == kRootElement && ++roots == 1;
      inTask = false;
      if (node.name == kRootElement && roots == 2) places.secondList = line;
    } else if (node.depth == 2) {
      inTask = inRoot && node.name == kTaskElement && ++tasks == 1;
      if (inRoot && node.name == kTaskElement && tasks == 2) places.secondList = line;
    } else if (node.depth == 3 && inTask) {
      places.itemLines.push_back(line);
    }
  }
  return places;
}

std::string UpToNul(const std::string& text) { return text.substr(0, text.find('\0')); }

// An item as it stands in the document.
struct ListItem {
  std::string key;
  std::size_t line = 0;
  bool isUsable = true;  // as far as its attributes go
};

class ListCheck {
 public:
  ListCheck(std::filesystem::path list, const std::filesystem::path& taskFile,
            TaskFileReport& report)
      : list_(std::move(list)), taskFile_(taskFile), report_(report) {}

  void Check(IXMLParse& document, const std::string& text) {
    places_ = FindItems(text.c_str());
    if (text.find('\0') != std::string::npos) {
      Warn(0, L"The list holds a NUL byte, and what follows it is not read; remove it.");
      report_.leavesOut = true;
    }
    if (places_.secondList != 0) {
      Warn(places_.secondList,
           L"Only the first \"task\" in the first \"root\" is read; put all "
           L"items into it.");
      report_.leavesOut = true;
    }
    const auto operations = ReadOperationList(document);
    if (!operations) report_.helperFails = true;
    CheckElements(document.GetTree());
    if (!operations) return;  // with what makes the helper refuse the list named
    DropEqualKeys();
    if (items_.size() != operations->size()) return;  // never so: both follow the same rules
    CheckOrder();
    CheckOperations(*operations);
  }

  void Fail(std::size_t line, std::wstring text) {
    report_.helperFails = true;
    report_.findings.push_back({Severity::kError, false, list_, line, std::move(text)});
  }

 private:
  void Warn(std::size_t line, std::wstring text) {
    report_.findings.push_back({Severity::kWarning, false, list_, line, std::move(text)});
  }

  void CheckElements(const ptree& document) {
    const auto root = document.find(kRootElement);
    if (root == document.not_found()) {
      return Fail(0,
                  L"There is no element \"root\" at the top, in just these letters; write "
                  L"<root><task>…</task></root>.");
    }
    const auto task = root->second.find(kTaskElement);
    if (task == root->second.not_found()) {
      return Fail(0,
                  L"There is no element \"task\" in the first \"root\", in just these letters; "
                  L"write <root><task>…</task></root>.");
    }
    const auto count = std::count_if(task->second.begin(), task->second.end(),
                                     [](const auto& child) { return child.first != kAttributes; });
    const bool hasLines = places_.itemLines.size() == static_cast<std::size_t>(count);
    std::size_t number = 0;
    for (const auto& [name, item] : task->second) {
      if (name == kAttributes) continue;
      const std::size_t line = hasLines ? places_.itemLines[number] : 0;
      ++number;
      CheckElement(name, item, line);
    }
    if (count == 0) Warn(0, L"The list is empty, so nothing is copied; add an item.");
  }

  void CheckElement(const std::string& name, const ptree& item, std::size_t line) {
    const auto attributes = item.find(kAttributes);
    if (name == kComment) {
      Fail(line,
           L"A comment in \"task\" makes the helper refuse the whole list; move it out of "
           L"\"task\".");
    } else if (name.find('.') != std::string::npos) {
      Fail(line, L"The element's name " + Quoted(Utf8ToWide(name)) +
                     L" holds a dot, which makes the helper refuse the whole list; name it "
                     L"\"item\".");
    } else if (attributes == item.not_found()) {
      Fail(line,
           L"An element without attributes in \"task\" makes the helper refuse the whole list; "
           L"remove it, or give it key, src, dec and type.");
    } else {
      CheckAttributes(attributes->second, line);
    }
  }

  void CheckAttributes(const ptree& attributes, std::size_t line) {
    ListItem listed = {kMissingField, line, true};
    std::array<int, 4> counts = {};
    std::wstring others;
    for (const auto& [name, value] : attributes) {
      bool isKnown = false;
      for (const auto& [field, fieldName] : OperationFieldNames()) {
        if (name != fieldName) continue;
        isKnown = true;
        const auto place = static_cast<std::size_t>(field);
        if (++counts[place] == 2) {
          Warn(line, Quoted(Utf8ToWide(name)) +
                         L" stands twice, and the first one counts; remove "
                         L"one.");
        }
        if (counts[place] == 1) CheckField(field, value.data(), listed);
      }
      if (!isKnown) others += L" " + Quoted(Utf8ToWide(name)) + L" is not read.";
    }
    for (const auto& [field, fieldName] : OperationFieldNames()) {
      if (counts[static_cast<std::size_t>(field)] != 0) continue;
      if (field == kSourceField) listed.isUsable = false;
      Warn(line,
           L"The item has no " + Quoted(Utf8ToWide(fieldName)) +
               (field == kTypeField ? L", and so counts as a file; write type=\"dir\" or "
                                      L"type=\"file\"."
                : field == kKeyField ? L"; of all such items only the first counts. Give each "
                                       L"a key of its own."
                : field == kDestinationField
                    ? L", and so is copied to \"" + Utf8ToWide(kMissingField) +
                          L"\" in whatever folder the helper is started in; write it."
                    : L", and so cannot be copied; write it.") +
               others);
    }
    items_.push_back(std::move(listed));
  }

  void CheckField(std::int32_t field, const std::string& text, ListItem& listed) {
    const std::wstring name = Utf8ToWide(OperationFieldNames().at(field));
    if (field == kKeyField) {
      listed.key = text;
    } else if (field == kTypeField) {
      if (text == kFolderType || text == kFileType) return;
      Warn(listed.line, Quoted(Utf8ToWide(text)) +
                            L" is not \"dir\", in just these letters, and so means a file; write "
                            L"\"dir\" or \"file\".");
    } else if (text.find('\0') != std::string::npos) {
      Warn(listed.line, Quoted(name) + L" holds a NUL character and is cut off there; remove it.");
    } else if (Utf8ToWide(text).empty() && !text.empty()) {
      listed.isUsable = false;
      Warn(listed.line, Quoted(name) +
                            L" is not UTF-8, which the texts of a list are whatever its "
                            L"first line says; save the list as UTF-8.");
    }
  }

  // Leaves the items that count, in the helper's order of keys.
  void DropEqualKeys() {
    std::stable_sort(items_.begin(), items_.end(), [](const ListItem& left, const ListItem& right) {
      return left.key < right.key;
    });
    std::vector<ListItem> kept;
    for (ListItem& item : items_) {
      if (kept.empty() || item.key != kept.back().key) {
        kept.push_back(std::move(item));
        continue;
      }
      Warn(item.line, L"The key " + Quoted(Utf8ToWide(item.key)) + L" stands in line " +
                          std::to_wstring(kept.back().line) +
                          L" already, so this item is left out; give it another key.");
      report_.leavesOut = true;
    }
    items_ = std::move(kept);
  }

  // Keys that look like numbers should not surprise.
  void CheckOrder() {
    const auto isNumber = [](const std::string& key) {
      return !key.empty() && key.size() < 19 &&
             key.find_first_not_of("0123456789") == std::string::npos;
    };
    for (std::size_t i = 1; i < items_.size(); ++i) {
      const std::string& before = items_[i - 1].key;
      const std::string& key = items_[i].key;
      if (!isNumber(before) || !isNumber(key) || std::stoll(before) <= std::stoll(key)) continue;
      Warn(items_[i].line,
           L"The key \"" + Utf8ToWide(key) + L"\" comes after \"" + Utf8ToWide(before) +
               L"\", because keys are compared sign by sign; write them with equally "
               L"many digits.");
      return;
    }
  }

  void CheckOperations(const std::vector<Operation>& operations) {
    std::vector<CopyItem> copies;
    copies.reserve(operations.size());
    for (const Operation& operation : operations) {
      // As far as the first NUL, like the helper.
      copies.push_back({Utf8ToWide(UpToNul(operation.source)),
                        Utf8ToWide(UpToNul(operation.destination)), operation.isFolder});
    }
    const std::vector<std::size_t> order = HelperOrder(copies);
    std::vector<CopyItem> usable;
    std::vector<std::size_t> lines;
    for (const std::size_t i : order) {
      if (!items_[i].isUsable) continue;
      usable.push_back(std::move(copies[i]));
      lines.push_back(items_[i].line);
    }
    CopyCheck check = CheckCopies(std::move(usable), Origin::kList, {taskFile_, list_});
    for (CopyRemark& found : check.remarks) {
      if (found.remark.weight == Weight::kEmpties) continue;  // the steps say so
      report_.findings.push_back({Severity::kWarning, found.remark.weight == Weight::kHarms, list_,
                                  lines[found.item], std::move(found.remark.text)});
    }
    auto checked = check.steps.begin();
    for (const std::size_t i : order) {
      report_.steps.push_back(items_[i].isUsable ? std::move(*checked++)
                                                 : EmptyStep(copies[i], items_[i].line));
    }
  }

  static Step EmptyStep(const CopyItem& copy, std::size_t line) {
    Step step;
    step.kind = copy.isFolder ? Step::Kind::kCopyFolder : Step::Kind::kCopyFile;
    step.source = copy.source;
    step.destination = copy.destination;
    step.text = L"copies nothing, for the item in line " + std::to_wstring(line);
    return step;
  }

  const std::filesystem::path list_;
  const std::filesystem::path& taskFile_;
  TaskFileReport& report_;
  ItemPlaces places_;
  std::vector<ListItem> items_;
};

}  // namespace

void CheckOperationList(const std::string& listPath, const std::filesystem::path& taskFile,
                        std::size_t line, TaskFileReport& report) {
  const std::wstring shown = AnsiToWide(listPath);
  if (!shown.empty() && !IsAbsolute(shown)) {
    report.findings.push_back({Severity::kWarning, false, taskFile, line,
                               L"The list's path " + Quoted(shown) +
                                   L" is relative to whatever folder the helper is started in; "
                                   L"write the whole path."});
  }
  ListCheck check(shown, taskFile, report);
  XMLParse store;
  const bool isLoaded = store.LoadFile(listPath) != 0;
  if (!isLoaded) report.helperFails = true;
  const std::optional<std::string> text = ReadBytes(listPath);
  if (text && isLoaded) {
    check.Check(store, *text);
    return;
  }
  if (!text) {
    const std::wstring misread = Utf8ToWide(listPath);
    const bool isElsewhere = misread != shown && PathExists(listPath.c_str());
    report.helperFails = true;
    report.findings.push_back(
        {Severity::kError, false, taskFile, line,
         L"The list " + Quoted(shown) +
             (isElsewhere
                  ? L" cannot be read; the path is in UTF-8, but task files are read in the "
                    L"system's code page. Save the task file in that, or use ASCII."
                  : ReadFault(shown))});
    // What it would destroy cannot be told.
    report.findings.back().harmful = !isElsewhere && IsClosedToReaders(shown);
    return;
  }
  DocumentError why;
  ptree ignored;
  const bool isWide = text->compare(0, 2, "\xFF\xFE") == 0 || text->compare(0, 2, "\xFE\xFF") == 0;
  if (isWide) {
    check.Fail(1, L"The list is in UTF-16; save it as UTF-8.");
  } else if (!ParseDocument(text->c_str(), ignored, &why)) {
    check.Fail(why.line,
               L"The list is no XML that the helper can read: " + Utf8ToWide(why.message) +
                   (std::strlen(text->c_str()) < text->size()
                        ? L". For the helper it ends at a NUL byte; remove that."
                        : L". Look for an element or a quote that is not closed in this line or "
                          L"above it."));
  } else {
    check.Fail(0, L"The list could not be read; it may have changed meanwhile.");
  }
}

}  // namespace uaclient
