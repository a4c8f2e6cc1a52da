#include "xmlstore/xml_parse.h"

#include <boost/make_shared.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <locale>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "corekit/trace.h"
#include "fileop/file_system.h"
#include "fileop/jfile.h"
#include "xmlstore/document.h"
#include "xmlstore/status.h"

namespace {

using boost::property_tree::ptree;
using xmlstore::kAttributes;
using xmlstore::kStatusFailed;
using xmlstore::kStatusOk;

constexpr std::int32_t kTrue = 1;
constexpr std::int32_t kFalse = 0;

constexpr char kItem[] = "item";
constexpr char kItemValue[] = "<xmlattr>.key";

constexpr char kStringMissing[] = "{__see_it_is_read_string_failed_}";

// What differs by type in the operations on single values: the value that stands for a missing
// number, and the trace lines.
template <typename Value>
struct Rules;

template <>
struct Rules<float> {
  static constexpr float kMissing = -99999.9F;
  static constexpr const char* kReadError = "XMLParse: error read flot from %s\n";
  static constexpr const char* kWriteError = "XMLParse: error WriteXML float to %s\n";
};

template <>
struct Rules<std::int64_t> {
  static constexpr std::int64_t kMissing = -9999999;
  static constexpr const char* kReadError = "XMLParse: error read __int64 from %s\n";
  static constexpr const char* kWriteError = "XMLParse: error WriteXML int to %s\n";
};

template <>
struct Rules<std::int32_t> {
  static constexpr std::int32_t kMissing = -9999999;
  static constexpr const char* kReadError = "XMLParse: error read int from %s\n";
  static constexpr const char* kWriteError = "XMLParse: error WriteXML int to %s\n";
};

template <>
struct Rules<std::string> {
  static constexpr const char* kWriteError = nullptr;
};

// Converts between values and text. Numbers convert as in the property tree's streams, but in the
// classic locale rather than the process's. Use one converter for many values: making its stream
// takes far longer than a conversion.
template <typename Value>
class Converter {
  using Conversion = boost::property_tree::customize_stream<char, std::char_traits<char>, Value>;

 public:
  Converter() { stream_.imbue(std::locale::classic()); }

  std::string ToText(Value value) {
    stream_.str({});
    Conversion::insert(stream_, value);
    return stream_.str();
  }
  // None unless the whole text is a number.
  std::optional<Value> FromText(const std::string& text) {
    stream_.clear();
    stream_.str(text);
    Value value = {};
    Conversion::extract(stream_, value);
    if (stream_.fail() || stream_.peek() != std::char_traits<char>::eof()) return std::nullopt;
    return value;
  }

 private:
  std::stringstream stream_;
};

template <>
class Converter<std::string> {
 public:
  std::string ToText(const std::string& value) { return value; }
  std::optional<std::string> FromText(const std::string& text) { return text; }
};

void TracePath(const char* format, const std::string& path) {
  if (format != nullptr) corekit::Trace(format, path.c_str());
}

// Whether the path lacks its last key. The tree itself would only assert that it does not.
bool LacksKey(const std::string& path) { return path.empty() || path.back() == '.'; }

template <typename Number>
Number NumberAt(const ptree& tree, const std::string& path) {
  const auto node = tree.get_child_optional(path);
  const auto number = node ? Converter<Number>().FromText(node->data()) : std::nullopt;
  return number.value_or(Rules<Number>::kMissing);
}

template <typename Value>
std::int32_t GetVector(const ptree& tree, const std::string& path, std::vector<Value>& out) {
  out.clear();
  try {
    Converter<Value> converter;
    const ptree::path_type valuePath(kItemValue);
    for (const auto& [name, child] : tree.get_child(path)) {
      if (name == kAttributes) continue;
      if (name != kItem) return kFalse;
      out.push_back(converter.FromText(child.get_child(valuePath).data()).value());
    }
    return kTrue;
  } catch (...) {
    return kFalse;
  }
}

template <typename Value>
std::int32_t PutVector(ptree& tree, const std::string& path, const std::vector<Value>& values) {
  try {
    ptree& element = tree.get_child(path);
    element.erase(kItem);
    Converter<Value> converter;
    ptree::value_type item(kItem, ptree());
    std::string& text = item.second.put(kItemValue, "").data();
    for (const Value& value : values) {
      text = converter.ToText(value);
      element.push_back(item);
    }
    return kTrue;
  } catch (...) {
    return kFalse;
  }
}

// A path split at its last "."; without one, both halves are the whole path.
struct SplitAtLastKey {
  explicit SplitAtLastKey(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    parent = path.substr(0, dot);
    name = dot == std::string::npos ? path : path.substr(dot + 1);
  }

