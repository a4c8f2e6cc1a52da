// The XML typed-value store: one XML document in memory, read and written through typed operations
// addressed by dotted paths, loaded from and saved to files.
//
// Paths
//   A path joins keys with ".", from the document element down: "root.task" is the element task
//   inside root. Where several children share a key, the first in document order is meant. The key
//   "<xmlattr>" names the node that holds an element's attributes: "root.a.<xmlattr>.b" is the
//   attribute b of root.a.
//
// Attributes and elements
//   Get… and Put… of single values work on attributes: they turn "root.a.count" into
//   "root.a.<xmlattr>.count" unless the path holds ".<xmlattr>" already. So do Set…Attr and
//   RemoveAttr. A path without "." cannot be turned; what becomes of it stands with the operations.
//   Set… without Attr, Remove and RemoveAll take the path as it stands, and so do the vectors.
//
// Values
//   Numbers are written and read in the classic ("C") locale whatever the process's locale is, and
//   must fill their text but for white space around them. Floats are written with 9 significant
//   digits. Strings are stored as they stand.
//
// Results are 1 for success and 0 for failure unless stated otherwise. A store may not be used by
// two threads at once.
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

// windows.h makes a macro of this name. Where it is included behind this header, calls end up at
// LoadStringA or LoadStringW, and overriding needs this line again.
#undef LoadString

class XMLParse;

class IXMLParse {
 public:
  virtual ~IXMLParse() = default;

  // A copy with the same document, file path and loaded flag. The caller deletes it.
  virtual XMLParse* Clone() = 0;

  // Vectors. The element at `path` holds one child "item" for each entry, whose attribute "key"
  // holds the value.
  //
  // Get…Vector empties `out` and reads every entry into it. 0 when the element is missing or holds
  // anything but well-formed items and attributes (a comment, for instance); `out` then keeps the
  // entries before it.
  virtual std::int32_t GetFloatVector(std::string path, std::vector<float>& out) = 0;
  virtual std::int32_t GetIntVector(std::string path, std::vector<std::int32_t>& out) = 0;
  virtual std::int32_t GetStringVector(std::string path, std::vector<std::string>& out) = 0;

  // Get… reads an attribute. An integer that is absent or does not convert gives
  // `out` = -9999999 and 0, which makes a real -9999999 look absent. A float gives
  // `out` = -99999.9F, but 1: compare the value. A string leaves `out` as it was and gives 0, as
  // does the text "{__see_it_is_read_string_failed_}". A path without "." gives 0 and leaves `out`.
  virtual std::int32_t GetFloat(std::string path, float& out) = 0;
  virtual std::int32_t GetInt64(std::string path, std::int64_t& out) = 0;
  virtual std::int32_t GetInt(std::string path, std::int32_t& out) = 0;
  virtual std::int32_t GetString(std::string path, std::string& out) = 0;

  // Put…Vector replaces all items of an existing element and leaves its other children; the new
  // items come last. 0, with nothing changed, when the element is missing.
  virtual std::int32_t PutFloatVector(std::string path, const std::vector<float>& values) = 0;
  virtual std::int32_t PutIntVector(std::string path, const std::vector<std::int32_t>& values) = 0;
  virtual std::int32_t PutStringVector(std::string path,
                                       const std::vector<std::string>& values) = 0;

  // Put… writes an attribute, creating it and the elements above it where they are missing. 0 for a
  // path without "." or with nothing behind its last one.
  virtual std::int32_t PutFloat(std::string path, float value) = 0;
  virtual std::int32_t PutInt64(std::string path, std::int64_t value) = 0;
  virtual std::int32_t PutInt(std::string path, std::int32_t value) = 0;
  virtual std::int32_t PutString(std::string path, std::string value) = 0;

  // Set…Vector differs by type. SetStringVector creates the element where it is missing; where it
  // exists, an empty attribute of the element's name appears on its parent (the document element,
  // which has none, gives 0). SetFloatVector always
  // makes that attribute and never the element, and throws std::out_of_range for a path without
  // ".". SetIntVector does nothing and returns 1.
  virtual std::int32_t SetFloatVector(std::string path, const std::vector<float>& values) = 0;
  virtual std::int32_t SetIntVector(std::string path, const std::vector<std::int32_t>& values) = 0;
  virtual std::int32_t SetStringVector(std::string path,
                                       const std::vector<std::string>& values) = 0;

  // Set…Attr writes an attribute as Put… does, but throws std::out_of_range for a path without ".".
  virtual std::int32_t SetFloatAttr(std::string path, float value) = 0;
  virtual std::int32_t SetInt64Attr(std::string path, std::int64_t value) = 0;
  virtual std::int32_t SetIntAttr(std::string path, std::int32_t value) = 0;
  virtual std::int32_t SetStringAttr(std::string path, std::string value) = 0;

  // Set… adds an element with this text where the path names nothing yet. Where the element exists
  // the value goes through Put… to the attribute of that name, and the element stays as it was.
  // 0 for a path that is empty or ends in ".".
  virtual std::int32_t SetFloat(std::string path, float value) = 0;
  virtual std::int32_t SetInt64(std::string path, std::int64_t value) = 0;
  virtual std::int32_t SetInt(std::string path, std::int32_t value) = 0;
  virtual std::int32_t SetString(std::string path, std::string value) = 0;

  // Removes an attribute. Throws std::out_of_range for a path without ".".
  virtual std::int32_t RemoveAttr(std::string path) = 0;

