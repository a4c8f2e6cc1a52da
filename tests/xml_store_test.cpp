#include <gtest/gtest.h>
#include <windows.h>

#include <boost/property_tree/xml_parser.hpp>
#include <cmath>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>

#include "corekit/text.h"
#include "corekit/trace.h"
#include "support.h"
#include "xmlstore/keyed_records.h"
#include "xmlstore/nesting.h"
#include "xmlstore/xml_parse.h"

namespace {

using boost::property_tree::ptree;

constexpr std::int32_t kFailed = static_cast<std::int32_t>(0x80004005);
constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

std::string Nested(int levels, const std::string& inside = "") {
  std::string text;
  for (int i = 0; i < levels; ++i) text += "<a>";
  text += inside;
  for (int i = 0; i < levels; ++i) text += "</a>";
  return text;
}

class XmlStore : public testing::Test, protected XMLParse {
 protected:
  void Load(const std::string& text) { ASSERT_EQ(LoadString(text.c_str(), 0), 1) << text; }

  // The document as SaveAs writes it, without the declaration.
  std::string Saved() {
    const std::string file = folder_ / "saved.xml";
    EXPECT_EQ(SaveAs(file), 1);
    const std::string text = ReadFileBytes(file);
    EXPECT_EQ(text.substr(0, sizeof kDeclaration - 1), kDeclaration);
    return text.substr(sizeof kDeclaration - 1);
  }

