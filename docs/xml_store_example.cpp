// How to use the XML store: writes an operation list and some settings, and reads them back. One of
// the tests.

#include <boost/shared_ptr.hpp>
#include <cstdio>
#include <vector>

#include "xmlstore/xml_parse.h"

int main() {
  boost::shared_ptr<IXMLParse> store;
  if (CreateXMLParse(store) != 0) return 1;

  // An operation list: one element for each item, with its fields as attributes. PutString creates
  // the missing elements above an attribute.
  store->PutString("root.task.item.key", "1");
  store->PutString("root.task.item.src", "C:/music/new/");
  store->PutString("root.task.item.dec", "D:/library/");
  store->PutString("root.task.item.type", "dir");

  // Single values are attributes. SetStringVector creates the element that holds a vector;
  // Put…Vector replaces the content of an existing one.
  store->PutFloat("root.player.volume", 0.8F);
  store->PutInt("root.player.track", 12);
  store->SetStringVector("root.player.recent", {"one.mp3", "two.mp3"});
  store->PutStringVector("root.player.recent", {"three.mp3"});

  // 1 means written. For a file that cannot be opened the result is 0x80004005, which is not 0.
  if (store->SaveAs("example.xml") != 1) return 1;

  boost::shared_ptr<IXMLParse> read;
  if (CreateXMLParse(read) != 0 || read->LoadFile("example.xml") == 0) return 1;
  std::remove("example.xml");

  std::int32_t track = 0;
  if (read->GetInt("root.player.track", track) == 0) return 1;  // 0: absent or not a number

  // A missing float gives 1 as well, and the value -99999.9F.
  float volume = 0;
  if (read->GetFloat("root.player.volume", volume) == 0 || volume == -99999.9F) return 1;

  std::vector<std::string> recent;
  if (read->GetStringVector("root.player.recent", recent) == 0) return 1;

  // Read an element's text through the tree.
  read->SetString("root.player.note", "loud");
  const auto note = read->GetTree().get<std::string>("root.player.note");

  const bool asWritten = track == 12 && volume > 0.79F && volume < 0.81F && recent.size() == 1 &&
                         recent[0] == "three.mp3" && note == "loud";
  return asWritten ? 0 : 1;
}
