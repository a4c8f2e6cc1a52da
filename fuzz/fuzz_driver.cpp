// Feeds seeded random input to the INI reader and writer, the XML store and the keyed records and
// checks what must hold for any input. A violation or a crash ends it, saying how to repeat it.
#include <windows.h>

#include <algorithm>
#include <boost/property_tree/xml_parser.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "inifile/ini_file.h"
#include "xmlstore/keyed_records.h"
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

// SplitMix64 and remainders make the same choices with every library.
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

// "|" stands between the pieces.
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

void FuzzIni() {
  const std::string text = Mutated(Soup(kLines, 12), kLines);
  const std::string section = OneIn(9) ? "" : Of(kNames), key = Of(kNames), value = Of(kNames);
  input = text + " <- " + section + " | " + key + " | " + value;
  const auto get = [&] { return CIniFile::GetValue(key, section, kFile); };
  const auto set = [&] { return CIniFile::SetValue(key, value, section, kFile); };
  std::vector<CIniFile::Record> list;
  const auto load = [&] { return CIniFile::Load(kFile, list); };
  WriteBytes(text);
  if (Throws<std::out_of_range>(load)) {
    Require(Throws<std::out_of_range>(get) && Throws<std::out_of_range>(set), "all of them throw");
    return Require(ReadBytes() == text, "an exception leaves the file as it was");
  }
  const auto in = [&](auto& record) { return record.Section == section; };
  const auto match = [&](auto& record) { return in(record) && record.Key == key; };
  auto header = std::find_if(list.begin(), list.end(), in);
  const auto found = std::find_if(list.begin(), list.end(), match);
  const bool known = found != list.end();
  Require(get() == (known ? found->Value : ""), "GetValue gives the first value");
  Require(set(), "SetValue succeeds");
  if (known) found->Value = value;
  if (header == list.end()) header = list.insert(header, {"", ' ', section, "", ""});
  if (!known) list.insert(header + 1, {"", ' ', section, key, value});

  std::string bytes, current;
  bool stable = true, inPlace = true, broken = false;
  for (const auto& r : list) {
    std::string line = r.Key.empty() ? "[" + r.Section + "]" : r.Key + "=" + r.Value;
    broken = broken || (!r.Key.empty() && line.find('[') != std::string::npos);
    line = r.Comments + (r.Commented == ' ' ? "" : std::string(1, r.Commented)) + line + "\n";
    for (const char c : line) bytes += c == '\n' ? "\r\n" : std::string(1, c);
    if (r.Key.empty()) current = r.Section;  // a header by now, whatever it was
    inPlace = inPlace && r.Section == current;
    stable = stable && r.Section.find('=', 1) == std::string::npos;
  }
  Require(ReadBytes() == bytes, "the file holds the records with that one change");
  // A header whose name holds "=" behind its start is written as a key, which may read as something
  // else, or as a header without its end.
  Require(Throws<std::out_of_range>(load) == broken, "what was written loads");
  if (!stable) return;
  Require(CIniFile::Save(kFile, list), "Save succeeds");
  Require(ReadBytes() == bytes, "saving what was loaded changes nothing");
  Require(!inPlace || get() == value, "the value reads back");
}

const Strings kTexts = Split("x| |  |\t|\r\n|<|>|&|\"|'|\xE2\x82\xAC|1|&amp;|&#32;|\x0B |]]>|\xFF");
const Strings kDecoys = Split(
    "<!--</a>-->|<!--<a>-->|<![CDATA[</a>]]>|<?p </a>?>|<!X </a>|<b c='</a>'/>|<b c=\"'</a>\"/>|"
    "<b/>|<!DOCTYPE x [</a>]>|<c\"></a>|<d>x</d>");
const Strings kMarkup = Split(
    "<a>|</a>|<b c='|'|\"|<b c=\"|/>|>|<!--|-->|]]>|<?p |?>|]|<!|x| |<c|=|/|&lt;|&#|;|<a\">|<|[|\n|"
    "<![CDATA[|<!DOCTYPE x [|<?xml |&#x41;|&#0;|\xEF\xBB\xBF|<b c=''>");

