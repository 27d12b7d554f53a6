#pragma once
// The decks and their option groups: the `decks` and `dconf` blobs of the collection.
//
// Decks form a tree only through their names ("a::b" is a child of "a"). Deck and group
// dictionaries are handed out as pointers into the blobs held here; a pointer stays valid until
// that deck or group is removed or the blobs are loaded again. Ids may be passed in any form a
// blob can hold them (number or decimal string); every lookup turns them into the string key.
//
// The blobs are parsed at their first use, not at load: a command that never looks at a deck
// (a search, say) doesn't pay for a large `decks` blob. Like the rest of the collection, a
// DeckManager is used by one thread at a time (the main loop or a job, never both), so that
// first use may parse without a lock.

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class Col;
class Card;

// A rename that can't be done. name() is the short title, what() the reason.
class DeckNameError : public std::runtime_error {
 public:
  DeckNameError(std::string name, const std::string& reason)
      : std::runtime_error(reason), _name(std::move(name)) {}
  const std::string& name() const { return _name; }

 private:
  std::string _name;
};

class DeckManager {
 public:
  explicit DeckManager(Col& col) : _col(col) {}

  static Json getDefaultDeck();
  static Json getDefaultDynamicDeck();
  static Json getDefaultConf();

  // " a :: ::b " becomes "a::b": blanks around each level are trimmed and empty levels dropped.
  // An empty result means the name can't be used for a deck.
  static std::string normalizeName(std::string_view name);

  // --- Loading and saving ---

  // Keeps the blobs as text: a damaged one throws JsonError at its first use, not here.
  void loadDecks(const std::string& decksJson, const std::string& confJson);
  // Parses the blobs now if they are still text; throws JsonError on a damaged one.
  void parseNow() const { _parse(); }
  // Stamps the given deck or option group with mod and usn, and marks the blobs for writing.
  void save(Json* obj = nullptr);
  void flush();
  void beforeUpload();

  // --- Decks by id and name ---

  // The deck with this id; deck 1 when the id is null or unknown and `orDefault` is on.
  Json* getDeck(const Json& did, bool orDefault = true);
  // Exact, case-sensitive name.
  Json* byName(const std::string& name);
  std::string name(const Json& did);
  std::vector<Json*> all();
  std::vector<Id> allIds() const;
  size_t count() const { return _parsedDecks().size(); }
  std::vector<std::string> allNames(bool dyn = true) const;

  // Finds a deck by name, case-insensitively, creating it and its parents when absent and
  // `create` is on. `type` is the template of a new deck (getDefaultDeck when omitted).
  // 0 when the deck is absent and not created; a name with no level left after
  // normalizeName is never created.
  Id getID(const std::string& name, bool create = true);
  Id getID(const std::string& name, const Json& type) { return getID(name, true, type); }
  Id getID(const std::string& name, bool create, const Json& type);

  // Stores a whole deck from sync or import, keeping its mod and usn.
  void update(const Json& deck);
  bool isDyn(const Json& did);
  // Creates and selects a filtered deck; 0 for a name that can't be used.
  Id newDyn(const std::string& name);
  void collapse(const Json& did);

  // --- Renaming and removing ---

  // `deck` is a dictionary held here (from getDeck). Raises DeckNameError for a taken, empty or
  // circular name.
  void rename(Json& deck, const std::string& newName);
  // Deck 1 is never removed. Without `cards`, the deck's cards keep their dead did until
  // recoverOrphans.
  void removeDeck(const Json& did, bool cards = false, bool children = true);

  // --- Hierarchy ---

  static std::vector<std::string> _path(const std::string& name);
  static std::string _basename(const std::string& name);
  std::string _ensureParents(const std::string& name);
  // [name, id] of every descendant, in no defined order.
  std::vector<std::pair<std::string, Id>> children(const Json& did);
  // From the top of the tree down to the direct parent; missing parents are created.
  std::vector<Json*> parents(const Json& did);
  static bool _isParent(const std::string& parentName, const std::string& childName);
  static bool _isAncestor(const std::string& ancestorName, const std::string& descendantName);

  // --- Selection ---

  std::vector<Id> active() const;
  Id selected() const;
  Json* current();
  void select(const Json& did);
  void maybeAddToActive();

  // --- Option groups ---

  std::vector<Json*> allConf();
  Json* getConf(const Json& confId);
  // The options of the deck's cards, read only: a filtered deck's own dictionary, else the deck's
  // group, a group missing read as group 1; nullptr when the deck is missing.
  const Json* homeConf(const Json& did) const;
  // As homeConf for editing, with a deck missing read as the default deck, and "dyn" false
  // stored into the group it returns.
  Json* confForDid(const Json& did);
  Json* confForCard(const Card& card);
  void updateConf(const Json& conf);
  Id confIdForName(const std::string& name, const Json* cloneFrom = nullptr);
  // Forces a full sync; decks of the group go back to group 1. Group 1 is a programming error.
  void remConf(const Json& confId);
  void setConf(Json& deck, Id confId);
  std::vector<Id> didsForConf(const Json& conf) const;
  void restoreToDefault(Json& conf);

  // --- Daily counters ---

  // Sets each counter ("newToday", "revToday", "lrnToday", "timeToday") of every deck that
  // isn't of `today` to [today, 0], in memory. A deck rolled to `today` before is passed over
  // unless it has been replaced since (by update, a load, or a new dictionary put in its
  // place): nothing else sets a counter's day, only its count.
  void rollCounters(int64_t today);

  // --- Cards ---

  std::vector<Id> cardIDs(const Json& did, bool children = false);
  void setDeckForCardIDs(const std::vector<Id>& ids, Id did);
  void recoverOrphans();

  // --- Raw state ---

  Json& decks() { return _parsedDecks(); }
  Json& deckConf() { return _parsedConf(); }
  const std::map<std::string, std::string>& deckIDs() const { return _parsedIDs(); }
  bool changed() const { return _changed; }

 private:
  // `type` null means getDefaultDeck, built only when a deck is made.
  Id _getID(const std::string& name, bool create, const Json* type);
  Id _find(const std::string& name);
  Id _create(const std::string& name, const Json& type);
  // A free millisecond key of `blob`.
  static Id _freshId(const Json& blob);
  // homeConf of a deck found; nullptr for nullptr.
  Json* _homeConf(Json* deck) const;

  // The blobs, parsed first if they are still text.
  Json& _parsedDecks() const {
    _parse();
    return _decks;
  }
  Json& _parsedConf() const {
    _parse();
    return _deckConf;
  }
  std::map<std::string, std::string>& _parsedIDs() const {
    _parse();
    return _deckIDs;
  }
  void _parse() const;
  // Sets every counter of the parsed blobs to `today`, as rollCounters describes.
  void _roll(int64_t today) const;

  Col& _col;
  // Until the first use, the blobs as loaded and the day they are to be
  // rolled to once parsed (-1: none yet).
  mutable bool _unparsed = false;
  mutable std::string _decksText, _confText;
  mutable int64_t _rollPending = -1;
  mutable Json _decks = Json::object();
  mutable Json _deckConf = Json::object();
  // Name to id; a secondary index that may go stale between loads.
  mutable std::map<std::string, std::string> _deckIDs;
  bool _changed = false;
  // The decks whose counters are of _rolledDay: their dictionaries, with the key each had.
  mutable int64_t _rolledDay = -1;
  mutable std::unordered_map<const Json::object_t*, std::string> _rolled;
};

}  // namespace rivo
