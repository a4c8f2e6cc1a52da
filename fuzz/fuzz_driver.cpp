// Feeds seeded random input to the INI reader and writer, the XML store and the keyed records, and
// checks what must hold for any input. It ends at a violation or a crash and prints how to repeat
// it. Only a few runs go through files, which take a hundred times as long as memory.
#include <windows.h>

#include <algorithm>
#include <boost/property_tree/xml_parser.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "inifile/ini_file.h"
#include "inifile/ini_parser.h"
#include "xmlstore/keyed_records.h"
#include "xmlstore/nesting.h"
#include "xmlstore/xml_parse.h"

namespace {

using boost::property_tree::ptree;
using corekit::CIniFile;
using Strings = std::vector<std::string>;
using Number = unsigned long long;

const std::string kFile = "fuzz" + std::to_string(GetCurrentProcessId());
const char* target = "";
std::string input;
Number seed = 0, run = 0, state = 0;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "FAILED: %s\n%s, seed %llu, run %llu; repeat with --runs 1 %llu\n", what,
               target, seed, run, seed + run);
  for (const char c : input.substr(0, 9999)) {
    std::fprintf(stderr, c < ' ' || c > '~' || c == '\\' ? "\\x%02X" : "%c", c & 0xFF);
  }
  std::remove(kFile.c_str());
  std::_Exit(1);
}

// SplitMix64 and remainders give the same choices with every standard library.
std::size_t Below(std::size_t limit) {
  Number z = state += 0x9E3779B97F4A7C15U;
  z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9U;
  z = (z ^ z >> 27) * 0x94D049BB133111EBU;
  return static_cast<std::size_t>((z ^ z >> 31) % limit);
}

bool OneIn(std::size_t n) { return Below(n) == 0; }
const std::string& Of(const Strings& pieces) { return pieces[Below(pieces.size())]; }

std::string Soup(const Strings& pieces, std::size_t most) {
  std::string text;
  for (std::size_t i = Below(most + 1); i > 0; --i) text += Of(pieces);
  return text;
}

std::string Repeat(const std::string& piece, std::size_t times) {
  std::string text;
  while (times-- > 0) text += piece;
  return text;
}

std::string Mutated(std::string text, const Strings& pieces) {
  for (std::size_t i = Below(4); i > 0; --i) {
    const std::size_t at = Below(text.size() + 1);
    const std::string part = text.substr(at, OneIn(9) ? text.size() : Below(20));
    const std::string byte(OneIn(40) ? 5000 : 1, static_cast<char>(Below(256)));
    if (OneIn(3)) text.erase(at, part.size());
    text.insert(Below(text.size() + 1), OneIn(2) ? Of(pieces) : OneIn(2) ? part : byte);
  }
  return text;
}

std::string ReadBytes() {
  std::ifstream stream(kFile, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void WriteBytes(const std::string& bytes) { std::ofstream(kFile, std::ios::binary) << bytes; }

// Splits at each "|".
Strings Split(const std::string& text) {
  Strings pieces;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, '|');) pieces.push_back(piece);
  return pieces;
}

template <typename Exception, typename Call>
bool Throws(Call call) try {
  call();
  return false;
} catch (const Exception&) {
  return true;
}

const Strings kNames = Split("a|b|item|k-1|\xC3\xA9|key|src|Z");
const Strings kLines = Split(
    "[a]\n|[b]\r\n|a=v\n|key=1\n|#b=v\n|; note\n|\n|\n|\r|\r\n|[|]|=|#|;| |\t|?\n|x[y]z\n|k|[=b]\n|"
    "a = b\n|[ a ]\n|=x\n|#[b]\n|[]\n|# [b] \n|\x1A|x[y=1]\n|[a=b]\n");

void FuzzIniText() {
  const std::string text = input = Mutated(Soup(kLines, 12), kLines);
  std::string lines;
  corekit::ForEachIniLine(text, [&](const corekit::IniLine& line) {
    lines.append(line.text) += line.ended ? "\n" : "";
  });
  Require(lines == text, "the lines are the text");
  try {
    corekit::ForEachIniRecord(text, [](const corekit::IniRecord& record) {
      Require(record.Key.find('=') == std::string::npos, "a key ends at the first =");
      Require(record.Section.find(']') == std::string::npos, "a name ends at the first ]");
    });
  } catch (const std::out_of_range&) {
    Require(text.find('[') != std::string::npos, "only headers throw");
  }
}

