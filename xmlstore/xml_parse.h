// The XML typed-value store: one XML document in memory, loaded from and saved to files. Typed
// operations read and write its values at dotted paths.
//
// Paths
//   A path joins keys with ".", from the document element down: "root.task" is the element task
//   inside root. Where several children share a key, the path means the first in document order.
//   The key "<xmlattr>" names the node that holds an element's attributes: "root.a.<xmlattr>.b" is
//   the attribute b of root.a.
//
// Attributes and elements
//   Get… and Put… of single values, Set…Attr and RemoveAttr work on attributes. They turn
//   "root.a.count" into "root.a.<xmlattr>.count", unless the path holds ".<xmlattr>" already. A
//   path without "." cannot be turned; each operation says what it does with one. All other
//   operations take the path as it stands.
//
// Values
//   Numbers are written and read in the classic ("C") locale, whatever the process's locale is. A
//   number must be the whole text, except for white space around it. Floats are written with 9
//   significant digits. Strings are stored unchanged.
//
// Results are 1 for success and 0 for failure unless stated otherwise. Two threads must not use one
// store at once.
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

// windows.h defines a macro of this name. If it is included after this header, calls go to
// LoadStringA or LoadStringW, and a class that overrides LoadString needs this line again.
#undef LoadString

class XMLParse;

class IXMLParse {
 public:
  virtual ~IXMLParse() = default;

  // A copy with the same document, file path and loaded flag. The caller deletes it.
  virtual XMLParse* Clone() = 0;

  // Vectors. The element at `path` holds one child "item" for each entry. The item's attribute
  // "key" holds the value.
  //
  // Get…Vector empties `out` and reads every entry into it. 0 when the element is missing, or when
  // a child is not an item (a comment, for instance) or has no value that converts; `out` then
  // holds the entries before that child.
  virtual std::int32_t GetFloatVector(std::string path, std::vector<float>& out) = 0;
  virtual std::int32_t GetIntVector(std::string path, std::vector<std::int32_t>& out) = 0;
  virtual std::int32_t GetStringVector(std::string path, std::vector<std::string>& out) = 0;

  // Get… reads an attribute. For one that is absent or does not convert
  // - GetInt and GetInt64 return 0 and set `out` to -9999999; a real -9999999 looks absent, too;
  // - GetFloat returns 1 and sets `out` to -99999.9F: compare the value;
  // - GetString returns 0 and leaves `out`; so it does for "{__see_it_is_read_string_failed_}".
  // A path without "." gives 0 and leaves `out`.
  virtual std::int32_t GetFloat(std::string path, float& out) = 0;
  virtual std::int32_t GetInt64(std::string path, std::int64_t& out) = 0;
  virtual std::int32_t GetInt(std::string path, std::int32_t& out) = 0;
  virtual std::int32_t GetString(std::string path, std::string& out) = 0;

  // Put…Vector replaces all items of an existing element. Its other children stay, and the new
  // items come after them. 0, with nothing changed, when the element is missing.
  virtual std::int32_t PutFloatVector(std::string path, const std::vector<float>& values) = 0;
  virtual std::int32_t PutIntVector(std::string path, const std::vector<std::int32_t>& values) = 0;
  virtual std::int32_t PutStringVector(std::string path,
                                       const std::vector<std::string>& values) = 0;

  // Put… writes an attribute, and creates it and the elements above it where they are missing. 0
  // for a path without "." or with nothing after its last one.
  virtual std::int32_t PutFloat(std::string path, float value) = 0;
  virtual std::int32_t PutInt64(std::string path, std::int64_t value) = 0;
  virtual std::int32_t PutInt(std::string path, std::int32_t value) = 0;
  virtual std::int32_t PutString(std::string path, std::string value) = 0;

  // Set…Vector differs by type.
  // - SetStringVector is PutStringVector that creates a missing element. Where the element exists,
  //   an empty attribute of its name appears on its parent as well; the document element has no
  //   parent, so it gives 0.
  // - SetFloatVector makes that attribute in any case but never the element, so it gives 0 unless
  //   the element exists. It throws std::out_of_range for a path without ".".
  // - SetIntVector does nothing and returns 1.
  virtual std::int32_t SetFloatVector(std::string path, const std::vector<float>& values) = 0;
  virtual std::int32_t SetIntVector(std::string path, const std::vector<std::int32_t>& values) = 0;
  virtual std::int32_t SetStringVector(std::string path,
                                       const std::vector<std::string>& values) = 0;