std::string MakePath() { return "r." + Of(kNames) + (OneIn(2) ? "" : "." + Of(kNames)); }

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
  std::ostringstream stream;
  write_xml(stream, store.GetTree());
  input = stream.str();
  return store;
}

int Depth(const ptree& tree) {
  int depth = 0;
  for (const auto& [key, child] : tree) {
    if (key != "<xmlattr>" && key != "<xmlcomment>") depth = std::max(depth, 1 + Depth(child));
  }
  return depth;
}

// What a saved tree loads as: attributes first, text without white space around it and with single
// blanks inside. Of text that is blanks alone one survives, unless it is all that an element has.
ptree Normal(const ptree& tree) {
  ptree result;
  for (const auto& [key, child] : tree) {
    if (key != "<xmlattr>") result.push_back({key, key == "<xmlcomment>" ? child : Normal(child)});
  }
  std::string& text = result.data();
  for (const char c : tree.data()) {
    const bool blank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
    if (!blank || (!text.empty() && text.back() != ' ')) text += blank ? ' ' : c;
  }
  if (!text.empty() && text.back() == ' ') text.pop_back();
  const std::size_t size = tree.data().size();
  if (tree.data() == std::string(size, ' ') && size > (result.empty() ? 1U : 0U)) text = " ";
  const ptree none;
  const ptree attributes = tree.get_child("<xmlattr>", none);
  if (!attributes.empty()) result.push_front({"<xmlattr>", attributes});
  return result;
}

XMLParse Reloaded(XMLParse store) {
  const ptree normal = Normal(store.GetTree());
  XMLParse loaded;
  Require(store.SaveAs(kFile) == 1 && loaded.LoadFile(kFile) == 1, "what is saved loads");
  Require(loaded.GetTree() == normal, "what is saved loads to an equal tree");
  const std::string bytes = ReadBytes();
  Require(loaded.Save() == 1, "what was loaded is saved");
  Require(store.GetTree() != normal || ReadBytes() == bytes, "saving again changes nothing");
  return loaded;
}

void FuzzXmlLoad() {
  XMLParse store = MakeStore(), file;
  const ptree old = store.GetTree();
  std::string text = OneIn(3) ? input : Soup(kMarkup, 12);
  if (OneIn(2)) text = "<a>" + Soup(kDecoys, 3) + text + "</a>";
  if (OneIn(20)) {  // about as deep as may be, or far deeper
    const std::size_t levels = OneIn(20) ? 1 + Below(50000) : 995 + Below(15),
                      outer = Below(levels);
    text = Repeat("<a>", outer) + Soup(kDecoys, 20) + Repeat("<a>", levels - outer) +
           Repeat("</a>", levels);
  }
  input = text = OneIn(2) ? text : Mutated(text, kMarkup);
  const bool loaded = store.LoadString(text.c_str(), 0) == 1;
  const ptree& tree = store.GetTree();
  Require(loaded ? Depth(tree) <= 1000 : tree == old, "a tree of at most 1000 levels, or the old");
  if (std::count(text.begin(), text.end(), '<') < 2500) {  // the reader survives that many levels
    ptree read;
    std::istringstream stream(text.substr(0, text.find('\0')));
    const auto parse = [&] {
      read_xml(stream, read, boost::property_tree::xml_parser::trim_whitespace);
    };
    const bool good = !Throws<boost::property_tree::xml_parser_error>(parse) && Depth(read) <= 1000;
    Require(loaded == good && (!good || tree == read), "what is well-formed loads");
  }
  if (!OneIn(40)) return;
  WriteBytes(text);
  Require(file.LoadFile(kFile) == loaded && file.IsLoaded() == loaded, "LoadFile agrees");
  Require(!loaded || file.GetTree() == tree, "LoadFile gives the same tree");
  // A reference can stand for the zero byte, which ends what is saved.
  if (loaded && text.find("&#") == std::string::npos) Reloaded(store);
}