  // Removes the first node at the path. Always 1, also when there is none. A path without "." names
  // a child of the same name inside the node, as "root.root" would.
  virtual std::int32_t Remove(std::string path) = 0;

  // Removes every node at the path. 1 also when there is none; 0 for a path without ".", or with
  // nothing before or behind its last ".".
  virtual std::int32_t RemoveAll(std::string path) = 0;

  // Parses a document from text up to its zero byte; `length` is not used. White space around text
  // is removed and runs inside it become one blank; comments are kept. 0, with the document as it
  // was, for text that is not well-formed, nests more than 1000 elements deep, or is 2 GiB long.
  // The deepest documents take 128 kB of stack, without optimisation up to 2 MB.
  virtual std::int32_t LoadString(const char* text, std::int32_t length) = 0;

  std::int32_t LoadStringA(const char* text, std::int32_t length) {
    return LoadString(text, length);
  }
  std::int32_t LoadStringW(const char* text, std::int32_t length) {
    return LoadString(text, length);
  }

  // Loads a document from a file; `path` is in the ANSI code page. On success remembers the path
  // and sets the loaded flag. 0, with everything as it was, when the file cannot be read, is 2 GiB
  // or larger, or fails in LoadString.
  virtual std::int32_t LoadFile(std::string path) = 0;

  // 1 once a LoadFile has succeeded, otherwise 0.
  virtual std::int32_t IsLoaded() = 0;

  // SaveAs to the file last loaded.
  virtual std::int32_t Save() = 0;

  // Writes the document as UTF-8, indented with tabs, and creates missing directories; `path` is in
  // the ANSI code page. 1 when written, 0 when memory runs out on the way or the text would take
  // 2 GiB, and 0x80004005, which is not 0, when the file cannot be opened. Texts are written as
  // they are, also control characters. A disk that runs full goes unnoticed.
  virtual std::int32_t SaveAs(std::string path) = 0;

  // The document itself, for reading and changing.
  virtual boost::property_tree::ptree& GetTree() = 0;
};

// Puts a new, empty store into `store`. Returns 0, or 0x80004005 when it could not be made.
std::int32_t CreateXMLParse(boost::shared_ptr<IXMLParse>& store);

class XMLParse : public IXMLParse {
 public:
  XMLParse* Clone() override;
  std::int32_t GetFloatVector(std::string path, std::vector<float>& out) override;
  std::int32_t GetIntVector(std::string path, std::vector<std::int32_t>& out) override;
  std::int32_t GetStringVector(std::string path, std::vector<std::string>& out) override;
  std::int32_t GetFloat(std::string path, float& out) override;
  std::int32_t GetInt64(std::string path, std::int64_t& out) override;
  std::int32_t GetInt(std::string path, std::int32_t& out) override;
  std::int32_t GetString(std::string path, std::string& out) override;
  std::int32_t PutFloatVector(std::string path, const std::vector<float>& values) override;
  std::int32_t PutIntVector(std::string path, const std::vector<std::int32_t>& values) override;
  std::int32_t PutStringVector(std::string path, const std::vector<std::string>& values) override;
  std::int32_t PutFloat(std::string path, float value) override;
  std::int32_t PutInt64(std::string path, std::int64_t value) override;
  std::int32_t PutInt(std::string path, std::int32_t value) override;
  std::int32_t PutString(std::string path, std::string value) override;
  std::int32_t SetFloatVector(std::string path, const std::vector<float>& values) override;
  std::int32_t SetIntVector(std::string path, const std::vector<std::int32_t>& values) override;
  std::int32_t SetStringVector(std::string path, const std::vector<std::string>& values) override;
  std::int32_t SetFloatAttr(std::string path, float value) override;
  std::int32_t SetInt64Attr(std::string path, std::int64_t value) override;
  std::int32_t SetIntAttr(std::string path, std::int32_t value) override;
  std::int32_t SetStringAttr(std::string path, std::string value) override;
  std::int32_t SetFloat(std::string path, float value) override;
  std::int32_t SetInt64(std::string path, std::int64_t value) override;
  std::int32_t SetInt(std::string path, std::int32_t value) override;
  std::int32_t SetString(std::string path, std::string value) override;
  std::int32_t RemoveAttr(std::string path) override;
  std::int32_t Remove(std::string path) override;
  std::int32_t RemoveAll(std::string path) override;
  std::int32_t LoadString(const char* text, std::int32_t length) override;
  std::int32_t LoadFile(std::string path) override;
  std::int32_t IsLoaded() override;
  std::int32_t Save() override;
  std::int32_t SaveAs(std::string path) override;
  boost::property_tree::ptree& GetTree() override;

 protected:
  // Turns a path into that of an attribute, in place. Throws std::out_of_range without a ".".
  static void ToAttrPath(std::string& path);

  // 1 when the path names a node, otherwise 0. Every "." separates two keys, empty ones included.
  std::int32_t Exists(const std::string& path) const;

 private:
  template <typename Number>
  std::int32_t GetNumber(std::string path, Number& out);

  template <typename Value>
  std::int32_t PutValue(std::string path, const Value& value);

  // `put` is the operation that a Set… forwards to when its path exists.
  template <typename Value>
  std::int32_t SetValue(const std::string& path, const Value& value,
                        std::int32_t (XMLParse::*put)(std::string path, Value value));

  boost::property_tree::ptree tree_;
  std::string filePath_;
  std::int32_t loaded_ = 0;
};