  TestFolder folder_;
};

// Loading and saving.

TEST_F(XmlStore, LoadsAndSaves) {
  const std::string file = folder_ / "a.xml";
  EXPECT_EQ(LoadFile(file), 0);
  EXPECT_EQ(LoadFile(folder_.Path()), 0);
  EXPECT_EQ(IsLoaded(), 0);
  EXPECT_EQ(Save(), kFailed);

  WriteFileBytes(file, "<root><!-- c --><a x='1'>  two \n words </a><b/></root>");
  ASSERT_EQ(LoadFile(file), 1);
  EXPECT_EQ(IsLoaded(), 1);
  EXPECT_EQ(GetTree().get<std::string>("root.a"), "two words");
  EXPECT_EQ(GetTree().get<std::string>("root.a.<xmlattr>.x"), "1");
  EXPECT_EQ(Save(), 1);
  EXPECT_EQ(ReadFileBytes(file), std::string(kDeclaration) +
                                     "<root>\n\t<!-- c -->\n\t<a x=\"1\">two words</a>\n\t<b/>\n"
                                     "</root>\n");

  WriteFileBytes(folder_ / "bad.xml", "<root>");
  EXPECT_EQ(LoadFile(folder_ / "bad.xml"), 0);
  EXPECT_EQ(IsLoaded(), 1);
  EXPECT_EQ(GetTree().get<std::string>("root.a"), "two words");

  EXPECT_EQ(SaveAs(folder_ / "x\\y\\z.xml"), 1);
  EXPECT_EQ(ReadFileBytes(folder_ / "x/y/z.xml"), ReadFileBytes(file));
  EXPECT_EQ(SaveAs(folder_.Path()), kFailed);
  EXPECT_EQ(SaveAs(""), kFailed);
}

TEST_F(XmlStore, EscapesWhatItWrites) {
  GetTree().put("r.<xmlattr>.k", "   ");
  GetTree().put("r.t", "a<b>&\"'");
  const std::string text = Saved();
  EXPECT_EQ(text, "<r k=\"&#32;  \">\n\t<t>a&lt;b&gt;&amp;&quot;&apos;</t>\n</r>\n");
  ptree before = GetTree();
  Load(text);
  EXPECT_EQ(GetTree(), before);
}

TEST_F(XmlStore, PathsAreInTheCodePage) {
  const std::string ansi = Utf8ToAnsi("\xC3\xA9");
  EXPECT_EQ(SaveAs(folder_ / ansi + "/" + ansi), 1);
  EXPECT_TRUE(folder_.Contents().count("\xC3\xA9/\xC3\xA9"));
  EXPECT_EQ(LoadFile(folder_ / ansi + "/" + ansi), 1);
  EXPECT_EQ(LoadFile(folder_ / "\xC3\xA9/\xC3\xA9"), 0);
}

TEST_F(XmlStore, RefusesWhatIsNoDocumentAndKeepsTheOldOne) {
  Load("<old/>");
  const ptree old = GetTree();
  for (const std::string& text : {
           std::string("text"),
           std::string("<a"),
           std::string("<a>"),
           std::string("<a b></a>"),
           std::string("<a b='></a>"),
           std::string("<a>&#xFFFFFFFF;</a>"),
           std::string("<a>&#65</a>"),
           std::string("<!--"),
           std::string("<![CDATA[x"),
           std::string("<?xml "),
           std::string("<!DOCTYPE a ["),
           std::string("</a>"),
           std::string("\x01\x02\xFF\xFE"),
           std::string("<"),
           std::string("<a></a"),
       }) {
    EXPECT_EQ(LoadString(text.c_str(), 0), 0) << text;
    EXPECT_EQ(GetTree(), old) << text;
  }
  EXPECT_EQ(LoadString(nullptr, 0), 0);
  EXPECT_EQ(LoadString("", 0), 1);  // an empty document is one
  EXPECT_TRUE(GetTree().empty());

  WriteFileBytes(folder_ / "zero.xml", std::string("<a/>\0<b>", 8));
  EXPECT_EQ(LoadFile(folder_ / "zero.xml"), 1);  // read up to the zero byte
  EXPECT_EQ(GetTree().size(), 1U);
}

TEST_F(XmlStore, RefusesDeepNesting) {
  const struct {
    std::string text;
    std::int32_t loaded;
  } kCases[] = {
      {Nested(1000), 1},
      {Nested(1001), 0},
      {Nested(1000, "<b/>"), 0},
      {Nested(200000), 0},
      {std::string(300000, '<'), 0},
      {std::string("<r>") + std::string(100000, ' ') + "</r>", 1},
      // what only looks like the end of an element, or hides its start
      {Nested(600, "<!--" + std::string("</a></a></a>") + "-->" + Nested(401)), 0},
      {Nested(600, "<![CDATA[</a></a></a>]]>" + Nested(401)), 0},
      {Nested(600, "<?p </a></a></a>?>" + Nested(401)), 0},
      {Nested(600, "<b c='</a></a></a>'/>" + Nested(401)), 0},
      {Nested(600, "<b c=\"</a>'</a>\"/>" + Nested(401)), 0},
      {Nested(600, "<!X </a></a></a '>" + Nested(401)), 0},
      {"<b\">" + Nested(1001) + "<c\">", 0},  // a quote in a name quotes nothing
      // what only looks like elements
      {"<r><!--" + Nested(2000) + "--></r>", 1},
      {"<r><![CDATA[" + Nested(2000) + "]]></r>", 1},
      {"<r b='" + Nested(2000) + "'/>", 1},
      {"<!DOCTYPE a [" + Nested(2000) + "]><a/>", 1},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(LoadString(c.text.c_str(), 0), c.loaded) << c.text.substr(0, 60);
  }
  std::string wide = "<r>";
  for (int i = 0; i < 20000; ++i) wide += "<a><b/></a>";
  EXPECT_EQ(LoadString((wide + "</r>").c_str(), 0), 1);
}

TEST_F(XmlStore, CopesWithTheDeepestDocumentItLoads) {
  Load(Nested(1000));
  const boost::shared_ptr<IXMLParse> copy(Clone());
  EXPECT_EQ(copy->GetTree(), GetTree());
  EXPECT_EQ(copy->SaveAs(folder_ / "deep.xml"), 1);
  EXPECT_EQ(LoadFile(folder_ / "deep.xml"), 1);
}

int Depth(const ptree& tree) {
  int depth = 0;
  for (const auto& [key, child] : tree) {
    if (key != "<xmlattr>" && key != "<xmlcomment>") depth = std::max(depth, 1 + Depth(child));
  }
  return depth;
}

// For random soups of the pieces that matter, the guard sees just the depth that the reader meets.
TEST(XmlNesting, SeesTheDepthThatTheReaderMeets) {
  const char* const kPieces[] = {
      "<a>", "</a>",      "<b c='", "'",     "\"", "<b c=\"",       "/>", ">",  "<!--",
      "-->", "<![CDATA[", "]]>",    "<?p ",  "?>", "<!DOCTYPE x [", "]",  "<!", "x",
      " ",   "<c",        "=",      "<a\">", "/"};
  unsigned state = 12345;
  const auto random = [&](unsigned below) {
    state = state * 1664525U + 1013904223U;
    return (state >> 16) % below;
  };
  int parsed = 0;
  for (int run = 0; run < 60000; ++run) {
    std::string text;
    for (unsigned i = random(12); i > 0; --i) text += kPieces[random(std::size(kPieces))];
    if (random(2) == 0) text = "<r>" + text + "</r>";
    std::istringstream stream(text);
    ptree tree;
    try {
      read_xml(stream, tree, boost::property_tree::xml_parser::trim_whitespace);
    } catch (const boost::property_tree::xml_parser_error&) {
      continue;
    }
    ++parsed;
    const int depth = Depth(tree);
    EXPECT_FALSE(NestsDeeperThan(text.c_str(), depth)) << text;
    if (depth > 0) {
      EXPECT_TRUE(NestsDeeperThan(text.c_str(), depth - 1)) << text;
    }
  }
  EXPECT_GT(parsed, 1000);
}

TEST_F(XmlStore, RefusesHugeFiles) {
  const std::string file = folder_ / "sparse.xml";
  for (const std::int64_t size : {std::int64_t{3} << 30, std::int64_t{5} << 30}) {
    WriteFileBytes(file, "<a/>");
    const HANDLE handle = CreateFileW(Utf8ToWide(file).c_str(), GENERIC_WRITE, 0, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    LARGE_INTEGER end;
    end.QuadPart = size;
    SetFilePointerEx(handle, end, nullptr, FILE_BEGIN);
    SetEndOfFile(handle);
    CloseHandle(handle);
    EXPECT_EQ(LoadFile(file), 0);
  }
  WriteFileBytes(file, "<a/>");
  {
    const FileLock lock(file);
    EXPECT_EQ(LoadFile(file), 0);
  }
  EXPECT_EQ(LoadFile(file), 1);  // nothing of the failures still holds the file
}

TEST_F(XmlStore, IsCreatedAndCloned) {
  boost::shared_ptr<IXMLParse> store;
  ASSERT_EQ(CreateXMLParse(store), 0);
  WriteFileBytes(folder_ / "a.xml", "<r a='1'/>");
  ASSERT_EQ(store->LoadFile(folder_ / "a.xml"), 1);
  const boost::shared_ptr<IXMLParse> copy(store->Clone());
  EXPECT_EQ(copy->IsLoaded(), 1);
  EXPECT_EQ(copy->PutInt("r.a", 2), 1);
  std::int32_t value = 0;
  EXPECT_EQ(store->GetInt("r.a", value), 1);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(copy->Save(), 1);
  EXPECT_NE(ReadFileBytes(folder_ / "a.xml").find("a=\"2\""), std::string::npos);
}

// Paths.

TEST_F(XmlStore, TurnsPathsIntoAttributePaths) {
  const char* const kCases[][2] = {{"root.a.b", "root.a.<xmlattr>.b"},
                                   {"root.<xmlattr>.b", "root.<xmlattr>.b"},
                                   {"a.<xmlattr>.b.c", "a.<xmlattr>.b.c"},
                                   {".a", ".<xmlattr>.a"},
                                   {"a.", "a.<xmlattr>."}};
  for (const auto& c : kCases) {
    std::string path = c[0];
    ToAttrPath(path);
    EXPECT_EQ(path, c[1]);
  }
  std::string path = "root";
  EXPECT_THROW(ToAttrPath(path), std::out_of_range);

  Load("<r><a/><a b='1'><c/></a></r>");
  const struct {
    const char* path;
    std::int32_t exists;
  } kExists[] = {{"r", 1},    {"r.a", 1}, {"r.a.c", 0}, {"", 0},  {".", 0},
                 {"r..a", 0}, {"r.", 0},  {".r", 0},    {"x", 0}, {"r.a.<xmlattr>.b", 0}};
  for (const auto& c : kExists) EXPECT_EQ(Exists(c.path), c.exists) << c.path;
}

// Single values, the same rules for each type.

template <typename Value>
struct Operations {
  const char* name;
  std::int32_t (IXMLParse::*get)(std::string, Value&);
  std::int32_t (IXMLParse::*put)(std::string, Value);
  std::int32_t (IXMLParse::*setAttr)(std::string, Value);
  std::int32_t (IXMLParse::*set)(std::string, Value);
  std::vector<std::pair<Value, std::string>> texts;  // values and how they are stored
  std::vector<std::string> unreadable;
  Value missing;  // what a missing value reads as
  std::int32_t missingResult;
};

const Operations<float> kFloat = {"float",
                                  &IXMLParse::GetFloat,
                                  &IXMLParse::PutFloat,
                                  &IXMLParse::SetFloatAttr,
                                  &IXMLParse::SetFloat,
                                  {{0.1F, "0.100000001"},
                                   {1.5F, "1.5"},
                                   {-0.0F, "-0"},
                                   {16777216.0F, "16777216"},
                                   {1e30F, "1.00000002e+30"},
                                   {std::numeric_limits<float>::max(), "3.40282347e+38"},
                                   {-99999.9F, "-99999.8984"}},
                                  {"", "x", "1,5", "1.5x", "1e40", "inf", "nan", "0x"},
                                  -99999.9F,
                                  1};
const Operations<std::int64_t> kInt64 = {
    "int64",
    &IXMLParse::GetInt64,
    &IXMLParse::PutInt64,
    &IXMLParse::SetInt64Attr,
    &IXMLParse::SetInt64,
    {{0, "0"}, {INT64_MAX, "9223372036854775807"}, {INT64_MIN, "-9223372036854775808"}},
    {"", "12abc", "9223372036854775808", "1.5", "-9999999"},
    -9999999,
    0};
const Operations<std::int32_t> kInt = {
    "int",
    &IXMLParse::GetInt,
    &IXMLParse::PutInt,
    &IXMLParse::SetIntAttr,
    &IXMLParse::SetInt,
    {{1234567, "1234567"}, {INT32_MAX, "2147483647"}, {INT32_MIN, "-2147483648"}},
    {"", "12abc", "2147483648", "-9999999"},
    -9999999,
    0};
const Operations<std::string> kString = {
    "string",
    &IXMLParse::GetString,
    &IXMLParse::PutString,
    &IXMLParse::SetStringAttr,
    &IXMLParse::SetString,
    {{"", ""}, {" a<b\t\n\xC3\xA9", " a<b\t\n\xC3\xA9"}, {"12abc", "12abc"}},
    {"{__see_it_is_read_string_failed_}"},
    "unchanged",
    0};

class XmlValues : public XmlStore {
 protected:
  template <typename Value>
  void Check(const Operations<Value>& o) {
    SCOPED_TRACE(o.name);
    IXMLParse& store = *this;
    Value out = o.missing;
    GetTree().clear();
    for (const auto& [value, text] : o.texts) {
      EXPECT_EQ((store.*o.put)("root.a.n", value), 1);
      EXPECT_EQ(GetTree().get<std::string>("root.a.<xmlattr>.n"), text);
      EXPECT_EQ((store.*o.get)("root.a.n", out), 1) << text;
      EXPECT_EQ(out, value) << text;
      EXPECT_EQ((store.*o.get)("root.a.<xmlattr>.n", out), 1);
    }
    EXPECT_EQ(GetTree().get_child("root.a").size(), 1U) << "replaced, not added";

    for (const std::string& text : o.unreadable) {
      GetTree().put("root.a.<xmlattr>.n", text);
      out = o.missing;
      EXPECT_EQ((store.*o.get)("root.a.n", out), o.missingResult) << text;
      EXPECT_EQ(out, o.missing) << text;
    }
    EXPECT_EQ((store.*o.get)("root.none.n", out), o.missingResult);
    EXPECT_EQ(out, o.missing);

    // Without a "." getting and putting fail, the attribute forms throw.
    const auto& [value, text] = o.texts[1];
    const ptree before = GetTree();
    out = value;
    EXPECT_EQ((store.*o.get)("root", out), 0);
    EXPECT_EQ(out, value);
    EXPECT_EQ((store.*o.put)("root", value), 0);
    EXPECT_THROW((store.*o.setAttr)("root", value), std::out_of_range);
    EXPECT_EQ(GetTree(), before);

    // Set…Attr: a new attribute, then the same one again.
    GetTree().clear();
    EXPECT_EQ((store.*o.setAttr)("root.a.n", o.texts[0].first), 1);
    EXPECT_EQ((store.*o.setAttr)("root.a.n", value), 1);
    EXPECT_EQ(GetTree().get_child("root.a.<xmlattr>").size(), 1U);
    EXPECT_EQ(GetTree().get<std::string>("root.a.<xmlattr>.n"), text);

    // Set…: a new element, which getting does not see; then, over the element, an attribute.
    EXPECT_EQ((store.*o.set)("root.b.n", o.texts[0].first), 1);
    EXPECT_EQ(GetTree().get<std::string>("root.b.n"), o.texts[0].second);
    out = o.missing;
    EXPECT_EQ((store.*o.get)("root.b.n", out), o.missingResult);
    EXPECT_EQ((store.*o.set)("root.b.n", value), 1);
    EXPECT_EQ(GetTree().get<std::string>("root.b.n"), o.texts[0].second);
    EXPECT_EQ(GetTree().get<std::string>("root.b.<xmlattr>.n"), text);
    EXPECT_EQ((store.*o.set)("top", value), 1);
    EXPECT_EQ((store.*o.set)("top", value), 0) << "no attribute without an element above it";
  }
};

TEST_F(XmlValues, FollowTheSameRulesForEachType) {
  Check(kFloat);
  Check(kInt64);
  Check(kInt);
  Check(kString);
}

TEST_F(XmlValues, AcceptWhiteSpaceBehindNumbers) {
  std::int32_t value = 0;
  GetTree().put("r.<xmlattr>.n", "12 \t\n");
  EXPECT_EQ(GetInt("r.n", value), 1);
  EXPECT_EQ(value, 12);
  EXPECT_EQ(PutFloat("r.n", std::numeric_limits<float>::infinity()), 1);
  float number = 0;
  EXPECT_EQ(GetFloat("r.n", number), 1);
  EXPECT_EQ(number, -99999.9F);
}

struct German : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(XmlValues, IgnoreTheProcessLocale) {
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new German));
  Check(kFloat);
  Check(kInt);
  EXPECT_EQ(SetString("root.v", ""), 1);
  EXPECT_EQ(PutIntVector("root.v", {1234567}), 1);
  EXPECT_EQ(GetTree().get<std::string>("root.v.item.<xmlattr>.key"), "1234567");
  std::locale::global(before);
}