void FuzzXmlSave() {
  XMLParse store = MakeStore();
  const std::unique_ptr<XMLParse> copy(store.Clone());
  Require(copy->GetTree() == store.GetTree(), "a clone is equal");
  Reloaded(store);
}

void FuzzRecords() {
  XMLParse store = MakeStore();
  if (OneIn(40)) store = Reloaded(store);
  const std::string path = OneIn(2) ? "r" : MakePath();
  const std::map<std::int32_t, std::string> fields = {{0, Of(kNames)}, {1, Of(kNames)}};
  const auto list = store.GetTree().get_child_optional(path);
  bool good = list.has_value();
  KeyedRecords expected, records = {{"old", {}}};
  for (const auto& [name, child] : list ? *list : ptree()) {
    if (name == "<xmlattr>") continue;
    const auto attributes = child.get_child_optional("<xmlattr>");
    good = attributes.has_value();
    if (!good) break;
    const auto field = [&](int index) { return attributes->get(fields.at(index), "none"); };
    expected.insert({field(0), {{0, field(0)}, {1, field(1)}}});
  }
  const std::int32_t status = ReadKeyedRecords(store.GetTree(), path, records, fields, "none");
  Require((status == 0) == good, "reading fails at a record without attributes only");
  Require(records == expected, "of each key the first record is read, up to the failure");
}

void FuzzValues() {
  const auto check = [](auto put, auto get, auto value) {
    const std::string path = MakePath();
    XMLParse store;
    store.SetStringVector(path, {"old"});
    Require((store.*put)(path, value) == 1, "Put succeeds");
    store = OneIn(40) ? Reloaded(store) : store;
    decltype(value) out = {};
    Require((store.*get)(path, out) == 1 && out == value, "Get gives what Put took");
  };
  const auto wide = static_cast<std::int64_t>(Below(SIZE_MAX)) >> Below(64);
  const auto word = static_cast<std::int32_t>(wide);
  const float real = static_cast<float>(wide) * 1e-9F;
  const std::string text = Soup(kTexts, 3);
  check(&XMLParse::PutInt, &XMLParse::GetInt, word);
  check(&XMLParse::SetInt64Attr, &XMLParse::GetInt64, wide);
  check(&XMLParse::PutFloat, &XMLParse::GetFloat, real);
  check(&XMLParse::PutString, &XMLParse::GetString, text);
  check(&XMLParse::PutIntVector, &XMLParse::GetIntVector, std::vector{word, 0, word});
  check(&XMLParse::PutFloatVector, &XMLParse::GetFloatVector, std::vector{real, 0.1F});
  check(&XMLParse::PutStringVector, &XMLParse::GetStringVector, Strings{text, "", "x"});
}

const char* const kTargets[] = {"INI", "XML load", "XML save", "records", "values"};
void (*const kFuzz[])() = {FuzzIni, FuzzXmlLoad, FuzzXmlSave, FuzzRecords, FuzzValues};
constexpr std::size_t kTurns[] = {0, 1, 3, 1, 4, 1, 3, 1, 2, 1, 3, 1, 4, 1, 3, 1};

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
  Number runs[std::size(kFuzz)] = {};
  for (; counted ? run < limit : GetTickCount64() - start < limit * 1000; ++run) {
    state = seed + run;
    const std::size_t turn = kTurns[state % std::size(kTurns)];
    target = kTargets[turn];
    Require(!Throws<std::exception>(kFuzz[turn]), "no other exception leaves");
    ++runs[turn];
  }
  const double seconds = static_cast<double>(GetTickCount64() - start) / 1000;
  for (int i = 0; i < 5; ++i) std::printf("%-10s%12llu\n", kTargets[i], runs[i]);
  std::printf("%-10s%12llu executions, seed %llu, %.1f s\n", "all", run, seed, seconds);
  std::remove(kFile.c_str());
}