  std::string parent;
  std::string name;
};

// Closes the file on every way out, because JFile's destructor does not.
struct FileCloser {
  JFile& file;
  ~FileCloser() { file.Close(); }
};

}  // namespace

std::int32_t CreateXMLParse(boost::shared_ptr<IXMLParse>& store) {
  try {
    store = boost::make_shared<XMLParse>();
  } catch (const std::bad_alloc&) {
    store.reset();
  }
  return store ? kStatusOk : kStatusFailed;
}

XMLParse* XMLParse::Clone() { return new XMLParse(*this); }

// Vectors.

std::int32_t XMLParse::GetFloatVector(std::string path, std::vector<float>& out) {
  return GetVector(tree_, path, out);
}

std::int32_t XMLParse::GetIntVector(std::string path, std::vector<std::int32_t>& out) {
  return GetVector(tree_, path, out);
}

std::int32_t XMLParse::GetStringVector(std::string path, std::vector<std::string>& out) {
  return GetVector(tree_, path, out);
}

std::int32_t XMLParse::PutFloatVector(std::string path, const std::vector<float>& values) {
  return PutVector(tree_, path, values);
}

std::int32_t XMLParse::PutIntVector(std::string path, const std::vector<std::int32_t>& values) {
  return PutVector(tree_, path, values);
}

std::int32_t XMLParse::PutStringVector(std::string path, const std::vector<std::string>& values) {
  return PutVector(tree_, path, values);
}

// Puts an attribute on the parent, so it fails unless the element exists. Callers rely on that.
std::int32_t XMLParse::SetFloatVector(std::string path, const std::vector<float>& values) {
  return SetStringAttr(path, "") != kFalse ? PutFloatVector(path, values) : kFalse;
}

// Deliberately without effect.
std::int32_t XMLParse::SetIntVector(std::string, const std::vector<std::int32_t>&) { return kTrue; }

std::int32_t XMLParse::SetStringVector(std::string path, const std::vector<std::string>& values) {
  return SetString(path, "") != kFalse ? PutStringVector(path, values) : kFalse;
}

// Single values.

template <typename Number>
std::int32_t XMLParse::GetNumber(std::string path, Number& out) {
  try {
    ToAttrPath(path);
    out = NumberAt<Number>(tree_, path);
    return kTrue;
  } catch (...) {
    TracePath(Rules<Number>::kReadError, path);
    return kFalse;
  }
}

template <typename Value>
std::int32_t XMLParse::PutValue(std::string path, const Value& value) {
  try {
    ToAttrPath(path);
    if (LacksKey(path)) throw std::out_of_range("no key");
    tree_.put(path, Converter<Value>().ToText(value));
    return kTrue;
  } catch (...) {
    TracePath(Rules<Value>::kWriteError, path);
    return kFalse;
  }
}

template <typename Value>
std::int32_t XMLParse::SetValue(const std::string& path, const Value& value,
                                std::int32_t (XMLParse::*put)(std::string path, Value value)) {
  if (Exists(path) != kFalse) return (this->*put)(path, value);
  if (LacksKey(path)) return kFalse;
  tree_.add(path, Converter<Value>().ToText(value));
  return kTrue;
}

// Unlike the integers, true for a missing value too.
std::int32_t XMLParse::GetFloat(std::string path, float& out) { return GetNumber(path, out); }

std::int32_t XMLParse::GetInt64(std::string path, std::int64_t& out) {
  return GetNumber(path, out) != kFalse && out != Rules<std::int64_t>::kMissing;
}

std::int32_t XMLParse::GetInt(std::string path, std::int32_t& out) {
  return GetNumber(path, out) != kFalse && out != Rules<std::int32_t>::kMissing;
}

std::int32_t XMLParse::GetString(std::string path, std::string& out) {
  try {
    ToAttrPath(path);
    std::string value = tree_.get(path, kStringMissing);
    if (value == kStringMissing) return kFalse;
    out = std::move(value);
    return kTrue;
  } catch (...) {
    return kFalse;
  }
}

std::int32_t XMLParse::PutFloat(std::string path, float value) { return PutValue(path, value); }

std::int32_t XMLParse::PutInt64(std::string path, std::int64_t value) {
  return PutValue(path, value);
}

std::int32_t XMLParse::PutInt(std::string path, std::int32_t value) {
  return PutValue(path, value);
}

std::int32_t XMLParse::PutString(std::string path, std::string value) {
  return PutValue(path, value);
}

std::int32_t XMLParse::SetFloatAttr(std::string path, float value) {
  ToAttrPath(path);
  return SetValue(path, value, &XMLParse::PutFloat);
}