// A store that sees what is forwarded to it.
class CountingStore : public XMLParse {
 public:
  std::int32_t PutInt(std::string path, std::int32_t) override { return Seen(path); }
  std::int32_t PutString(std::string path, std::string) override { return Seen(path); }
  std::int32_t Remove(std::string path) override { return Seen(path); }
  std::int32_t PutFloatVector(std::string path, const std::vector<float>&) override {
    return Seen(path);
  }
  std::int32_t LoadString(const char* text, std::int32_t length) override {
    Seen(text);
    return XMLParse::LoadString(text, length);
  }
  std::string seen;

 private:
  std::int32_t Seen(const std::string& path) {
    seen += path + ";";
    return 1;
  }
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
  const char kDocument[] = "<r a='1' b='2'><i/><j/><i x='1'/><i/><r>in</r></r>";
  const struct {
    std::int32_t (IXMLParse::*remove)(std::string);
    const char* path;
    std::int32_t result;
    const char* left;
  } kCases[] = {
      {&IXMLParse::Remove, "r.none", 1, kDocument},
      {&IXMLParse::Remove, "none", 1, kDocument},
      {&IXMLParse::Remove, "r.i", 1, "<r a='1' b='2'><j/><i x='1'/><i/><r>in</r></r>"},
      {&IXMLParse::Remove, "r.r", 1, "<r a='1' b='2'><i/><j/><i x='1'/><i/></r>"},
      {&IXMLParse::Remove, "r", 1, "<r a='1' b='2'><i/><j/><i x='1'/><i/></r>"},
      {&IXMLParse::RemoveAttr, "r.a", 1, "<r b='2'><i/><j/><i x='1'/><i/><r>in</r></r>"},
      {&IXMLParse::RemoveAll, "r.i", 1, "<r a='1' b='2'><j/><r>in</r></r>"},
      {&IXMLParse::RemoveAll, "r.none", 1, kDocument},
      {&IXMLParse::RemoveAll, "none.i", 1, kDocument},
      {&IXMLParse::RemoveAll, "r", 0, kDocument},
      {&IXMLParse::RemoveAll, "r.", 0, kDocument},
      {&IXMLParse::RemoveAll, ".r", 0, kDocument},
  };
  for (const auto& c : kCases) {
    Load(c.left);
    const ptree left = GetTree();
    Load(kDocument);
    IXMLParse& store = *this;
    EXPECT_EQ((store.*c.remove)(c.path), c.result) << c.path;
    EXPECT_EQ(GetTree(), left) << c.path;
  }
  EXPECT_THROW(RemoveAttr("r"), std::out_of_range);
  Load("<q><i/></q>");
  EXPECT_EQ(Remove("q"), 1) << "nothing of that name inside: nothing is removed";
  EXPECT_EQ(GetTree().get_child("q").size(), 1U);
}

