#include "app/CustomStudy.h"

#include <algorithm>
#include <stdexcept>

#include "app/DynDeckOptions.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Ids.h"
#include "librivo/Scheduler.h"

namespace rivo {

namespace {

constexpr int kDefaultExtend = 10;

std::set<std::string> tagSet(const Json& deck, const char* key) {
  std::set<std::string> out;
  const auto it = deck.find(key);
  if (it == deck.end() || !it->is_array()) return out;
  for (const Json& t : *it)
    if (t.is_string()) out.insert(t.get<std::string>());
  return out;
}

const char* extendKey(CustomStudyMode mode) {
  return mode == CustomStudyMode::kNewLimit ? "extendNew" : "extendRev";
}

int extendAmount(const Json& deck, CustomStudyMode mode) {
  const auto it = deck.find(extendKey(mode));
  if (it == deck.end() || !it->is_number_integer()) return kDefaultExtend;
  return static_cast<int>(it->get<int64_t>());
}

bool isDayStudy(CustomStudyMode mode) {
  return mode == CustomStudyMode::kForgotten || mode == CustomStudyMode::kAhead ||
         mode == CustomStudyMode::kPreviewNew;
}

}  // namespace

CustomStudy::CustomStudy(Col& col) : _col(col) {
  Json* deck = col.decks().current();
  if (deck) _did = jsonInt((*deck)["id"]);
  _included = tagSet(_deck(), "activeTags");
  _excluded = tagSet(_deck(), "inactiveTags");
}

Json& CustomStudy::_deck() const {
  // The default deck stands in if the deck went away while the dialog was open.
  return *_col.decks().getDeck(_did);
}

void CustomStudy::_checkMode() const {
  const int m = static_cast<int>(_mode);
  if (m < 0 || m > 7) throw std::logic_error("custom study mode " + std::to_string(m));
}

const std::vector<std::string>& CustomStudy::modeLabels() {
  static const std::vector<std::string> labels = {"Increase today's new card limit",
                                                  "Increase today's review card limit",
                                                  "Review forgotten cards",
                                                  "Review ahead",
                                                  "Preview new cards",
                                                  "Learn new cards with certain tags",
                                                  "Review due cards with certain tags",
                                                  "Cram all cards with certain tags"};
  return labels;
}

std::string CustomStudy::rowLabel(CustomStudyMode mode) {
  switch (mode) {
    case CustomStudyMode::kNewLimit:
      return "Extra new cards";
    case CustomStudyMode::kRevLimit:
      return "Extra review cards";
    case CustomStudyMode::kAhead:
      return "Days to look ahead";
    case CustomStudyMode::kForgotten:
    case CustomStudyMode::kPreviewNew:
      return "Days to look back";
    default:
      return "Max cards to gather";
  }
}

int CustomStudy::rowMax(CustomStudyMode mode) {
  switch (mode) {
    case CustomStudyMode::kNewLimit:
    case CustomStudyMode::kRevLimit:
      return 100;
    case CustomStudyMode::kForgotten:
      return 31;
    case CustomStudyMode::kAhead:
    case CustomStudyMode::kPreviewNew:
      return 9999;
    default:
      return 100000;
  }
}

void CustomStudy::setMode(CustomStudyMode mode) {
  _mode = mode;
  _checkMode();
  if (isDayStudy(mode)) _dayLimit = std::min(_dayLimit, rowMax(mode));
}

int CustomStudy::rowValue() const {
  if (_mode == CustomStudyMode::kNewLimit || _mode == CustomStudyMode::kRevLimit)
    return extendAmount(_deck(), _mode);
  return isDayStudy(_mode) ? _dayLimit : _cardLimit;
}

bool CustomStudy::setRowValue(int value) {
  if (value < 1 || value > rowMax(_mode)) return false;
  if (_mode == CustomStudyMode::kNewLimit || _mode == CustomStudyMode::kRevLimit) {
    Json& deck = _deck();
    deck[extendKey(_mode)] = value;
    _col.decks().save(&deck);
  } else if (isDayStudy(_mode)) {
    _dayLimit = value;
  } else {
    _cardLimit = value;
  }
  return true;
}

// --- Tags ---

const std::vector<std::string>& CustomStudy::allValidTags() {
  if (_haveTags) return _allValidTags;
  std::set<std::string> tags;
  for (const Value& v : _col.db()->list(
           "select distinct tags from notes where id in (select nid from cards c where c.did in " +
           ids2str(_col.decks().active()) + ")")) {
    const std::string text = toText(v);
    size_t start = 0;
    while (start < text.size()) {
      size_t end = text.find(' ', start);
      if (end == std::string::npos) end = text.size();
      if (end > start) tags.insert(text.substr(start, end - start));
      start = end + 1;
    }
  }
  _allValidTags.assign(tags.begin(), tags.end());
  _haveTags = true;
  return _allValidTags;
}

void CustomStudy::setIncludedTags(const std::set<std::string>& tags) {
  _included = tags;
  Json& deck = _deck();
  deck["activeTags"] = Json(std::vector<std::string>(tags.begin(), tags.end()));
  _col.decks().save(&deck);
}

void CustomStudy::setExcludedTags(const std::set<std::string>& tags) {
  _excluded = tags;
  Json& deck = _deck();
  deck["inactiveTags"] = Json(std::vector<std::string>(tags.begin(), tags.end()));
  _col.decks().save(&deck);
}

std::string CustomStudy::tagRowText(bool included) {
  if (allValidTags().empty()) return "no tags available";
  const std::set<std::string>& tags = included ? _included : _excluded;
  if (tags.empty()) return included ? "any" : "none";
  std::string out;
  for (const std::string& t : tags) {
    if (!out.empty()) out += ", ";
    out += t;
  }
  return out;
}

// --- Searches ---

std::string CustomStudy::tagSearchString() const {
  // The sets keep their tags sorted.
  std::string inc, exc;
  for (const std::string& t : _included) {
    if (!inc.empty()) inc += " or ";
    inc.append("tag:\"").append(t).append("\"");
  }
  if (!inc.empty()) inc = "(" + inc + ")";
  for (const std::string& t : _excluded) {
    if (!exc.empty()) exc += ' ';
    exc.append("-tag:\"").append(t).append("\"");
  }
  return inc + " " + exc;
}

std::string CustomStudy::searchString() const {
  _checkMode();
  const Json& name = _deck()["name"];
  // The name goes in unescaped: a quote in it breaks the search, as on the other devices.
  std::vector<std::string> parts = {"deck:\"" + (name.is_string() ? name.get<std::string>() : "") +
                                    "\""};
  const std::string n = std::to_string(_dayLimit);
  switch (_mode) {
    case CustomStudyMode::kNewLimit:
      parts.push_back("is:new");
      break;
    case CustomStudyMode::kRevLimit:
      parts.push_back("is:due");
      break;
    case CustomStudyMode::kForgotten:
      parts.push_back("rated:" + n + ":1");
      break;
    case CustomStudyMode::kAhead:
      parts.push_back("prop:due<=" + n);
      break;
    case CustomStudyMode::kPreviewNew:
      parts.push_back("is:new");
      parts.push_back("added:" + n);
      break;
    case CustomStudyMode::kNewWithTags:
      parts.push_back("is:new");
      parts.push_back(tagSearchString());
      break;
    case CustomStudyMode::kDueWithTags:
      parts.push_back("is:due");
      parts.push_back(tagSearchString());
      break;
    case CustomStudyMode::kCramWithTags:
      parts.push_back(tagSearchString());
      break;
  }
  std::string out;
  for (const std::string& p : parts) {
    if (!out.empty()) out += ' ';
    out += p;
  }
  return out;
}

int CustomStudy::cardCountForSearch() {
  // The session deck's own cards count: a rebuild empties it first.
  const std::string search = searchString() + " -is:suspended -is:buried " +
                             "-(deck:filtered -deck:\"" + kSessionDeck + "\") ";
  return static_cast<int>(_col.findCards(search, std::string("c.id limit 1000")).size());
}

std::string CustomStudy::updateEstimateForSearch() {
  const int count = cardCountForSearch();
  const std::string shown = count > 999 ? "1000+" : std::to_string(count);
  if (_mode == CustomStudyMode::kNewLimit) return shown + " new card(s) available.";
  if (_mode == CustomStudyMode::kRevLimit) return shown + " review(s) available.";
  return "Search matches " + shown + " card(s).";
}

// --- Accepting ---

CustomStudy::Outcome CustomStudy::accept() {
  _checkMode();
  if (_mode == CustomStudyMode::kNewLimit || _mode == CustomStudyMode::kRevLimit)
    return acceptLimitIncrease();
  return acceptCustomStudy();
}

CustomStudy::Outcome CustomStudy::acceptLimitIncrease() {
  if (cardCountForSearch() == 0)
    return {false, "Can't extend limits - no extra cards are available."};
  const int amount = extendAmount(_deck(), _mode);
  if (_mode == CustomStudyMode::kNewLimit)
    _col.sched().extendLimits(amount, 0);
  else
    _col.sched().extendLimits(0, amount);
  _col.reset();
  return {true, {}};
}

Json* CustomStudy::customStudyDeck() {
  DeckManager& dm = _col.decks();
  Json* deck = dm.byName(kSessionDeck);
  if (deck && !dm.isDyn((*deck)["id"])) return nullptr;
  if (deck) {
    _col.sched().emptyDyn(jsonInt((*deck)["id"]));
  } else {
    const Id did = dm.newDyn(kSessionDeck);
    deck = dm.getDeck(did, false);
    if (!deck) return nullptr;
  }
  dm.select((*deck)["id"]);
  return deck;
}

CustomStudy::Outcome CustomStudy::acceptCustomStudy() {
  _checkMode();
  // Taken before the session deck becomes the current one.
  const std::string search = searchString();
  Json* deck = customStudyDeck();
  if (!deck) return {false, "An existing deck named 'Custom Study Session' exists."};
  int limit = 99999, order = 6;
  Json delays;
  bool resched = true;
  switch (_mode) {
    case CustomStudyMode::kForgotten:
      order = 1;
      delays = Json::array({1});
      resched = false;
      break;
    case CustomStudyMode::kAhead:
      order = 6;
      break;
    case CustomStudyMode::kPreviewNew:
      order = 0;
      resched = false;
      break;
    case CustomStudyMode::kNewWithTags:
      limit = _cardLimit;
      order = 5;
      break;
    case CustomStudyMode::kDueWithTags:
      limit = _cardLimit;
      order = 6;
      break;
    case CustomStudyMode::kCramWithTags:
      limit = _cardLimit;
      order = 1;
      break;
    default:
      throw std::logic_error("no custom study deck for a limit increase");
  }
  Json& terms = (*deck)["terms"];
  if (!terms.is_array() || terms.empty()) terms = Json::array({Json()});
  terms[0] = Json::array({search, limit, order});
  (*deck)["delays"] = delays;
  (*deck)["resched"] = resched;
  _col.decks().save(deck);
  if (_col.sched().rebuildDyn().empty())
    return {false, "The selected options did not match any cards."};
  _col.save();
  _col.reset();
  return {true, DynDeckOptions::kBuiltMessage};
}

}  // namespace rivo
