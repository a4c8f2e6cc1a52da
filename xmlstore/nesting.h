// Guards the XML reader, which recurses for every level of nesting and has no limit of its own.
#pragma once

// True when elements nest deeper than `limit` in the zero-terminated document, as far as the
// property tree's reader would get in it. Reads the text once, without recursion.
bool NestsDeeperThan(const char* text, int limit);