std::int32_t XMLParse::SetInt64Attr(std::string path, std::int64_t value) {
  ToAttrPath(path);
  return SetValue(path, value, &XMLParse::PutInt64);
}

std::int32_t XMLParse::SetIntAttr(std::string path, std::int32_t value) {
  ToAttrPath(path);
  return SetValue(path, value, &XMLParse::PutInt);
}

std::int32_t XMLParse::SetStringAttr(std::string path, std::string value) {
  ToAttrPath(path);
  return SetValue(path, value, &XMLParse::PutString);
}

std::int32_t XMLParse::SetFloat(std::string path, float value) {
  return SetValue(path, value, &XMLParse::PutFloat);
}

std::int32_t XMLParse::SetInt64(std::string path, std::int64_t value) {
  return SetValue(path, value, &XMLParse::PutInt64);
}

std::int32_t XMLParse::SetInt(std::string path, std::int32_t value) {
  return SetValue(path, value, &XMLParse::PutInt);
}

std::int32_t XMLParse::SetString(std::string path, std::string value) {
  return SetValue(path, value, &XMLParse::PutString);
}

std::int32_t XMLParse::RemoveAttr(std::string path) {
  ToAttrPath(path);
  return Remove(path);
}

std::int32_t XMLParse::Remove(std::string path) {
  if (Exists(path) == kFalse) return kTrue;
  const SplitAtLastKey split(path);
  ptree& parent = tree_.get_child(split.parent);
  const auto found = parent.find(split.name);
  if (found != parent.not_found()) parent.erase(parent.to_iterator(found));
  return kTrue;
}

std::int32_t XMLParse::RemoveAll(std::string path) {
  const SplitAtLastKey split(path);
  if (split.parent.size() == path.size() || split.parent.empty() || split.name.empty()) {
    return kFalse;
  }
  if (const auto parent = tree_.get_child_optional(split.parent)) parent->erase(split.name);
  return kTrue;
}

// The document as a whole.

std::int32_t XMLParse::LoadString(const char* text, std::int32_t) {
  try {
    return text != nullptr && xmlstore::ParseDocument(text, tree_, nullptr) ? kTrue : kFalse;
  } catch (...) {
    return kFalse;
  }
}

std::int32_t XMLParse::LoadFile(std::string path) {
  try {
    JFile file;
    const FileCloser closer{file};
    if (!file.Open(path, JFile::OpenRead | JFile::OpenBinary)) return kFalse;
    const std::int32_t size = file.GetSize();
    if (size < 0) return kFalse;

    std::string text(static_cast<std::size_t>(size), '\0');
    file.Rewind();
    if (file.Read(text.data(), size) != size) return kFalse;
    file.Close();

    if (LoadString(text.c_str(), size) == kFalse) return kFalse;
    filePath_ = std::move(path);
    loaded_ = kTrue;
    return kTrue;
  } catch (...) {
    return kFalse;
  }
}

std::int32_t XMLParse::IsLoaded() { return loaded_; }

std::int32_t XMLParse::Save() { return SaveAs(filePath_); }

std::int32_t XMLParse::SaveAs(std::string path) {
  try {
    MakeParentDirs(path.c_str());

    std::ostringstream stream;
    write_xml(stream, tree_,
              boost::property_tree::xml_writer_make_settings<std::string>('\t', 1, "utf-8"));
    const std::string text = stream.str();
    if (text.size() > INT32_MAX) return kFalse;

    JFile file;
    const FileCloser closer{file};
    if (!file.Open(path, JFile::OpenWrite | JFile::OpenBinary)) return kStatusFailed;
    file.Write(text.data(), static_cast<std::int32_t>(text.size()));
    return kTrue;
  } catch (...) {
    return kFalse;
  }
}

ptree& XMLParse::GetTree() { return tree_; }

void XMLParse::ToAttrPath(std::string& path) {
  if (path.find(std::string(".") + kAttributes) != std::string::npos) return;
  // Without a "." the position is npos, for which insert throws std::out_of_range.
  path.insert(path.rfind('.'), std::string(".") + kAttributes);
}

std::int32_t XMLParse::Exists(const std::string& path) const {
  if (path.empty()) return kFalse;
  const ptree* node = &tree_;
  for (std::size_t start = 0;;) {
    const std::size_t dot = path.find('.', start);
    const auto found = node->find(path.substr(start, dot - start));
    if (found == node->not_found()) return kFalse;
    if (dot == std::string::npos) return kTrue;
    node = &found->second;
    start = dot + 1;
  }
}
