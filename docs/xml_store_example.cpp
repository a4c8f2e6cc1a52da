// How to use the XML store: writes an operation list and a settings document, and reads them back.
// This program is one of the tests.

#include <boost/shared_ptr.hpp>
#include <cstdio>
#include <vector>

#include "xmlstore/xml_parse.h"

int main() {
  boost::shared_ptr<IXMLParse> store;
  if (CreateXMLParse(store) != 0) return 1;

  // An operation list: one element for each item, its fields as attributes. PutString makes the
  // elements above the attribute as they are needed.
  store->PutString("root.task.item.key", "1");
  store->PutString("root.task.item.src", "C:/music/new/");
  store->PutString("root.task.item.dec", "D:/library/");
  store->PutString("root.task.item.type", "dir");

  // Single values live in attributes. SetStringVector creates the element that holds a vector;
  // Put…Vector replaces what an existing one holds.
  store->PutFloat("root.player.volume", 0.8F);
  store->PutInt("root.player.track", 12);
  store->SetStringVector("root.player.recent", {"one.mp3", "two.mp3"});
  store->PutStringVector("root.player.recent", {"three.mp3"});

  // 1 means written; a file that cannot be opened answers 0x80004005, which is not 0 either.
  if (store->SaveAs("example.xml") != 1) return 1;

  boost::shared_ptr<IXMLParse> read;
  if (CreateXMLParse(read) != 0 || read->LoadFile("example.xml") == 0) return 1;
  std::remove("example.xml");

  std::int32_t track = 0;
  if (read->GetInt("root.player.track", track) == 0) return 1;  // 0: absent or not a number

  // A missing float answers 1 as well, with the value -99999.9F.
  float volume = 0;
  if (read->GetFloat("root.player.volume", volume) == 0 || volume == -99999.9F) return 1;

  std::vector<std::string> recent;
  if (read->GetStringVector("root.player.recent", recent) == 0) return 1;

  // An element's text is reached through the tree.
  read->SetString("root.player.note", "loud");
  const auto note = read->GetTree().get<std::string>("root.player.note");

  const bool asWritten = track == 12 && volume > 0.79F && volume < 0.81F && recent.size() == 1 &&
                         recent[0] == "three.mp3" && note == "loud";
  return asWritten ? 0 : 1;
}