void FuzzIniFile() {
  const std::string text = Mutated(Soup(kLines, 12), kLines);
  const std::string section = OneIn(9) ? "" : Of(kNames), key = Of(kNames), value = Of(kNames);
  input = text + " <- " + section + " | " + key + " | " + value;
  const auto get = [&] { return CIniFile::GetValue(key, section, kFile); };
  const auto set = [&] { return CIniFile::SetValue(key, value, section, kFile); };
  std::vector<CIniFile::Record> list;
  WriteBytes(text);
  if (Throws<std::out_of_range>([&] { CIniFile::Load(kFile, list); })) {
    Require(Throws<std::out_of_range>(get) && Throws<std::out_of_range>(set), "all of them throw");
    return Require(ReadBytes() == text, "an exception leaves the file as it was");
  }
  // Once written, a line that was no entry begins a section, and a header with "=" becomes a key.
  std::string current;
  bool plain = true;
  for (const auto& record : list) {
    if (record.Key.empty()) current = record.Section;
    plain = plain && record.Section == current && current.find('=') == std::string::npos;
  }
  Require(set(), "SetValue succeeds");
  if (!plain) return;
  Require(get() == value, "the value reads back");
  const std::string bytes = ReadBytes();
  Require(set() && ReadBytes() == bytes, "setting it again changes nothing");
}

// None of these has white space that loading would trim.
const Strings kTexts = Split("x|x y|<|>|&|\"|'|\xE2\x82\xAC|1|&amp;|&#32;|\x0B|]]>|\xFF");
const Strings kDecoys = Split(
    "<!--</a>-->|<!--><a>-->|<![CDATA[</a>]]>|<![CDATA[><a>]]>|<?p </a>?>|<?p ><a>?>|<!X </a>|<b/>|"
    "<!DOCTYPE x [</a>]>|<!DOCTYPEx [><a></a>]>|<b c='</a>'/>|<b c=\"'</a>\"/>|<d\tc = '>'\r/><b/>|"
    "<c\"></a>|<d>x</d>|<d></d >|<d></>|<!DOCTYPE x <>");
const Strings kMarkup = Split(
    "<a>|</a>|<b c='|'|\"|<b c=\"|/>|>|<!--|-->|]]>|<?p |?>|]|<!|x| "
    "|<c|=|/|&lt;|&#|;|<a\">|<|[|\n|\t|\r|"
    "<![CDATA[|<!DOCTYPE x [|<?xml |&#x41;|&#0;|\xEF\xBB\xBF|<b c=''>");

std::string MakePath() { return "r." + Of(kNames) + (OneIn(2) ? "" : "." + Of(kNames)); }

std::string Written(XMLParse& store) {
  std::ostringstream stream;
  write_xml(stream, store.GetTree());
  return stream.str();
}

XMLParse MakeStore() {
  XMLParse store;
  for (std::size_t i = Below(16); i > 0; --i) {
    const auto put = OneIn(2) ? &XMLParse::SetStringAttr : &XMLParse::PutString;
    const std::string path = MakePath(), text = Soup(kTexts, 3);
    (store.*(OneIn(2) ? put : &XMLParse::SetString))(path, text);
    if (OneIn(4)) store.SetStringVector(path, {text, "x"});
    if (OneIn(9)) store.GetTree().add(path + ".<xmlcomment>", "c");
    const auto remove = OneIn(2) ? &XMLParse::Remove : &XMLParse::RemoveAll;
    if (OneIn(9)) (store.*(OneIn(2) ? remove : &XMLParse::RemoveAttr))(MakePath());
  }
  input = Written(store);
  return store;
}

int Depth(const ptree& tree) {
  int depth = 0;
  for (const auto& [key, child] : tree) {
    if (key != "<xmlattr>" && key != "<xmlcomment>") depth = std::max(depth, 1 + Depth(child));
  }
  return depth;
}

std::string MakeXml() {
  std::string text = Soup(kMarkup, 12);
  if (OneIn(3)) {
    XMLParse store = MakeStore();
    text = Written(store);
  }
  if (OneIn(2)) text = "<a>" + Soup(kDecoys, 3) + text + "</a>";
  if (OneIn(1000)) {  // about as deep as allowed, or far deeper
    const std::size_t levels = OneIn(20) ? 1 + Below(50000) : 995 + Below(15),
                      outer = Below(levels);
    text = Repeat("<a>", outer) + Soup(kDecoys, 20) + Repeat("<a>", levels - outer) +
           Repeat("</a>", levels);
  }
  return input = OneIn(2) ? text : Mutated(text, kMarkup);
}

