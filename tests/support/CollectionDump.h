#pragma once
// The content of a collection file as text, for comparing two sides of a sync or one side
// before and after: rows in id order, note types, decks, option groups and tag names.

#include <string>

namespace rivo::test {

// Read without opening a Col, so nothing is written. Usns and the per-day deck counters are
// left out unless `withUsn` (they legitimately differ between the two sides of a sync).
std::string dumpCollection(const std::string& path, bool withUsn = false);

}  // namespace rivo::test
