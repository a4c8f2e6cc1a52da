#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <boost/property_tree/xml_parser.hpp>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>

#include "corekit/text.h"
#include "corekit/trace.h"
#include "support.h"
#include "xmlstore/keyed_records.h"
#include "xmlstore/xml_parse.h"

namespace {

using boost::property_tree::ptree;
using X = IXMLParse;

constexpr std::int32_t kFailed = static_cast<std::int32_t>(0x80004005);
const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

std::string Repeated(int count, const std::string& text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

std::string Nested(int levels, const std::string& inside = "") {
  return Repeated(levels, "<a>") + inside + Repeated(levels, "</a>");
}

class XmlStore : public testing::Test, protected XMLParse {
 protected:
  std::int32_t TryLoad(const std::string& text) { return LoadString(text.c_str(), 0); }
  // The store with this document.
  X& On(const std::string& text) {
    EXPECT_EQ(TryLoad(text), 1) << text;
    return *this;
  }
  // Takes an operation's result, and what it left.
  void Expect(std::int32_t result, std::int32_t expected, const std::string& document) {
    EXPECT_EQ(result, expected) << document;
    EXPECT_EQ(Document(), document);
  }

  // The document in one line, with single quotes.
  std::string Document() {
    std::ostringstream stream;
    write_xml(stream, GetTree());
    std::string text = stream.str().substr(kDeclaration.size());
    std::replace(text.begin(), text.end(), '"', '\'');
    return text;
  }

  // The result of reading the vector r.v from the saved document, and the entries that it gave.
  template <typename Value>
  std::string Read(std::int32_t (X::*get)(std::string, std::vector<Value>&)) {
    EXPECT_EQ(SaveAs(folder_ / "saved.xml"), 1);
    EXPECT_EQ(LoadFile(folder_ / "saved.xml"), 1);
    std::vector<Value> out(3);
    std::ostringstream text;
    text << (static_cast<X*>(this)->*get)("r.v", out) << ':';
    for (const Value& value : out) text << ' ' << value << ',';
    return text.str();
  }

  TestFolder folder_;
};

// Loading and saving.

TEST_F(XmlStore, LoadsAndSaves) {
  const std::string file = folder_ / "a.xml";
  for (const std::string& path : {file, folder_.Path(), std::string("NUL")}) {
    EXPECT_EQ(LoadFile(path), 0) << path;
  }
  EXPECT_EQ(IsLoaded(), 0);
  for (const std::string& path : {std::string(), folder_.Path()}) EXPECT_EQ(SaveAs(path), kFailed);

  const std::string saved =
      kDeclaration + "<r>\n\t<!-- c -->\n\t<a x=\"1\">two words</a>\n\t<b/>\n</r>\n";
  WriteFileBytes(file, "<r><!-- c --><a x='1'>  two \n words </a><b/></r>");
  Expect(LoadFile(file), 1, "<r><!-- c --><a x='1'>two words</a><b/></r>");
  WriteFileBytes(folder_ / "bad.xml", "<r>");
  Expect(LoadFile(folder_ / "bad.xml"), 0, "<r><!-- c --><a x='1'>two words</a><b/></r>");
  EXPECT_EQ(IsLoaded(), 1);
  EXPECT_EQ(Save(), 1) << "to the file of the last load that succeeded";
  EXPECT_EQ(ReadFileBytes(file), saved);
  EXPECT_EQ(SaveAs(folder_ / "x\\y\\z.xml"), 1);
  EXPECT_EQ(ReadFileBytes(folder_ / "x/y/z.xml"), saved);

  const boost::shared_ptr<X> copy(Clone());
  EXPECT_EQ(copy->IsLoaded(), 1);
  EXPECT_EQ(copy->PutInt("r.x", 2), 1);
  Expect(copy->Save(), 1, "<r><!-- c --><a x='1'>two words</a><b/></r>");
  EXPECT_NE(ReadFileBytes(file).find("<r x=\"2\">"), std::string::npos);

  // Paths are in the code page.
  EXPECT_EQ(SaveAs(folder_ / corekit::Utf8ToAnsi("é/é")), 1);
  EXPECT_EQ(ReadFileBytes(folder_ / "é/é"), saved);
  EXPECT_EQ(LoadFile(folder_ / corekit::Utf8ToAnsi("é/é")), 1);
  EXPECT_EQ(LoadFile(folder_ / "é/é"), 0);
}

TEST_F(XmlStore, RefusesWhatIsNoDocumentAndKeepsTheOldOne) {
  On("<old/>");
  for (const char* text :
       {"text", "<a", "<a>", "<a b></a>", "<a b='></a>", "<a>&#xFFFFFFFF;</a>", "<a>&#65</a>",
        "<!--", "<![CDATA[x", "<?xml ", "<!DOCTYPE a [", "</a>", "\x01\x02\xFF\xFE", "<a></a"}) {
    SCOPED_TRACE(text);
    Expect(TryLoad(text), 0, "<old/>");
  }
  EXPECT_EQ(LoadString(nullptr, 0), 0);
  Expect(TryLoad(""), 1, "");  // an empty document is one
  WriteFileBytes(folder_ / "zero.xml", std::string("<a/>\0<b>", 8));
  Expect(LoadFile(folder_ / "zero.xml"), 1, "<a/>");  // read up to the zero byte
}

TEST_F(XmlStore, RefusesDeepNesting) {
  for (const std::string& text :
       {Nested(1001), Nested(1000, "<b/>"), Nested(200000), Repeated(300000, "<"),
        "<b\">" + Nested(1001) + "<c\">", Nested(600, "<!--</a></a></a>-->" + Nested(401))}) {
    EXPECT_EQ(TryLoad(text), 0) << text.substr(0, 60);
  }
  EXPECT_EQ(TryLoad("<r>" + Repeated(20000, "<a><b/></a>") + "<!--" + Nested(2000) + "--></r>"), 1);
  // The deepest document that loads can be copied and saved as well.
  const boost::shared_ptr<X> copy(On(Nested(1000)).Clone());
  EXPECT_EQ(copy->GetTree(), GetTree());
  EXPECT_EQ(copy->SaveAs(folder_ / "deep.xml"), 1);
  EXPECT_EQ(LoadFile(folder_ / "deep.xml"), 1);
}

TEST_F(XmlStore, RefusesHugeAndLockedFiles) {
  const std::string file = folder_ / "sparse.xml";
  const std::int64_t gib = 1 << 30;
  for (const std::int64_t size :
       {3 * gib, 4 * gib + 4}) {  // where a size of 32 bits ends, or wraps
    WriteSparseFile(file, "<a/>", size);
    EXPECT_EQ(LoadFile(file), 0);
  }
  WriteFileBytes(file, "<a/>");
  {
    const FileLock lock(file);
    EXPECT_EQ(LoadFile(file), 0);
  }
  EXPECT_EQ(LoadFile(file), 1);  // nothing of the failures still holds the file
}

// Single values, the same rules for each type.

class XmlValues : public XmlStore {
 protected:
  // `texts` are the values as they are stored; `missing` is what an absent one reads as, and what
  // reading it returns.
  template <typename Value>
  void Check(std::int32_t (X::*get)(std::string, Value&),
             std::int32_t (X::*put)(std::string, Value),
             std::int32_t (X::*setAttr)(std::string, Value),
             std::int32_t (X::*set)(std::string, Value), const std::vector<Value>& values,
             const std::vector<std::string>& texts, const std::vector<std::string>& unreadable,
             const std::pair<Value, std::int32_t>& missing) {
    SCOPED_TRACE(texts[1]);
    X& store = *this;
    const Value& value = values[1];
    Value out;
    const auto stored = [&](const char* path) { return GetTree().get<std::string>(path); };
    const auto expectMissing = [&](const char* path) {
      out = value;
      EXPECT_EQ((store.*get)(path, out), missing.second) << path;
      EXPECT_EQ(out, missing.first) << path;
    };
    GetTree().clear();
    for (std::size_t i = 0; i < values.size(); ++i) {
      EXPECT_EQ((store.*put)("root.a.n", values[i]), 1);
      EXPECT_EQ(stored("root.a.<xmlattr>.n"), texts[i]);
      EXPECT_EQ((store.*get)(i % 2 == 0 ? "root.a.n" : "root.a.<xmlattr>.n", out), 1) << texts[i];
      EXPECT_EQ(out, values[i]);
    }
    for (const std::string& text : unreadable) {
      SCOPED_TRACE(text);
      GetTree().put("root.a.<xmlattr>.n", text);
      expectMissing("root.a.n");
    }
    EXPECT_EQ(GetTree().get_child("root.a").size(), 1U) << "replaced, not added";
    expectMissing("root.none.n");

    // Without a "." getting and putting fail, the attribute forms throw.
    const ptree before = GetTree();
    out = value;
    EXPECT_EQ((store.*get)("root", out), 0);
    EXPECT_EQ(out, value);
    EXPECT_EQ((store.*put)("root", value), 0);
    EXPECT_THROW((store.*setAttr)("root", value), std::out_of_range);
    for (const char* path : {"", "top.", "root.a."}) EXPECT_EQ((store.*set)(path, value), 0);
    EXPECT_EQ(GetTree(), before);

    // Set…Attr: a new attribute, then the same one again. Set…: a new element, which getting does
    // not see; then, over the element, an attribute.
    GetTree().clear();
    for (std::size_t i = 0; i < 2; ++i) {
      EXPECT_EQ((store.*setAttr)("root.a.n", values[i]), 1);
      EXPECT_EQ(stored("root.a.<xmlattr>.n"), texts[i]);
      if (i == 1) expectMissing("root.b.n");
      EXPECT_EQ((store.*set)("root.b.n", values[i]), 1);
      EXPECT_EQ(stored("root.b.n"), texts[0]);
    }
    EXPECT_EQ(GetTree().get_child("root.a.<xmlattr>").size(), 1U);
    EXPECT_EQ(stored("root.b.<xmlattr>.n"), texts[1]);
    EXPECT_EQ((store.*set)("top", value), 1);
    EXPECT_EQ((store.*set)("top", value), 0) << "no attribute without an element above it";
  }
  void CheckAll() {
    Check<float>(
        &X::GetFloat, &X::PutFloat, &X::SetFloatAttr, &X::SetFloat,
        {0.1F, 1.5F, -0.0F, 1 << 24, 1e30F, std::numeric_limits<float>::max(), -99999.9F},
        {"0.100000001", "1.5", "-0", "16777216", "1.00000002e+30", "3.40282347e+38", "-99999.8984"},
        {"", "x", "1,5", "1.5x", "1e40", "inf", "nan", "0x"}, {-99999.9F, 1});
    Check<std::int64_t>(&X::GetInt64, &X::PutInt64, &X::SetInt64Attr, &X::SetInt64,
                        {0, INT64_MAX, INT64_MIN},
                        {"0", "9223372036854775807", "-9223372036854775808"},
                        {"", "12abc", "9223372036854775808", "1.5", "-9999999"}, {-9999999, 0});
    Check<std::int32_t>(&X::GetInt, &X::PutInt, &X::SetIntAttr, &X::SetInt,
                        {1234567, INT32_MAX, INT32_MIN}, {"1234567", "2147483647", "-2147483648"},
                        {"", "12abc", "2147483648", "-9999999"}, {-9999999, 0});
    Check<std::string>(&X::GetString, &X::PutString, &X::SetStringAttr, &X::SetString,
                       {"", " a<b\t\né", "12abc"}, {"", " a<b\t\né", "12abc"},
                       {"{__see_it_is_read_string_failed_}"}, {" a<b\t\né", 0});  // stays as it was
  }
};

struct Foreign : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(XmlValues, FollowTheSameRulesForEachTypeWhateverTheLocale) {
  const std::locale classic = std::locale::classic();
  for (const std::locale& locale : {classic, std::locale(classic, new Foreign)}) {
    std::locale::global(locale);
    CheckAll();
    Expect(On("<r/>").PutFloat("r.n", std::numeric_limits<float>::infinity()), 1, "<r n='inf'/>");
    Expect(On("<r/>").PutInt("r.", 1), 0, "<r/>");
    Expect(On("<r/>").PutIntVector("r", {1234567}), 1, "<r><item key='1234567'/></r>");
  }
  std::locale::global(classic);
  std::int32_t value = 0;
  EXPECT_EQ(On("<r n='12 \t\n'/>").GetInt("r.n", value), 1);
  EXPECT_EQ(value, 12) << "white space behind numbers";
}

// The trace.

std::string tracedLines;

LONG CALLBACK CatchDebugOutput(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  if (record.ExceptionCode != DBG_PRINTEXCEPTION_C) return EXCEPTION_CONTINUE_SEARCH;
  tracedLines += reinterpret_cast<const char*>(record.ExceptionInformation[1]);
  return EXCEPTION_CONTINUE_EXECUTION;
}

// Of all that CheckAll does, just the paths without a "." are failures.
TEST_F(XmlValues, TraceFailuresWhenSwitchedOn) {
  void* const handler = AddVectoredExceptionHandler(1, CatchDebugOutput);
  tracedLines.clear();
  CheckAll();
  EXPECT_EQ(tracedLines, "");
  corekit::EnableTrace(true);
  CheckAll();
  const char* const line = "\\d\\d:\\d\\d:\\d\\d\\.\\d{3} XMLParse: error (.*)\n";
  EXPECT_EQ(ReplaceMatches(tracedLines, line, "$1;"),
            "read flot from root;WriteXML float to root;WriteXML float to top;"
            "read __int64 from root;WriteXML int to root;WriteXML int to top;"
            "read int from root;WriteXML int to root;WriteXML int to top;");
  tracedLines.clear();
  std::int32_t value = 0;
  GetInt(std::string(20000, '%'), value);
  EXPECT_EQ(tracedLines.size(), 10239U);
  EXPECT_EQ(tracedLines.back(), '%');
  corekit::EnableTrace(false);
  RemoveVectoredExceptionHandler(handler);
}

// A store that sees what is forwarded to it.
struct CountingStore : XMLParse {
  std::int32_t PutInt(std::string path, std::int32_t) override { return Seen(path); }
  std::int32_t PutString(std::string path, std::string) override { return Seen(path); }
  std::int32_t Remove(std::string path) override { return Seen(path); }
  std::int32_t PutFloatVector(std::string path, const std::vector<float>&) override {
    return Seen(path);
  }
  std::int32_t LoadString(const char* text, std::int32_t length) override {
    return Seen(text) & XMLParse::LoadString(text, length);
  }
  std::int32_t Seen(const std::string& path) {
    seen += path + ";";
    return 1;
  }
  std::string seen;
};

TEST_F(XmlStore, ForwardsThroughTheVirtualTable) {
  CountingStore store;
  WriteFileBytes(folder_ / "a.xml", "<r a='1'><b/></r>");
  EXPECT_EQ(store.LoadFile(folder_ / "a.xml"), 1);
  store.SetInt("r.b", 1);
  store.SetIntAttr("r.a", 1);
  store.SetStringAttr("r.a", "");
  store.RemoveAttr("r.a");
  store.SetFloatVector("r.a", {});
  EXPECT_EQ(store.seen,
            "<r a='1'><b/></r>;r.b;r.<xmlattr>.a;r.<xmlattr>.a;r.<xmlattr>.a;r.<xmlattr>.a;r.a;");
}

TEST_F(XmlStore, Removes) {
  const std::string document = "<r a='1' b='2'><i/><j/><i x='1'/><i/><r>in</r></r>";
  // The last one names an attribute that the first i lacks.
  for (const char* path : {"r.none", "none", "", ".", "r.", ".r", "r..i", "r.i.<xmlattr>.x"}) {
    Expect(On(document).Remove(path), 1, document);
  }
  for (const char* path : {"r.r", "r"}) {
    Expect(On(document).Remove(path), 1, "<r a='1' b='2'><i/><j/><i x='1'/><i/></r>");
  }
  Expect(On(document).Remove("r.i"), 1, "<r a='1' b='2'><j/><i x='1'/><i/><r>in</r></r>");
  Expect(On("<q><i/></q>").Remove("q"), 1, "<q><i/></q>");  // holds nothing of that name
  Expect(On(document).RemoveAttr("r.a"), 1, "<r b='2'><i/><j/><i x='1'/><i/><r>in</r></r>");
  EXPECT_THROW(RemoveAttr("r"), std::out_of_range);
  Expect(On(document).RemoveAll("r.i"), 1, "<r a='1' b='2'><j/><r>in</r></r>");
  for (const char* path : {"r.none", "none.i"}) Expect(On(document).RemoveAll(path), 1, document);
  for (const char* path : {"r", "r.", ".r"}) Expect(On(document).RemoveAll(path), 0, document);
}

// Vectors.

TEST_F(XmlStore, ReplacesTheItemsOfVectors) {
  Expect(On("<r><v a='1'><item key='9'/><i/><item/></v></r>").PutFloatVector("r.v", {1.5F, 0.1F}),
         1, "<r><v a='1'><i/><item key='1.5'/><item key='0.100000001'/></v></r>");
  EXPECT_EQ(Read(&X::GetFloatVector), "0:") << "another child is no entry";
  RemoveAll("r.v.i");
  EXPECT_EQ(Read(&X::GetFloatVector), "1: 1.5, 0.1,");
  EXPECT_EQ(PutIntVector("r.v", {INT32_MIN, INT32_MAX}), 1);
  EXPECT_EQ(Read(&X::GetIntVector), "1: -2147483648, 2147483647,");
  EXPECT_EQ(PutStringVector("r.v", {"", " a<b ", "é", "  "}), 1);
  EXPECT_EQ(Read(&X::GetStringVector), "1: ,  a<b , é,   ,");
  EXPECT_EQ(PutIntVector("r.v", {}), 1);
  EXPECT_EQ(Read(&X::GetIntVector), "1:");
}

TEST_F(XmlStore, ReadsVectorsUpToTheFirstFault) {
  On("<r><v a='1'><item key='1'/><item key='2'>text<more/></item></v></r>");
  EXPECT_EQ(Read(&X::GetIntVector), "1: 1, 2,");
  for (const std::string fault : {"<!-- c -->", "<item/>", "<item other='2'/>", "<Item key='2'/>",
                                  "<item key='2x'/>", "<item key='2147483648'/>"}) {
    On("<r><v><item key='1'/>" + fault + "<item key='2'/></v></r>");
    EXPECT_EQ(Read(&X::GetIntVector), "0: 1,") << fault;
  }
  Expect(On("<r/>").PutIntVector("r.v", {1}), 0, "<r/>");
  EXPECT_EQ(Read(&X::GetIntVector), "0:");
}

TEST_F(XmlStore, SetsVectorsEachInItsOwnWay) {
  Expect(On("<r/>").SetIntVector("r.i", {1}), 1, "<r/>");
  Expect(SetFloatVector("r.f", {1}), 0, "<r f=''/>");
  Expect(SetStringVector("r.s", {"x"}), 1, "<r f=''><s><item key='x'/></s></r>");
  Expect(SetStringVector("r.s", {"y"}), 1, "<r f='' s=''><s><item key='y'/></s></r>");
  Expect(SetFloatVector("r.s", {2}), 1, "<r f='' s=''><s><item key='2'/></s></r>");
  EXPECT_THROW(SetFloatVector("r", {1}), std::out_of_range);
}

// Keyed records.

TEST_F(XmlStore, ReadsKeyedRecords) {
  using Fields = std::map<std::int32_t, std::string>;
  // The records as "key: 0=field 1=field; ", behind "failed " where reading fails.
  const auto read = [&](const std::string& items, const Fields& fields = {{0, "key"}, {1, "src"}}) {
    On(items);
    const ptree before = GetTree();
    KeyedRecords records = {{"old", {}}};
    const std::int32_t result = ReadKeyedRecords(GetTree(), "r.t", records, fields, "?");
    EXPECT_EQ(GetTree(), before);
    std::string text = result == 0 ? "" : result == kFailed ? "failed " : "odd result ";
    for (const auto& [key, record] : records) {
      text += key + ":";
      for (const auto& [index, field] : record) text += " " + std::to_string(index) + "=" + field;
      text += "; ";
    }
    return text;
  };
  EXPECT_EQ(read("<r/>"), "failed ");
  EXPECT_EQ(read("<r><t key='own'>text<![CDATA[ more]]></t></r>"), "");
  EXPECT_EQ(
      read("<r><t><i key='b' src='1'/><j key='a' src='2' x='y'>t<u/></j><i key='b'/></t></r>"),
      "a: 0=a 1=2; b: 0=b 1=1; ");
  EXPECT_EQ(read("<r><t><i src='1'/><i src='2'/><i key='' src='3'/></t></r>"),
            ": 0= 1=3; ?: 0=? 1=1; ");
  // A name with a "." is a path that leads nowhere.
  for (const std::string fault : {"<i/>", "<!-- c -->", "<i.j key='c'/>"}) {
    EXPECT_EQ(read("<r><t><i key='a'/>" + fault + "<i key='b'/></t></r>"), "failed a: 0=a 1=?; ");
  }
  // Indexes count from 0 whatever the table holds; one that it lacks reads as the default.
  EXPECT_EQ(read("<r><t><i key='a' x='1'/></t></r>", {{0, "key"}, {5, "x"}}), "a: 0=a 1=?; ");
  EXPECT_EQ(read("<r><t><i key='a' x='1'/></t></r>", {}), "?:; ");
}

}  // namespace
