#pragma once
// The shapes of the sync's JSON messages, checked before anything of them is applied: a
// message from the other side that doesn't fit is refused whole, so bad input can neither
// stop the program nor leave half of itself in the collection.

#include <string>
#include <string_view>

#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class SyncMessages {
 public:
  // Each returns what is wrong with the message, or an empty text when it can be applied.
  static std::string checkMeta(const Json& meta);
  // Keys cards, notes and decks, each an array of ids (decimal texts or numbers).
  static std::string checkGraves(const Json& graves);
  // models, decks ([decks, option groups]) and tags; conf and crt when present.
  static std::string checkChanges(const Json& changes);
  // revlog, cards and notes rows in the column order of the wire, with the column types.
  static std::string checkChunk(const Json& chunk);

  // A chunk's `done`: true only when present and true.
  static bool isDone(const Json& chunk) {
    return chunk.is_object() && chunk.value("done", Json()) == true;
  }

  // The deepest nesting of arrays and objects in JSON text, found without parsing it.
  static int nestingDepth(std::string_view text);

  // A database row as a JSON array, and back.
  static Json rowToJson(const Row& row);
  static Row jsonToRow(const Json& row);
  // An id given as a number or as decimal text; 0 when it is neither.
  static Id idOf(const Json& value);
};

}  // namespace rivo