// The trace.

std::string tracedLines;

LONG CALLBACK CatchDebugOutput(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  if (record.ExceptionCode != DBG_PRINTEXCEPTION_C) return EXCEPTION_CONTINUE_SEARCH;
  tracedLines += reinterpret_cast<const char*>(record.ExceptionInformation[1]);
  return EXCEPTION_CONTINUE_EXECUTION;
}

TEST_F(XmlStore, TracesFailuresWhenSwitchedOn) {
  std::int32_t int32 = 0;
  std::int64_t int64 = 0;
  float number = 0;
  std::string text;
  const auto failEach = [&](const std::string& path) {
    tracedLines.clear();
    GetInt(path, int32);
    GetInt64(path, int64);
    GetFloat(path, number);
    GetString(path, text);
    PutInt(path, 0);
    PutInt64(path, 0);
    PutFloat(path, 0);
    PutString(path, "");
  };
  void* const handler = AddVectoredExceptionHandler(1, CatchDebugOutput);
  failEach("nodot");
  EXPECT_EQ(tracedLines, "");

  corekit::EnableTrace(true);
  failEach("nodot");
  std::string unstamped;
  std::istringstream lines(tracedLines);
  for (std::string line; std::getline(lines, line);) {
    ASSERT_GT(line.size(), 13U);
    EXPECT_EQ(line[2], ':');
    EXPECT_EQ(line[8], '.');
    unstamped += line.substr(13) + "\n";
  }
  EXPECT_EQ(unstamped,
            "XMLParse: error read int from nodot\n"
            "XMLParse: error read __int64 from nodot\n"
            "XMLParse: error read flot from nodot\n"
            "XMLParse: error WriteXML int to nodot\n"
            "XMLParse: error WriteXML int to nodot\n"
            "XMLParse: error WriteXML float to nodot\n");

  // Values that do not convert are no failures.
  tracedLines.clear();
  PutString("r.n", "12abc");
  GetInt("r.n", int32);
  EXPECT_EQ(tracedLines, "");
  GetInt(std::string(20000, '%'), int32);
  EXPECT_EQ(tracedLines.size(), 10239U);
  EXPECT_EQ(tracedLines.back(), '%');
  corekit::EnableTrace(false);
  RemoveVectoredExceptionHandler(handler);
}