  // Set…Attr writes an attribute as Put… does, but throws std::out_of_range for a path without ".".
  virtual std::int32_t SetFloatAttr(std::string path, float value) = 0;
  virtual std::int32_t SetInt64Attr(std::string path, std::int64_t value) = 0;
  virtual std::int32_t SetIntAttr(std::string path, std::int32_t value) = 0;
  virtual std::int32_t SetStringAttr(std::string path, std::string value) = 0;

  // Set… adds an element with this text where the path names nothing yet. Where the element exists,
  // the value goes to the attribute of that name, as with Put…, and the element is unchanged. 0 for
  // a path that is empty or ends in ".".
  virtual std::int32_t SetFloat(std::string path, float value) = 0;
  virtual std::int32_t SetInt64(std::string path, std::int64_t value) = 0;
  virtual std::int32_t SetInt(std::string path, std::int32_t value) = 0;
  virtual std::int32_t SetString(std::string path, std::string value) = 0;

  // Removes an attribute. Always 1, also when there is none. Throws std::out_of_range for a path
  // without ".".
  virtual std::int32_t RemoveAttr(std::string path) = 0;

  // Removes the first node at the path. Always 1, also when there is none. A path without "." means
  // the child of the same name inside the node: "root" removes "root.root".
  virtual std::int32_t Remove(std::string path) = 0;

  // Removes every node at the path. 1, also when there is none; 0 for a path without ".", or with
  // nothing before or after its last ".".
  virtual std::int32_t RemoveAll(std::string path) = 0;

  // Parses a document from zero-terminated UTF-8; `length` is not used. White space around texts is
  // removed, runs inside them become one blank, and comments are kept. 0, with the document
  // unchanged, when the text is not well-formed, nests more than 1,000 elements deep, or is 2 GiB
  // or longer. The deepest documents take 128 kB of stack, or up to 2 MB without optimisation.
  virtual std::int32_t LoadString(const char* text, std::int32_t length) = 0;

  std::int32_t LoadStringA(const char* text, std::int32_t length) {
    return LoadString(text, length);
  }
  std::int32_t LoadStringW(const char* text, std::int32_t length) {
    return LoadString(text, length);
  }

  // Loads a document from a file; `path` is in the ANSI code page. On success remembers the path
  // and sets the loaded flag. 0, with everything unchanged, when the file cannot be read, is 2 GiB
  // or larger, or LoadString refuses its text.
  virtual std::int32_t LoadFile(std::string path) = 0;

  // 1 once a LoadFile has succeeded, otherwise 0.
  virtual std::int32_t IsLoaded() = 0;

  // Calls SaveAs with the path of the file last loaded.
  virtual std::int32_t Save() = 0;

  // Writes the document as UTF-8, indented with tabs, and creates missing directories; `path` is in
  // the ANSI code page. 1 when written; 0 when memory runs out or the text would take 2 GiB; and
  // 0x80004005, which is not 0, when the file cannot be opened. Texts are written as they are,
  // control characters included. A disk that fills up goes unnoticed.
  virtual std::int32_t SaveAs(std::string path) = 0;

  // The document itself, for reading and changing.
  virtual boost::property_tree::ptree& GetTree() = 0;
};

// Puts a new, empty store into `store`. Returns 0, or 0x80004005 when memory runs out.
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
  // Turns the path into an attribute's, in place. Throws std::out_of_range for a path without ".".
  static void ToAttrPath(std::string& path);

  // 1 when the path names a node, otherwise 0. Every "." separates two keys, which may be empty.
  std::int32_t Exists(const std::string& path) const;

 private:
  template <typename Number>
  std::int32_t GetNumber(std::string path, Number& out);

  template <typename Value>
  std::int32_t PutValue(std::string path, const Value& value);

  // `put` is the operation that Set… forwards to when the path exists.
  template <typename Value>
  std::int32_t SetValue(const std::string& path, const Value& value,
                        std::int32_t (XMLParse::*put)(std::string path, Value value));

  boost::property_tree::ptree tree_;
  std::string filePath_;
  std::int32_t loaded_ = 0;
};