void FuzzXmlText() {
  XMLParse store;
  store.GetTree().put("old", "");
  const ptree old = store.GetTree();
  const std::string text = MakeXml();
  const bool loaded = store.LoadString(text.c_str(), 0) == 1;
  const ptree& tree = store.GetTree();
  Require(loaded ? Depth(tree) <= 1000 : tree == old, "a tree of at most 1000 levels, or the old");
  if (std::count(text.begin(), text.end(), '<') > 2500) return;  // too many levels for the reader
  ptree read;
  std::istringstream stream(text.substr(0, text.find('\0')));
  const auto parse = [&] {
    read_xml(stream, read, boost::property_tree::xml_parser::trim_whitespace);
  };
  const bool wellFormed = !Throws<boost::property_tree::xml_parser_error>(parse);
  const int depth = Depth(read);
  const auto isDeeperThan = [&](int limit) {
    return xmlstore::FindNestedDeeperThan(text.c_str(), limit) != nullptr;
  };
  Require(!wellFormed || (!isDeeperThan(depth) && (depth == 0 || isDeeperThan(depth - 1))),
          "the guard sees just the depth that the reader meets");
  const bool good = wellFormed && depth <= 1000;
  Require(loaded == good && (!good || tree == read), "what is well-formed loads");
}

void FuzzXmlFile() {
  XMLParse made = MakeStore(), loaded, file;
  Require(made.SaveAs(kFile) == 1 && loaded.LoadFile(kFile) == 1, "what is saved loads");
  Require(Written(loaded) == Written(made), "it loads as it was");
  const std::string bytes = ReadBytes(), text = MakeXml();
  Require(loaded.Save() == 1 && ReadBytes() == bytes, "saving again changes nothing");
  WriteBytes(text);
  const std::int32_t good = loaded.LoadString(text.c_str(), 0);
  Require(file.LoadFile(kFile) == good, "a file loads as its text does");
  Require(good == 0 || file.GetTree() == loaded.GetTree(), "a file loads as its text does");
}

void FuzzRecords() {
  XMLParse store = MakeStore();
  const std::string path = OneIn(2) ? "r" : MakePath();
  const std::map<std::int32_t, std::string> fields = {{0, Of(kNames)}, {1, Of(kNames)}};
  KeyedRecords records = {{"old", {}}};
  const bool good = ReadKeyedRecords(store.GetTree(), path, records, fields, "none") == 0;
  const auto list = store.GetTree().get_child_optional(path);
  Require(list.has_value() || !good, "there is something to read");
  Require(records.size() <= (list ? list->size() : 0), "no more records than elements");
  for (const auto& [key, record] : records) {
    Require(record.size() == 2 && record.at(0) == key, "each record has its key and its fields");
  }
}

struct Target {
  const char* name;
  void (*fuzz)();
};

const Target kTextTargets[] = {
    {"INI text", FuzzIniText}, {"XML text", FuzzXmlText}, {"records", FuzzRecords}};
const Target kFileTargets[] = {{"INI file", FuzzIniFile}, {"XML file", FuzzXmlFile}};

}  // namespace

int main(int argc, char** argv) {
  const bool counted = argc > 1 && std::strcmp(argv[1], "--runs") == 0;
  const int at = counted ? 2 : 1;
  const Number limit = argc > at ? std::strtoull(argv[at], nullptr, 10) : 60;
  const Number start = GetTickCount64();
  seed = argc > at + 1 ? std::strtoull(argv[at + 1], nullptr, 10) : start;
  std::printf("seed %llu\n", seed);
  std::fflush(stdout);
  SetUnhandledExceptionFilter([](EXCEPTION_POINTERS*) -> LONG {
    Require(false, "nothing crashes");
    return 0;
  });
  std::signal(SIGABRT, [](int) { Require(false, "nothing aborts"); });
  for (; counted ? run < limit : GetTickCount64() - start < limit * 1000; ++run) {
    state = seed + run;
    input.clear();
    const Target& next = OneIn(100) ? kFileTargets[Below(2)] : kTextTargets[Below(3)];
    target = next.name;
    Require(!Throws<std::exception>(next.fuzz), "no other exception leaves");
  }
  std::printf("%llu executions in %llu ms\n", run, GetTickCount64() - start);
  std::remove(kFile.c_str());
}
