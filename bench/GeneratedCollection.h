#pragma once
// The default-size generated collection that benchmarks run on, made once per process.

#include <string>
#include <vector>

#include "librivo/Value.h"

namespace rivo {

class GeneratedCollection {
 public:
  // 100,000 notes, 200,000 cards, 500 decks, 1,000,000 review rows, in a temporary folder
  // removed at exit.
  static const GeneratedCollection& get();

  std::string dir;   // the folder of the collection file (its debug log goes here too)
  std::string path;  // collection.rivo2
  std::vector<Id> noteIds, cardIds;

  // A copy of the collection file beside it, replacing one of that name, on disk before it is
  // returned: for work that writes, or that holds the file's lock while others open it.
  std::string copy(const std::string& name) const;

  ~GeneratedCollection();

 private:
  GeneratedCollection();
};

}  // namespace rivo
