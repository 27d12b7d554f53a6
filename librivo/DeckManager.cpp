#include "librivo/DeckManager.h"

#include <unicode/unistr.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "librivo/Card.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Ids.h"
#include "librivo/SaveError.h"
#include "librivo/Scheduler.h"
#include "librivo/StoredCodes.h"
#include "librivo/SysLog.h"

namespace rivo {

namespace {

const char* const kDefaultDynamicDeck =
    "{\"terms\": [[\"\", 100, 0]], \"separate\": true, \"collapsed\": false, \"newToday\": [0, "
    "0], \"timeToday\": [0, 0], \"dyn\": 1, \"return\": true, \"revToday\": [0, 0], "
    "\"lrnToday\": [0, 0], \"desc\": \"\", \"usn\": 0, \"delays\": null, \"resched\": true}";

const char* const kDefaultConf =
    "{\"maxTaken\": 60, \"name\": \"Default\", \"usn\": 0, \"new\": {\"perDay\": 20, "
    "\"delays\": [1, 10], \"separate\": true, \"ints\": [1, 4, 7], \"initialFactor\": 2500, "
    "\"order\": 1}, \"lapse\": {\"leechFails\": 8, \"minInt\": 1, \"delays\": [10], "
    "\"leechAction\": 0, \"mult\": 0}, \"mod\": 0, \"rev\": {\"perDay\": 100, \"fuzz\": 0.05, "
    "\"ivlFct\": 1, \"maxIvl\": 36500, \"ease4\": 1.3, \"minSpace\": 1}, \"timer\": 0, "
    "\"autoplay\": true}";

constexpr std::string_view kSep = "::";
const char* const kRenameError = "Cannot rename deck";

Json decodeObject(const std::string& text) {
  if (text.empty()) return Json::object();
  Json j = decodeJson(text);
  if (!j.is_object()) return Json::object();
  return j;
}

Id idOfKey(const std::string& key) {
  return std::strtoll(key.c_str(), nullptr, 10);
}

bool isAscii(std::string_view s) {
  return std::all_of(s.begin(), s.end(), [](char c) { return (c & 0x80) == 0; });
}

std::string lowered(const std::string& s) {
  if (isAscii(s)) {
    std::string out = s;
    for (char& c : out)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
  }
  std::string out;
  icu::UnicodeString::fromUTF8(s).toLower().toUTF8String(out);
  return out;
}

// Compares a stored name with an already lowered one. Names are nearly always ASCII, so the
// common case needs no allocation.
bool sameLowered(const std::string& stored, const std::string& lowerName, bool lowerIsAscii) {
  if (lowerIsAscii && isAscii(stored)) {
    if (stored.size() != lowerName.size()) return false;
    for (size_t i = 0; i < stored.size(); ++i) {
      char c = stored[i];
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
      if (c != lowerName[i]) return false;
    }
    return true;
  }
  return lowered(stored) == lowerName;
}

bool startsWith(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0;
}

std::string_view trimmed(std::string_view s) {
  const char* blanks = " \t\n\r\f\v";
  size_t b = s.find_first_not_of(blanks);
  if (b == std::string_view::npos) return {};
  size_t e = s.find_last_not_of(blanks);
  return s.substr(b, e - b + 1);
}

}  // namespace

Json DeckManager::getDefaultDeck() {
  return Json{{"extendRev", 50},
              {"collapsed", false},
              {"newToday", {0, 0}},
              {"timeToday", {0, 0}},
              {"dyn", 0},
              {"extendNew", 10},
              {"conf", 1},
              {"revToday", {0, 0}},
              {"lrnToday", {0, 0}},
              {"desc", ""},
              {"usn", 0}};
}

Json DeckManager::getDefaultDynamicDeck() {
  return decodeJson(kDefaultDynamicDeck);
}

Json DeckManager::getDefaultConf() {
  return decodeJson(kDefaultConf);
}

std::string DeckManager::normalizeName(std::string_view name) {
  std::string out;
  for (const std::string& part : _path(std::string(name))) {
    std::string_view level = trimmed(part);
    if (level.empty()) continue;
    if (!out.empty()) out += kSep;
    out += level;
  }
  return out;
}

// --- Loading and saving ---

void DeckManager::loadDecks(const std::string& decksJson, const std::string& confJson) {
  _decksText = decksJson;
  _confText = confJson;
  _unparsed = true;
  _rollPending = -1;
  _decks = Json::object();
  _deckConf = Json::object();
  _deckIDs.clear();
  _rolled.clear();
  _changed = false;
}

void DeckManager::_parse() const {
  if (!_unparsed) return;
  // A damaged blob throws at every use, never leaving empty blobs behind to be saved.
  Json decks = decodeObject(_decksText);
  Json conf = decodeObject(_confText);
  _unparsed = false;
  _decks = std::move(decks);
  _deckConf = std::move(conf);
  std::string().swap(_decksText);
  std::string().swap(_confText);
  for (auto& [key, deck] : _decks.items()) {
    if (deck.is_object() && deck.contains("name") && deck["name"].is_string())
      _deckIDs[deck["name"].get<std::string>()] = key;
  }
  if (_rollPending >= 0) _roll(_rollPending);
}

void DeckManager::save(Json* obj) {
  if (obj) _col.stamp(*obj);
  _changed = true;
}

void DeckManager::flush() {
  if (!_changed) return;
  for (auto& [key, deck] : _parsedDecks().items()) {
    if (deck.is_object() && deck.contains("id")) deck["id"] = jsonInt(deck["id"]);
  }
  const std::string decks = savedJson(_parsedDecks(), "decks");
  const std::string conf = savedJson(_parsedConf(), "deck options");
  _col.db()->run("update col set decks=?, dconf=?", {decks, conf});
  _changed = false;
}

void DeckManager::beforeUpload() {
  for (auto& [key, deck] : _parsedDecks().items())
    if (deck.is_object()) deck["usn"] = 0;
  for (auto& [key, conf] : _parsedConf().items())
    if (conf.is_object()) conf["usn"] = 0;
  save();
}

// --- Decks by id and name ---

Json* DeckManager::getDeck(const Json& did, bool orDefault) {
  std::string key = jsonKey(did);
  if (!key.empty()) {
    auto it = _parsedDecks().find(key);
    if (it != _parsedDecks().end()) return &*it;
  }
  if (!orDefault) return nullptr;
  auto it = _parsedDecks().find("1");
  return it != _parsedDecks().end() ? &*it : nullptr;
}

Json* DeckManager::byName(const std::string& name) {
  for (auto& [key, deck] : _parsedDecks().items())
    if (deck.is_object() && jsonText(deck, "name") == name) return &deck;
  return nullptr;
}

std::string DeckManager::name(const Json& did) {
  Json* deck = getDeck(did);
  return deck ? jsonText(*deck, "name") : std::string();
}

std::vector<Json*> DeckManager::all() {
  std::vector<Json*> out;
  out.reserve(_parsedDecks().size());
  for (auto& [key, deck] : _parsedDecks().items()) out.push_back(&deck);
  return out;
}

std::vector<Id> DeckManager::allIds() const {
  std::vector<Id> out;
  out.reserve(_parsedDecks().size());
  for (const auto& [key, deck] : _parsedDecks().items()) out.push_back(idOfKey(key));
  return out;
}

std::vector<std::string> DeckManager::allNames(bool dyn) const {
  std::vector<std::string> out;
  out.reserve(_parsedDecks().size());
  for (const auto& [key, deck] : _parsedDecks().items()) {
    if (!dyn && jsonTruth(jsonMember(deck, "dyn"))) continue;
    out.push_back(jsonText(deck, "name"));
  }
  return out;
}

Id DeckManager::getID(const std::string& name, bool create) {
  return _getID(name, create, nullptr);
}

Id DeckManager::getID(const std::string& name, bool create, const Json& type) {
  return _getID(name, create, &type);
}

Id DeckManager::_getID(const std::string& name, bool create, const Json* type) {
  if (Id id = _find(name)) return id;
  // Lookups take the name as given, so a deck from elsewhere with stray blanks is still found;
  // what is created is always the clean form.
  std::string clean = normalizeName(name);
  if (clean != name)
    if (Id id = _find(clean)) return id;
  if (!create || clean.empty()) return 0;
  return _create(clean, type ? *type : getDefaultDeck());
}

Id DeckManager::_find(const std::string& name) {
  std::string lower = lowered(name);
  bool ascii = isAscii(lower);
  for (const auto& [key, deck] : _parsedDecks().items()) {
    if (deck.is_object() && sameLowered(jsonText(deck, "name"), lower, ascii)) return idOfKey(key);
  }
  auto hit = _parsedIDs().find(name);
  // The index may be stale; an entry whose deck has gone is no answer.
  if (hit != _parsedIDs().end() && _parsedDecks().contains(hit->second))
    return idOfKey(hit->second);
  return 0;
}

Id DeckManager::_create(const std::string& name, const Json& type) {
  Json deck = type;
  deck["name"] = name.find(kSep) != std::string::npos ? _ensureParents(name) : name;
  Id id = _freshId(_parsedDecks());
  std::string key = std::to_string(id);
  deck["id"] = id;
  Json& stored = _parsedDecks()[key] = std::move(deck);
  _parsedIDs()[jsonText(stored, "name")] = key;
  save(&stored);
  maybeAddToActive();
  return id;
}

Id DeckManager::_freshId(const Json& blob) {
  // Ids are creation milliseconds; two made in one millisecond take the next free one rather
  // than wait for a clock that may stand still.
  Id id = intTime(1000);
  while (blob.contains(std::to_string(id))) ++id;
  return id;
}

void DeckManager::update(const Json& deck) {
  if (!deck.is_object() || !deck.contains("id")) return;
  std::string key = jsonKey(deck["id"]);
  if (key.empty()) return;
  _parsedDecks()[key] = deck;
  _rolled.clear();
  maybeAddToActive();
  save();
}

bool DeckManager::isDyn(const Json& did) {
  Json* deck = getDeck(did);
  return deck && jsonTruth(jsonMember(*deck, "dyn"));
}

Id DeckManager::newDyn(const std::string& name) {
  Id did = getID(name, getDefaultDynamicDeck());
  if (did) select(did);
  return did;
}

void DeckManager::collapse(const Json& did) {
  Json* deck = getDeck(did);
  if (!deck || !deck->is_object()) return;
  // Reads `collapsed` and writes `collapse`: two keys, kept apart for the file format.
  (*deck)["collapse"] = jsonTruth(jsonMember(*deck, "collapsed")) ? 0 : 1;
  save(deck);
}

// --- Renaming and removing ---

void DeckManager::rename(Json& deck, const std::string& newName) {
  std::string wanted = normalizeName(newName);
  if (wanted.empty()) throw DeckNameError(kRenameError, "Invalid deck name.");
  std::vector<std::string> names = allNames();
  if (std::find(names.begin(), names.end(), wanted) != names.end())
    throw DeckNameError(kRenameError, "New deck name conflicts with existing name");
  const std::string oldName = jsonText(deck, "name");
  std::string oldPrefix = oldName + std::string(kSep);
  // A deck under itself would have no parent left, and the deck tree would drop it.
  if (!oldName.empty() && startsWith(lowered(wanted), lowered(oldPrefix)))
    throw DeckNameError(kRenameError, "A deck can't be moved under itself.");

  wanted = _ensureParents(wanted);
  std::string newPrefix = wanted + std::string(kSep);
  for (auto& [key, other] : _parsedDecks().items()) {
    if (!other.is_object()) continue;
    const std::string& otherName = jsonText(other, "name");
    // A blank name is a prefix of every name: only its own children follow it.
    if (oldName.empty() ? !startsWith(otherName, oldPrefix) : !startsWith(otherName, oldName))
      continue;
    // Only the leading level is replaced, so a deeper level of the same name stays.
    if (startsWith(otherName, oldPrefix))
      other["name"] = newPrefix + otherName.substr(oldPrefix.size());
    save(&other);
  }
  _parsedIDs().erase(oldName);
  _parsedIDs()[wanted] = jsonKey(deck.contains("id") ? deck["id"] : Json());
  deck["name"] = wanted;
  save(&deck);
}

void DeckManager::removeDeck(const Json& did, bool cards, bool children) {
  std::string key = jsonKey(did);
  if (key.empty()) return;
  // A deck made later may get the freed dictionary's place.
  _rolled.clear();
  if (key == "1") {
    // Deck 1 can't go; at most it leaves a parent it was moved under.
    Json* deck = getDeck(key, false);
    if (deck && jsonText(*deck, "name").find(kSep) != std::string::npos) {
      (*deck)["name"] = "Default";
      save(deck);
    }
    return;
  }
  Id id = idOfKey(key);
  // The grave goes first, so a deck removed elsewhere still reaches the other side.
  _col._logRem({id}, kGraveDeck);
  auto it = _parsedDecks().find(key);
  if (it == _parsedDecks().end()) return;

  bool dyn = jsonTruth(jsonMember(*it, "dyn"));
  // The cards go home first, so that none is lost with the deck.
  if (dyn) _col.sched().emptyDyn(id);
  if (children) {
    // Deepest first: each descendant is then gone before its parent's turn, and gets one grave.
    auto kids = this->children(key);
    std::sort(kids.begin(), kids.end(),
              [](const auto& a, const auto& b) { return a.first > b.first; });
    for (const auto& [kidName, kid] : kids) removeDeck(kid, cards, true);
  }
  if (!dyn && cards) _col.remCards(cardIDs(key));

  it = _parsedDecks().find(key);
  if (it != _parsedDecks().end()) {
    _parsedIDs().erase(jsonText(*it, "name"));
    _parsedDecks().erase(it);
  }
  std::vector<Id> act = active();
  if (std::find(act.begin(), act.end(), id) != act.end() && !_parsedDecks().empty())
    select(_parsedDecks().begin().key());
  save();
}

// --- Hierarchy ---

std::vector<std::string> DeckManager::_path(const std::string& name) {
  std::vector<std::string> out;
  size_t start = 0;
  while (true) {
    size_t at = name.find(kSep, start);
    if (at == std::string::npos) {
      out.push_back(name.substr(start));
      return out;
    }
    out.push_back(name.substr(start, at - start));
    start = at + kSep.size();
  }
}

std::string DeckManager::_basename(const std::string& name) {
  return _path(name).back();
}

std::string DeckManager::_ensureParents(const std::string& name) {
  std::vector<std::string> path = _path(name);
  if (path.size() < 2) return name;
  std::string running;
  for (size_t i = 0; i + 1 < path.size(); ++i) {
    if (running.empty())
      running = path[i];
    else
      running += std::string(kSep) + path[i];
    // Takes the spelling of an existing parent, case included.
    Id pid = getID(running);
    if (Json* parent = getDeck(pid, pid != 0)) running = jsonText(*parent, "name");
  }
  return running + std::string(kSep) + path.back();
}

std::vector<std::pair<std::string, Id>> DeckManager::children(const Json& did) {
  std::vector<std::pair<std::string, Id>> out;
  Json* deck = getDeck(did, false);
  if (!deck) return out;
  std::string prefix = jsonText(*deck, "name") + std::string(kSep);
  for (const auto& [key, other] : _parsedDecks().items()) {
    const std::string& otherName = jsonText(other, "name");
    if (startsWith(otherName, prefix)) out.emplace_back(otherName, idOfKey(key));
  }
  return out;
}

std::vector<Json*> DeckManager::parents(const Json& did) {
  std::vector<Json*> out;
  Json* deck = getDeck(did);
  if (!deck) return out;
  std::vector<std::string> path = _path(jsonText(*deck, "name"));
  std::string running;
  for (size_t i = 0; i + 1 < path.size(); ++i) {
    running += (i ? std::string(kSep) : std::string()) + path[i];
    // A level that can't be a deck name (empty) has no deck to count into.
    if (Id pid = getID(running))
      if (Json* parent = getDeck(pid)) out.push_back(parent);
  }
  return out;
}

bool DeckManager::_isParent(const std::string& parentName, const std::string& childName) {
  // Compares a path of strings with [path, basename]: never equal for real names. Nothing
  // relies on it; it stays as the file's other readers have it.
  Json child = _path(childName);
  Json probe = Json::array({Json(_path(parentName)), _basename(childName)});
  return child == probe;
}

bool DeckManager::_isAncestor(const std::string& ancestorName, const std::string& descendantName) {
  std::vector<std::string> anc = _path(ancestorName);
  std::vector<std::string> desc = _path(descendantName);
  if (desc.size() < anc.size()) return false;
  return std::equal(anc.begin(), anc.end(), desc.begin());
}

// --- Selection ---

std::vector<Id> DeckManager::active() const {
  std::vector<Id> out;
  const Json& conf = _col.conf();
  auto it = conf.find("activeDecks");
  if (it == conf.end() || !it->is_array()) return out;
  for (const Json& v : *it) out.push_back(jsonInt(v));
  return out;
}

Id DeckManager::selected() const {
  const Json& conf = _col.conf();
  auto it = conf.find("curDeck");
  return it == conf.end() ? 0 : jsonInt(*it);
}

Json* DeckManager::current() {
  return getDeck(selected(), false);
}

void DeckManager::select(const Json& did) {
  std::string key = jsonKey(did);
  if (key.empty()) return;
  _col.conf()["curDeck"] = key;
  auto kids = children(key);
  std::sort(kids.begin(), kids.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  Json act = Json::array({key});
  for (const auto& [kidName, kid] : kids) act.push_back(std::to_string(kid));
  _col.conf()["activeDecks"] = std::move(act);
  _changed = true;
}

void DeckManager::maybeAddToActive() {
  // Picks up a new child of the selected deck; a selected deck that has gone stays unselected.
  if (Json* deck = current())
    if (deck->contains("id")) select((*deck)["id"]);
}

// --- Option groups ---

std::vector<Json*> DeckManager::allConf() {
  std::vector<Json*> out;
  out.reserve(_parsedConf().size());
  for (auto& [key, conf] : _parsedConf().items()) out.push_back(&conf);
  return out;
}

Json* DeckManager::getConf(const Json& confId) {
  auto it = _parsedConf().find(jsonKey(confId));
  return it != _parsedConf().end() ? &*it : nullptr;
}

Json* DeckManager::_homeConf(Json* deck) const {
  if (!deck || !deck->is_object()) return nullptr;
  auto confId = deck->find("conf");
  // A filtered deck carries its own options and no group.
  if (confId == deck->end() || confId->is_null()) return deck;
  Json& confs = _parsedConf();
  auto conf = confs.find(jsonKey(*confId));
  // A group that hasn't arrived yet (or was lost) reads as the default group.
  if (conf == confs.end()) conf = confs.find("1");
  return conf != confs.end() ? &*conf : nullptr;
}

const Json* DeckManager::homeConf(const Json& did) const {
  const std::string key = jsonKey(did);
  Json& decks = _parsedDecks();
  auto deck = key.empty() ? decks.end() : decks.find(key);
  return deck != decks.end() ? _homeConf(&*deck) : nullptr;
}

Json* DeckManager::confForDid(const Json& did) {
  Json* deck = getDeck(did);
  Json* conf = _homeConf(deck);
  // Meant: the group handed out for editing says it isn't a filtered deck's options.
  if (conf && conf != deck) (*conf)["dyn"] = false;
  return conf;
}

Json* DeckManager::confForCard(const Card& card) {
  return confForDid(card.odid ? card.odid : card.did);
}

void DeckManager::updateConf(const Json& conf) {
  if (!conf.is_object() || !conf.contains("id")) return;
  std::string key = jsonKey(conf["id"]);
  if (key.empty()) return;
  _parsedConf()[key] = conf;
  save();
}

Id DeckManager::confIdForName(const std::string& name, const Json* cloneFrom) {
  Json conf = cloneFrom ? *cloneFrom : getDefaultConf();
  Id id = _freshId(_parsedConf());
  conf["id"] = id;
  conf["name"] = name;
  Json& stored = _parsedConf()[std::to_string(id)] = std::move(conf);
  save(&stored);
  return id;
}

void DeckManager::remConf(const Json& confId) {
  std::string key = jsonKey(confId);
  if (key == "1") throw std::logic_error("[configID intValue]!=1");
  _col.modSchema();
  _parsedConf().erase(key);
  for (auto& [dkey, deck] : _parsedDecks().items()) {
    if (!deck.is_object()) continue;
    auto it = deck.find("conf");
    if (it != deck.end() && !it->is_null() && jsonKey(*it) == key) {
      *it = 1;
      save(&deck);
    }
  }
}

void DeckManager::setConf(Json& deck, Id confId) {
  deck["conf"] = confId;
  save(&deck);
}

std::vector<Id> DeckManager::didsForConf(const Json& conf) const {
  std::vector<Id> out;
  if (!conf.is_object() || !conf.contains("id")) return out;
  Id confId = jsonInt(conf["id"]);
  for (const auto& [key, deck] : _parsedDecks().items()) {
    if (!deck.is_object()) continue;
    auto it = deck.find("conf");
    if (it != deck.end() && !it->is_null() && jsonInt(*it) == confId)
      out.push_back(deck.contains("id") ? jsonInt(deck["id"]) : idOfKey(key));
  }
  return out;
}

void DeckManager::restoreToDefault(Json& conf) {
  const Json* oldNew = conf.contains("new") ? &conf["new"] : nullptr;
  bool hadOrder =
      oldNew && oldNew->is_object() && oldNew->contains("order") && !(*oldNew)["order"].is_null();
  Json fresh = getDefaultConf();
  fresh["id"] = conf.contains("id") ? conf["id"] : Json();
  fresh["name"] = conf.contains("name") ? conf["name"] : Json();
  updateConf(fresh);
  if (Json* stored = getConf(fresh["id"])) save(stored);
  // A group without an order of its own has just taken the default one; its new cards follow.
  if (!hadOrder) _col.sched().resortConf(fresh);
}

// --- Daily counters ---

namespace {

// The four counters sort in this order in a deck, so one search and a short walk find them.
void rollDeck(Json::object_t& deck, int64_t today) {
  static const char* const kCounters[] = {"lrnToday", "newToday", "revToday", "timeToday"};
  auto it = deck.lower_bound(kCounters[0]);
  for (const char* key : kCounters) {
    while (it != deck.end() && it->first.compare(key) < 0) ++it;
    if (it == deck.end() || it->first.compare(key) != 0) it = deck.emplace_hint(it, key, Json());
    Json& value = it->second;
    if (!value.is_array() || value.empty() || jsonInt(value[0], -1) != today)
      value = Json::array({today, 0});
  }
}

}  // namespace

void DeckManager::rollCounters(int64_t today) {
  // Before the first use only the day is kept. A second, different day (the clock passed
  // midnight meanwhile) parses first, so that each roll sees what the one before it left.
  if (_unparsed && (_rollPending < 0 || _rollPending == today)) {
    _rollPending = today;
    return;
  }
  _parse();
  _roll(today);
}

void DeckManager::_roll(int64_t today) const {
  if (today != _rolledDay) _rolled.clear();
  _rolledDay = today;
  for (auto& [key, deck] : _decks.items()) {
    if (!deck.is_object()) continue;
    auto& dict = deck.get_ref<Json::object_t&>();
    auto seen = _rolled.find(&dict);
    if (seen != _rolled.end() && seen->second == key) continue;
    rollDeck(dict, today);
    _rolled[&dict] = key;
  }
}

// --- Cards ---

std::vector<Id> DeckManager::cardIDs(const Json& did, bool children) {
  Id id = idOfKey(jsonKey(did));
  if (!children) return _col.db()->ids("select id from cards where did=?", {id});
  std::vector<Id> dids{id};
  for (const auto& [kidName, kid] : this->children(did)) dids.push_back(kid);
  return _col.db()->ids("select id from cards where did in " + ids2str(dids));
}

void DeckManager::setDeckForCardIDs(const std::vector<Id>& ids, Id did) {
  // mod is written in milliseconds here, unlike every other card write; the file keeps it so.
  _col.db()->run("update cards set did=?,usn=?,mod=? where id in " + ids2str(ids),
                 {did, int64_t{_col.usn()}, static_cast<int64_t>(intTime(1000))});
}

void DeckManager::recoverOrphans() {
  // A repair, not a change of the user's: the collection must not count as modified by it.
  DB& db = *_col.db();
  bool mod = db.mod;
  db.run("update cards set did = 1 where did not in " + ids2str(allIds()));
  db.mod = mod;
}

}  // namespace rivo
