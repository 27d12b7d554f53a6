#pragma once
// The filter options of a filtered deck as its options screen shows and edits them, and the
// build that follows; the screen itself draws these fields.

#include <optional>
#include <string>
#include <vector>

#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class Col;

// An alert for the user: a title and its message.
struct DynDeckAlert {
  std::string title;
  std::string message;
};

class DynDeckOptions {
 public:
  std::string search;
  std::string limitText = "100";
  int order = 0;
  bool customSteps = false;
  std::string stepsText = "1 10";
  bool resched = true;

  // The screen's fields from the deck's first term, `delays` and `resched`.
  static DynDeckOptions load(const Json& deck);
  // Writes the fields into the deck and saves it; with steps that don't parse, nothing changes
  // and the alert is returned.
  std::optional<DynDeckAlert> save(Col& col, Json& deck) const;

  static std::string listToUser(const Json& list);
  // The steps as numbers; nothing (and `alert` set) when a part isn't one or there is none.
  static std::optional<Json> userToList(const std::string& text, DynDeckAlert* alert = nullptr);
  // The leading integer of the text, as a number field reads it: "12x" is 12, "x" is 0.
  static int intValue(const std::string& text);

  // What the build button tells when the search matched nothing, and after a build.
  static constexpr const char* kNoCardsTitle = "No cards";
  static constexpr const char* kNoCardsMessage =
      "The provided search did not match any cards. Would you like to revise it?";
  static constexpr const char* kBuiltMessage =
      "Cards will be returned to their original deck as you answer them. To return all cards "
      "at once, swipe over the custom study deck in the deck list, and delete it.";
};

}  // namespace rivo