// Vectors.

TEST_F(XmlStore, KeepsVectors) {
  Load("<root><list a='1'><item key='9'/><other/><item key='8'/></list></root>");
  EXPECT_EQ(PutFloatVector("root.list", {1.5F, 2, 0.1F}), 1);
  EXPECT_EQ(Saved(),
            "<root>\n\t<list a=\"1\">\n\t\t<other/>\n\t\t<item key=\"1.5\"/>\n\t\t<item key=\"2\"/>"
            "\n\t\t<item key=\"0.100000001\"/>\n\t</list>\n</root>\n");
  std::vector<float> floats = {7};
  EXPECT_EQ(GetFloatVector("root.list", floats), 0) << "another child is no entry";
  EXPECT_TRUE(floats.empty());
  RemoveAll("root.list.other");
  ASSERT_EQ(LoadFile(folder_ / "saved.xml"), 1);
  RemoveAll("root.list.other");
  EXPECT_EQ(GetFloatVector("root.list", floats), 1);
  EXPECT_EQ(floats, (std::vector<float>{1.5F, 2, 0.1F}));

  const std::vector<std::string> strings = {"", " a<b ", "\xC3\xA9", "  "};
  EXPECT_EQ(PutStringVector("root.list", strings), 1);
  Saved();
  ASSERT_EQ(LoadFile(folder_ / "saved.xml"), 1);
  std::vector<std::string> read = {"old"};
  EXPECT_EQ(GetStringVector("root.list", read), 1);
  EXPECT_EQ(read, strings);
  EXPECT_EQ(PutIntVector("root.list", {}), 1);
  std::vector<std::int32_t> ints = {1};
  EXPECT_EQ(GetIntVector("root.list", ints), 1);
  EXPECT_TRUE(ints.empty());
  EXPECT_EQ(PutIntVector("root.list", {INT32_MIN, INT32_MAX}), 1);
  EXPECT_EQ(GetIntVector("root.list", ints), 1);
  EXPECT_EQ(ints, (std::vector<std::int32_t>{INT32_MIN, INT32_MAX}));
}

TEST_F(XmlStore, ReadsVectorsUpToTheFirstFault) {
  const struct {
    const char* items;
    std::int32_t result;
    std::vector<std::int32_t> out;
  } kCases[] = {
      {"", 1, {}},
      {"<item key='1'/><item key='2'/>", 1, {1, 2}},
      {"<item key='1'>text<more/></item>", 1, {1}},
      {"<item key='1'/><!-- c --><item key='2'/>", 0, {1}},
      {"<item key='1'/><item/><item key='2'/>", 0, {1}},
      {"<item key='1'/><item other='2'/>", 0, {1}},
      {"<item key='1'/><Item key='2'/>", 0, {1}},
      {"<item key='1'/><item key='2x'/>", 0, {1}},
      {"<item key='2147483648'/>", 0, {}},
  };
  for (const auto& c : kCases) {
    Load(std::string("<r><v a='1'>") + c.items + "</v></r>");
    std::vector<std::int32_t> out = {42};
    EXPECT_EQ(GetIntVector("r.v", out), c.result) << c.items;
    EXPECT_EQ(out, c.out) << c.items;
  }
  Load("<r/>");
  const ptree before = GetTree();
  std::vector<float> floats = {1};
  std::vector<std::int32_t> ints = {1};
  std::vector<std::string> strings = {"1"};
  EXPECT_EQ(GetFloatVector("r.v", floats), 0);
  EXPECT_EQ(GetIntVector("r.v", ints), 0);
  EXPECT_EQ(GetStringVector("r.v", strings), 0);
  EXPECT_EQ(floats.size() + ints.size() + strings.size(), 0U);
  EXPECT_EQ(PutFloatVector("r.v", {1}), 0);
  EXPECT_EQ(PutIntVector("r.v", {1}), 0);
  EXPECT_EQ(PutStringVector("r.v", {"1"}), 0);
  EXPECT_EQ(GetTree(), before);
}

TEST_F(XmlStore, SetsVectorsEachInItsOwnWay) {
  Load("<r/>");
  EXPECT_EQ(SetIntVector("r.i", {1}), 1);
  EXPECT_EQ(Saved(), "<r/>\n");
  EXPECT_EQ(SetFloatVector("r.f", {1}), 0);
  EXPECT_EQ(Saved(), "<r f=\"\"/>\n");
  EXPECT_EQ(SetStringVector("r.s", {"x"}), 1);
  EXPECT_EQ(SetStringVector("r.s", {"y"}), 1);
  EXPECT_EQ(Saved(), "<r f=\"\" s=\"\">\n\t<s>\n\t\t<item key=\"y\"/>\n\t</s>\n</r>\n");
  EXPECT_EQ(SetFloatVector("r.s", {2}), 1);
  EXPECT_EQ(Saved(), "<r f=\"\" s=\"\">\n\t<s>\n\t\t<item key=\"2\"/>\n\t</s>\n</r>\n");
  EXPECT_THROW(SetFloatVector("r", {1}), std::out_of_range);
}

// Keyed records.

TEST_F(XmlStore, ReadsKeyedRecords) {
  const std::map<std::int32_t, std::string> kFields = {{0, "key"}, {1, "src"}};
  const struct {
    const char* items;
    std::int32_t result;
    KeyedRecords records;
  } kCases[] = {
      {"", 0, {}},
      {"<i key='b' src='1'/><j key='a' src='2' x='y'>t<u/></j><i key='b' src='3'/>",
       0,
       {{"a", {{0, "a"}, {1, "2"}}}, {"b", {{0, "b"}, {1, "1"}}}}},
      {"<i src='1'/><i src='2'/><i key='' src='3'/>",
       0,
       {{"?", {{0, "?"}, {1, "1"}}}, {"", {{0, ""}, {1, "3"}}}}},
      {"<i key='a'/><i/><i key='b'/>", kFailed, {{"a", {{0, "a"}, {1, "?"}}}}},
      {"<i key='a'/><!-- c -->", kFailed, {{"a", {{0, "a"}, {1, "?"}}}}},
      {"<i.j key='a'/>", kFailed, {}},  // its name is a path that leads nowhere
      {"text<![CDATA[ more]]>", 0, {}},
  };
  for (const auto& c : kCases) {
    Load(std::string("<root><task key='own'>") + c.items + "</task></root>");
    const ptree before = GetTree();
    KeyedRecords records = {{"old", {}}};
    EXPECT_EQ(ReadKeyedRecords(GetTree(), "root.task", records, kFields, "?"), c.result) << c.items;
    EXPECT_EQ(records, c.records) << c.items;
    EXPECT_EQ(GetTree(), before);
  }
  KeyedRecords records = {{"old", {}}};
  EXPECT_EQ(ReadKeyedRecords(GetTree(), "root.none", records, kFields, "?"), kFailed);
  EXPECT_TRUE(records.empty());

  // Indexes count from 0 whatever the table holds; one that it lacks reads as the default.
  Load("<r><i key='a' x='1'/></r>");
  EXPECT_EQ(ReadKeyedRecords(GetTree(), "r", records, {{0, "key"}, {5, "x"}}, "?"), 0);
  EXPECT_EQ(records, (KeyedRecords{{"a", {{0, "a"}, {1, "?"}}}}));
  EXPECT_EQ(ReadKeyedRecords(GetTree(), "r", records, {}, "?"), 0);
  EXPECT_EQ(records, (KeyedRecords{{"?", {}}}));
}

}  // namespace
