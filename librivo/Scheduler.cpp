#include "librivo/Scheduler.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <stdexcept>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Grouping.h"
#include "librivo/Ids.h"
#include "librivo/Note.h"
#include "librivo/Random.h"
#include "librivo/StoredCodes.h"
#include "librivo/TimeSpan.h"

namespace rivo {

// SQL text here compares stored codes as numbers (names in StoredCodes.h): queue 0 new,
// 1 learning, 2 review, 3 learning on a later day, -1 suspended, -2 buried; type 0 new,
// 1 learning, 2 review.

namespace {

// --- Reading option values that may come damaged from elsewhere ---

const Json& defaultGroup() {
  static const Json group = DeckManager::getDefaultConf();
  return group;
}

bool isNumberList(const Json& v) {
  return v.is_array() &&
         std::all_of(v.begin(), v.end(), [](const Json& e) { return e.is_number(); });
}

bool fits(const std::string& key, const Json& v, const Json& def) {
  if (key == "delays") return v.is_null() || isNumberList(v);
  if (key == "ints") return isNumberList(v) && v.size() >= 2;
  if (def.is_number()) return v.is_number();
  if (def.is_boolean()) return v.is_boolean() || v.is_number();
  if (def.is_array()) return isNumberList(v);
  return true;
}

// A copy of one section of an option group in which every key the default group has is present
// and of the right kind; keys the default lacks are kept as they are.
Json section(const Json* group, const char* name) {
  const Json& def = defaultGroup()[name];
  static const Json none;
  const Json& given = group ? jsonMember(*group, name) : none;
  Json out = given.is_object() ? given : Json::object();
  for (const auto& [key, value] : def.items()) {
    auto it = out.find(key);
    if (it == out.end() || !fits(key, *it, value)) out[key] = value;
  }
  return out;
}

size_t delayCount(const Json& conf) {
  const Json& d = jsonMember(conf, "delays");
  return d.is_array() ? d.size() : 0;
}

int64_t counter(const Json& deck, const std::string& key) {
  const Json& c = jsonMember(deck, key.c_str());
  return c.is_array() && c.size() >= 2 ? jsonNumberInt(c[1]) : 0;
}

Id idOf(const Json& deck) {
  return jsonInt(jsonMember(deck, "id"));
}

constexpr int kFactorAdd[5] = {0, 0, -150, 0, 150};

}  // namespace

Scheduler::Scheduler(Col& col) : _col(col) {
  _updateCutoff();
}

// --- Serving cards ---

std::unique_ptr<Card> Scheduler::getCard() {
  _checkDay();
  if (!_haveQueues) reset();
  std::unique_ptr<Card> card = _getCard();
  if (card) {
    _col.log({"getCard", card->description()});
    card->startTimer();
  }
  return card;
}

std::unique_ptr<Card> Scheduler::_getCard() {
  if (!_undoQueue.empty()) {
    auto card = std::make_unique<Card>(std::move(_undoQueue.back()));
    _undoQueue.pop_back();
    _needResetAfterUndo = true;
    return card;
  }
  if (_needResetAfterUndo) reset();
  if (auto c = _getLrnCard()) return c;
  if (_timeForNewCard())
    if (auto c = _getNewCard()) return c;
  if (auto c = _getRevCard()) return c;
  if (auto c = _getLrnDayCard()) return c;
  if (auto c = _getNewCard()) return c;
  return _getLrnCard(true);
}

void Scheduler::reset() {
  _updateCutoff();
  _resetLrn();
  _resetRev();
  _resetNew();
  _undoQueue.clear();
  _needResetAfterUndo = false;
  _haveQueues = true;
}

std::string Scheduler::_deckLimit() const {
  return ids2str(_col.decks().active());
}

void Scheduler::shuffle(std::vector<Id>& ids) {
  const size_t n = ids.size();
  for (size_t i = 0; i + 1 < n; ++i) {
    size_t j = i + static_cast<size_t>(random()) % (n - i);
    std::swap(ids[i], ids[j]);
  }
}

// New cards.

void Scheduler::_resetNewCount() {
  newCount = _walkingCount(
      [this](const Json& deck) { return _deckNewLimitSingle(deck); },
      [this](Id did, int lim) {
        return static_cast<int>(_col.db()->scalarInt(
            "select count() from (select 1 from cards where did = ? and queue = 0 limit ?)",
            {did, int64_t{lim}}));
      });
}

void Scheduler::_resetNew() {
  _resetNewCount();
  _newDids = _col.decks().active();
  _newQ.clear();
  _updateNewCardRatio();
}

bool Scheduler::_fillNew() {
  if (!_newQ.empty()) return true;
  if (newCount == 0) return false;
  // Starting again after a reset is bounded: the counts and the tables may disagree for good.
  for (int round = 0; round < 3; ++round) {
    while (!_newDids.empty()) {
      const Id did = _newDids.front();
      const int lim = std::min(queueLimit, _deckNewLimit(did));
      if (lim != 0) {
        std::vector<Value> ids =
            _col.db()->list("select id from cards where did = ? and queue = 0 order by due limit ?",
                            {did, int64_t{lim}});
        if (!ids.empty()) {
          _newQ.clear();
          for (auto it = ids.rbegin(); it != ids.rend(); ++it) _newQ.push_back(toInt(*it));
          return true;
        }
      }
      _newDids.erase(_newDids.begin());
    }
    if (round == 2) break;
    _resetNew();
    if (newCount == 0) return false;
  }
  return false;
}

std::unique_ptr<Card> Scheduler::_getNewCard() {
  if (!_fillNew()) return nullptr;
  newCount -= 1;
  const Id id = _newQ.back();
  _newQ.pop_back();
  return _col.getCard(id);
}

void Scheduler::_updateNewCardRatio() {
  const int64_t spread = jsonInt(jsonMember(_col.conf(), "newSpread"));
  if (spread == 0 && newCount != 0) {
    newCardModulus = (newCount + revCount) / newCount;
    if (revCount != 0) newCardModulus = std::max(2, newCardModulus);
  } else {
    newCardModulus = 0;
  }
}

bool Scheduler::_timeForNewCard() const {
  if (newCount == 0) return false;
  const int64_t spread = jsonInt(jsonMember(_col.conf(), "newSpread"));
  if (spread == 1) return false;
  if (spread == 2) return true;
  if (newCardModulus == 0 || reps == 0) return false;
  return reps % newCardModulus == 0;
}

// Learning cards.

void Scheduler::_resetLrnCount() {
  const std::string dids = _deckLimit();
  lrnCount = static_cast<int>(_col.db()->scalarInt(
      "select sum(left/1000) from (select left from cards where did in " + dids +
          " and queue = 1 and due < ? limit " + std::to_string(reportLimit) + ")",
      {_dayCutOff}));
  // The limit stands behind count() and limits nothing; kept as the other devices run it.
  lrnCount += static_cast<int>(
      _col.db()->scalarInt("select count() from cards where did in " + dids +
                               " and queue = 3 and due <= ? limit " + std::to_string(reportLimit),
                           {_today}));
}

void Scheduler::_resetLrn() {
  _resetLrnCount();
  _lrnQ.clear();
  _lrnDayQ.clear();
  _lrnDids = _col.decks().active();
}

bool Scheduler::_fillLrn() {
  if (lrnCount == 0) return false;
  if (!_lrnQ.empty()) return true;
  std::vector<Row> rows =
      _col.db()->all("select due, id from cards where did in " + _deckLimit() +
                         " and queue = 1 and due < ? limit " + std::to_string(reportLimit),
                     {_dayCutOff});
  _lrnQ.clear();
  for (const Row& r : rows) _lrnQ.emplace_back(toInt(r[0]), toInt(r[1]));
  std::stable_sort(_lrnQ.begin(), _lrnQ.end(),
                   [](const LrnEntry& a, const LrnEntry& b) { return a.first < b.first; });
  return !_lrnQ.empty();
}

void Scheduler::_lrnQueuePush(LrnEntry entry) {
  auto at =
      std::upper_bound(_lrnQ.begin(), _lrnQ.end(), entry,
                       [](const LrnEntry& a, const LrnEntry& b) { return a.first < b.first; });
  _lrnQ.insert(at, entry);
}

std::unique_ptr<Card> Scheduler::_getLrnCard(bool collapse) {
  if (!_fillLrn()) return nullptr;
  int64_t cutoff = intTime(1);
  if (collapse) cutoff += jsonInt(jsonMember(_col.conf(), "collapseTime"), 1200);
  if (_lrnQ.front().first > cutoff) return nullptr;
  const Id id = _lrnQ.front().second;
  _lrnQ.erase(_lrnQ.begin());
  std::unique_ptr<Card> card = _col.getCard(id);
  lrnCount -= card->left / 1000;
  return card;
}

bool Scheduler::_fillLrnDay() {
  if (lrnCount == 0) return false;
  if (!_lrnDayQ.empty()) return true;
  while (!_lrnDids.empty()) {
    const Id did = _lrnDids.front();
    std::vector<Value> ids =
        _col.db()->list("select id from cards where did = ? and queue = 3 and due <= ? limit ?",
                        {did, _today, int64_t{queueLimit}});
    if (ids.empty()) {
      _lrnDids.erase(_lrnDids.begin());
      continue;
    }
    _lrnDayQ.clear();
    for (const Value& v : ids) _lrnDayQ.push_back(toInt(v));
    srandom(static_cast<unsigned>(_today));
    shuffle(_lrnDayQ);
    if (static_cast<int>(ids.size()) < queueLimit) _lrnDids.erase(_lrnDids.begin());
    return true;
  }
  return false;
}

std::unique_ptr<Card> Scheduler::_getLrnDayCard() {
  if (!_fillLrnDay()) return nullptr;
  lrnCount -= 1;
  const Id id = _lrnDayQ.back();
  _lrnDayQ.pop_back();
  return _col.getCard(id);
}

// Review cards.

void Scheduler::_resetRevCount() {
  revCount = _walkingCount([this](const Json& deck) { return _deckRevLimitSingle(deck); },
                           [this](Id did, int lim) {
                             return static_cast<int>(_col.db()->scalarInt(
                                 "select count() from (select id from cards where did = ? and "
                                 "queue = 2 and due <= ? limit " +
                                     std::to_string(lim) + ")",
                                 {did, _today}));
                           });
}

void Scheduler::_resetRev() {
  _resetRevCount();
  _revQ.clear();
  _revDids = _col.decks().active();
}

bool Scheduler::_fillRev() {
  if (!_revQ.empty()) return true;
  if (revCount == 0) return false;
  for (int round = 0; round < 3; ++round) {
    while (!_revDids.empty()) {
      const Id did = _revDids.front();
      const int lim = std::min(queueLimit, _deckRevLimit(did));
      if (lim != 0) {
        std::vector<Id> ids =
            _col.db()->ids("select id from cards where did = ? and queue = 2 and due <= ? limit ?",
                           {did, _today, int64_t{lim}});
        if (!ids.empty()) {
          if (_col.decks().isDyn(did)) {
            std::reverse(ids.begin(), ids.end());
          } else {
            // The same cards come in the same order all day, across restarts.
            srandom(static_cast<unsigned>(_today));
            shuffle(ids);
          }
          if (static_cast<int>(ids.size()) < lim) _revDids.erase(_revDids.begin());
          _revQ = std::move(ids);
          return true;
        }
      }
      _revDids.erase(_revDids.begin());
    }
    if (round == 2) break;
    _resetRev();
    if (revCount == 0) return false;
  }
  return false;
}

std::unique_ptr<Card> Scheduler::_getRevCard() {
  if (!_fillRev()) return nullptr;
  revCount -= 1;
  const Id id = _revQ.back();
  _revQ.pop_back();
  return _col.getCard(id);
}

// Counts.

int Scheduler::countIdx(const Card& card) {
  // The counts are ordered new, learning, review, as the first three queues are; learning due
  // on a later day counts as learning, and any other queue falls outside the three.
  return card.queue == kQueueDayLearning ? kQueueLearning : card.queue;
}

std::array<int, 3> Scheduler::countsForCard(const Card* card) {
  std::array<int, 3> counts{newCount, lrnCount, revCount};
  // A card in no countable queue (suspended, or of an unknown kind) adds nothing.
  auto adjust = [&counts](const Card& c, int amount) {
    const int idx = countIdx(c);
    if (idx >= 0 && idx < 3) counts[idx] += amount;
  };
  for (const Card& c : _undoQueue) adjust(c, 1);
  if (card) {
    if (_needResetAfterUndo || countIdx(*card) != 1)
      adjust(*card, 1);
    else
      counts[1] += card->left / 1000;
  }
  return counts;
}

int Scheduler::totalNewForCurrentDeck() {
  return static_cast<int>(_col.db()->scalarInt(
      "select count() from cards where id in (select id from cards where did in " + _deckLimit() +
          " and queue = 0 limit ?)",
      {int64_t{reportLimit}}));
}

int Scheduler::totalRevForCurrentDeck() {
  return static_cast<int>(_col.db()->scalarInt(
      "select count() from cards where id in (select id from cards where did in " + _deckLimit() +
          " and queue = 2 and due <= ? limit ?)",
      {_today, int64_t{reportLimit}}));
}

bool Scheduler::revDue() {
  return _col.db()
      ->scalar("select 1 from cards where did in " + _deckLimit() +
                   " and queue = 2 and due <= ? limit 1",
               {_today})
      .has_value();
}

bool Scheduler::newDue() {
  return _col.db()
      ->scalar("select 1 from cards where did in " + _deckLimit() + " and queue = 0 limit 1")
      .has_value();
}

bool Scheduler::haveBuried() {
  return _col.db()
      ->scalar("select 1 from cards where queue=-2 and did in " + _deckLimit() + " limit 1")
      .has_value();
}

// --- Option lookups ---

const Json& Scheduler::_groupOf(const Json& did) {
  const Json* conf = _col.decks().confForDid(did);
  return conf ? *conf : defaultGroup();
}

Json Scheduler::_newConf(const Card& card) {
  const Json& conf = _groupOf(card.did);
  if (!card.odid) return section(&conf, "new");
  const Json home = section(&_groupOf(card.odid), "new");
  const Json& bury = jsonMember(home, "bury");
  const Json& delays = jsonMember(conf, "delays");
  return Json{{"ints", home["ints"]},
              {"initialFactor", home["initialFactor"]},
              {"bury", bury.is_null() ? true : jsonBool(bury)},
              {"delays", isNumberList(delays) ? delays : home["delays"]},
              {"separate",
               jsonMember(conf, "separate").is_null() || jsonBool(jsonMember(conf, "separate"))},
              {"order", 1},
              {"perDay", reportLimit}};
}

Json Scheduler::_lapseConf(const Card& card) {
  const Json& conf = _groupOf(card.did);
  if (!card.odid) return section(&conf, "lapse");
  const Json home = section(&_groupOf(card.odid), "lapse");
  const Json& delays = jsonMember(conf, "delays");
  return Json{
      {"minInt", home["minInt"]},
      {"leechFails", home["leechFails"]},
      {"leechAction", home["leechAction"]},
      {"mult", home["mult"]},
      {"delays", isNumberList(delays) ? delays : home["delays"]},
      {"resched", jsonMember(conf, "resched").is_null() || jsonBool(jsonMember(conf, "resched"))}};
}

Json Scheduler::_revConf(const Card& card) {
  return section(&_groupOf(card.odid ? card.odid : card.did), "rev");
}

Json Scheduler::_lrnConf(const Card& card) {
  return card.type == kTypeReview ? _lapseConf(card) : _newConf(card);
}

bool Scheduler::_resched(const Card& card) {
  const Json& conf = _groupOf(card.did);
  if (!jsonBool(jsonMember(conf, "dyn"))) return true;
  const Json& resched = jsonMember(conf, "resched");
  return resched.is_null() || jsonBool(resched);
}

// --- Answering ---

void Scheduler::answerCard(Card& card, int ease) {
  _col.log({"answerCard", card.description(), std::to_string(ease)});
  if (ease < 1 || ease > 4) throw std::logic_error("(ease>=1)&&(ease<=4)");
  _col.markReview(card);
  _burySiblings(card);
  reps += 1;
  card.reps += 1;
  const int wasQueue = card.queue;
  if (wasQueue == kQueueNew) {
    card.queue = kQueueLearning;
    if (card.type == kTypeNew) card.type = kTypeLearning;
    card.left = _startingLeft(card);
    if (card.odid && card.type == kTypeReview && _resched(card)) {
      card.ivl = _dynIvlBoost(card);
      card.odue = _today + card.ivl;
    }
    _updateStats(card, "new");
  }
  if (card.queue == kQueueLearning || card.queue == kQueueDayLearning) {
    _answerLrnCard(card, ease);
    if (wasQueue != kQueueNew) _updateStats(card, "lrn");
  } else if (card.queue == kQueueReview) {
    _answerRevCard(card, ease);
    _updateStats(card, "rev");
  }
  _updateStats(card, "time", card.timeTaken());
  const Col::Stamp now = _col.stamp();
  card.mod = now.mod;
  card.usn = static_cast<int>(now.usn);
  card.flushSched();
}

void Scheduler::_burySiblings(const Card& card) {
  // A group without the key buries.
  auto buries = [](const Json& conf) {
    const Json& bury = jsonMember(conf, "bury");
    return bury.is_null() || jsonBool(bury);
  };
  const bool buryNew = buries(_newConf(card));
  const bool buryRev = buries(_revConf(card));
  std::vector<Row> rows = _col.db()->all(
      "select id, queue from cards where nid=? and id!=? and (queue=0 or (queue=2 and due<=?))",
      {card.nid, card.id, _today});
  std::vector<Id> toBury;
  auto drop = [](std::vector<Id>& q, Id id) {
    q.erase(std::remove(q.begin(), q.end(), id), q.end());
  };
  for (const Row& r : rows) {
    const Id id = toInt(r[0]);
    if (toInt(r[1]) == kQueueReview) {
      if (buryRev) toBury.push_back(id);
      drop(_revQ, id);
    } else {
      if (buryNew) toBury.push_back(id);
      drop(_newQ, id);
    }
  }
  if (toBury.empty()) return;
  const std::string ids = ids2str(toBury);
  const Col::Stamp now = _col.stamp();
  _col.db()->run("update cards set queue=-2,mod=?,usn=? where id in " + ids, {now.mod, now.usn});
  _col.log({"burySiblings", ids});
}

bool Scheduler::_moveToDayLearning(Card& card) {
  if (card.due < _dayCutOff) return false;
  card.due = _today + (card.due - _dayCutOff) / 86400 + 1;
  card.queue = kQueueDayLearning;
  return true;
}

void Scheduler::_answerLrnCard(Card& card, int ease) {
  const Json conf = _lrnConf(card);
  const int type = card.odid ? kRevlogFiltered
                             : (card.type != kTypeReview ? kRevlogLearning : kRevlogRelearning);
  const int lastLeft = card.left;
  if ((ease == 2 && card.left % 1000 < 2) || ease == 3) {
    _rescheduleAsRev(card, conf, ease == 3);
    _logLrn(card, ease, conf, true, type, lastLeft);
    return;
  }
  if (ease == 2) {
    const int n = card.left % 1000 - 1;
    card.left = n + 1000 * _leftToday(jsonMember(conf, "delays"), n);
  } else {
    card.left = _startingLeft(card);
    const bool resched = _resched(card);
    if (resched && conf.contains("mult")) {
      const double scaled = std::max(static_cast<double>(card.ivl) * jsonNumber(conf["mult"]), 1.0);
      card.ivl =
          std::max(static_cast<int64_t>(scaled), jsonNumberInt(jsonMember(conf, "minInt"), 1));
    }
    if (resched && card.odid) card.odue = _today + 1;
  }
  int64_t delay = _delayForGrade(conf, card.left);
  const int64_t now = intTime(1);
  if (card.due < now)
    delay = static_cast<int64_t>(static_cast<float>(delay) * randomBetween(1.0f, 1.25f));
  card.due = now + delay;
  if (!_moveToDayLearning(card)) {
    lrnCount += card.left / 1000;
    card.queue = kQueueLearning;
    // With nothing else to study, a card answered again waits behind the others.
    if (!_lrnQ.empty() && revCount == 0 && newCount == 0)
      card.due = std::max(card.due, _lrnQ.front().first + 1);
    _lrnQueuePush({card.due, card.id});
  }
  _logLrn(card, ease, conf, false, type, lastLeft);
}

int64_t Scheduler::_delayForGrade(const Json& conf, int left) const {
  const Json& delays = jsonMember(conf, "delays");
  if (!delays.is_array() || delays.empty()) return 60;
  const int n = left % 1000;
  const size_t count = delays.size();
  const double delay = n >= 1 && count >= static_cast<size_t>(n) ? jsonNumber(delays[count - n])
                                                                 : jsonNumber(delays[0]);
  return static_cast<int64_t>(static_cast<float>(delay) * 60.0);
}

int Scheduler::_startingLeft(const Card& card) {
  const Json conf = card.type == kTypeReview ? _lapseConf(card) : _lrnConf(card);
  const Json& delays = jsonMember(conf, "delays");
  const int n = static_cast<int>(delayCount(conf));
  return n + 1000 * _leftToday(delays, n);
}

int Scheduler::_leftToday(const Json& delays, int left, int64_t now) const {
  if (now == 0) now = intTime(1);
  std::vector<double> steps;
  if (delays.is_array())
    for (const Json& d : delays) steps.push_back(jsonNumber(d));
  const size_t keep = static_cast<size_t>(std::max(left, 0));
  if (steps.size() > keep) steps.erase(steps.begin(), steps.end() - static_cast<ptrdiff_t>(keep));
  if (steps.empty()) return 1;
  int ok = 0;
  for (size_t i = 0; i < steps.size(); ++i) {
    // Whole minutes only here, so a step of half a minute counts as none.
    now += static_cast<int64_t>(steps[i]) * 60;
    if (now > _dayCutOff) break;
    ok = static_cast<int>(i);
  }
  return ok + 1;
}

void Scheduler::_rescheduleAsRev(Card& card, const Json& conf, bool early) {
  const bool lapse = card.type == kTypeReview;
  if (!lapse) {
    _rescheduleNew(card, conf, early);
  } else {
    card.due = _resched(card) ? std::max(card.odue, _today + 1) : card.odue;
    card.odue = 0;
  }
  card.queue = kQueueReview;
  card.type = kTypeReview;
  const bool resched = _resched(card);
  if (card.odid) {
    card.did = card.odid;
    card.odue = 0;
    card.odid = 0;
    // A new card studied without rescheduling goes back to the end of the new cards.
    if (!resched && !lapse) {
      card.queue = kQueueNew;
      card.type = kTypeNew;
      card.due = _col.nextID("pos");
    }
  }
}

void Scheduler::_rescheduleNew(Card& card, const Json& conf, bool early) {
  card.ivl = _graduatingIvl(card, conf, early);
  card.due = _today + card.ivl;
  card.factor = static_cast<int>(jsonNumberInt(jsonMember(conf, "initialFactor"), 2500));
}

int64_t Scheduler::_graduatingIvl(Card& card, const Json& conf, bool early, bool adj) {
  if (card.type == kTypeReview) {
    if (card.odid && jsonBool(jsonMember(conf, "resched"))) return _dynIvlBoost(card);
    return card.ivl;
  }
  const Json& ints = jsonMember(conf, "ints");
  const size_t i = early ? 1 : 0;
  const int64_t ideal =
      ints.is_array() && ints.size() > i ? jsonNumberInt(ints[i]) : (early ? 4 : 1);
  return adj ? _adjRevIvl(ideal) : ideal;
}

void Scheduler::_answerRevCard(Card& card, int ease) {
  int64_t delay = 0;
  if (ease == 1)
    delay = _rescheduleLapse(card);
  else
    _rescheduleRev(card, ease);
  _logRev(card, ease, delay);
}

int64_t Scheduler::_rescheduleLapse(Card& card) {
  const Json conf = _lapseConf(card);
  card.lastIvl = card.ivl;
  if (_resched(card)) {
    card.lapses += 1;
    card.ivl = _nextLapseIvl(card, conf);
    card.factor = std::max(1300, card.factor - 200);
    card.due = _today + card.ivl;
    if (card.odid) card.odue = card.due;
  }
  if (_checkLeech(card, conf) && card.queue == kQueueSuspended) return 0;
  if (delayCount(conf) == 0) return 0;
  if (card.odue == 0) card.odue = card.due;
  const int64_t delay = _delayForGrade(conf, 0);
  card.due = intTime(1) + delay;
  card.left = _startingLeft(card);
  if (!_moveToDayLearning(card)) {
    lrnCount += card.left / 1000;
    card.queue = kQueueLearning;
    _lrnQueuePush({card.due, card.id});
  }
  return delay;
}

int64_t Scheduler::_nextLapseIvl(const Card& card, const Json& conf) const {
  const float mult = static_cast<float>(jsonNumber(jsonMember(conf, "mult")));
  const auto scaled = static_cast<int64_t>(static_cast<float>(card.ivl) * mult);
  return std::max(jsonNumberInt(jsonMember(conf, "minInt"), 1), scaled);
}

void Scheduler::_rescheduleRev(Card& card, int ease) {
  card.lastIvl = card.ivl;
  if (_resched(card)) {
    card.ivl = _adjRevIvl(_nextRevIvl(card, ease));
    card.factor = std::max(1300, card.factor + kFactorAdd[ease]);
    card.due = _today + card.ivl;
  } else {
    card.due = card.odue;
  }
  if (card.odid) {
    card.did = card.odid;
    card.odid = 0;
    card.odue = 0;
  }
}

int64_t Scheduler::_nextRevIvl(const Card& card, int ease) {
  const Json conf = _revConf(card);
  const auto d = static_cast<int32_t>(_daysLate(card));
  const auto fct = static_cast<float>(static_cast<double>(card.factor) / 1000.0);
  const auto ivlFct = static_cast<float>(jsonNumber(jsonMember(conf, "ivlFct"), 1.0));
  const auto ease4 = static_cast<float>(jsonNumber(jsonMember(conf, "ease4"), 1.3));
  const int64_t ivl = card.ivl;
  // Each button gives at least a day more than the one before it.
  auto constrain = [ivlFct](int64_t x, int64_t previous) {
    const auto scaled = static_cast<int32_t>(static_cast<float>(x) * ivlFct);
    return std::max(scaled, static_cast<int32_t>(previous + 1));
  };
  const int32_t hard = constrain(static_cast<int64_t>(static_cast<double>(ivl + d / 4) * 1.2), ivl);
  const int32_t good = constrain(static_cast<int64_t>(static_cast<float>(ivl + d / 2) * fct), hard);
  const float easyRaw = static_cast<float>(ivl + d) * fct * ease4;
  const int32_t easy = constrain(static_cast<int64_t>(easyRaw), good);
  const int64_t chosen = ease == 2 ? hard : ease == 3 ? good : easy;
  return std::min(chosen, jsonNumberInt(jsonMember(conf, "maxIvl"), 36500));
}

int64_t Scheduler::_daysLate(const Card& card) const {
  return std::max<int64_t>(0, _today - (card.odid ? card.odue : card.due));
}

int64_t Scheduler::_adjRevIvl(int64_t idealIvl) const {
  return _spreadRev ? _fuzzedIvl(idealIvl) : idealIvl;
}

std::pair<int64_t, int64_t> Scheduler::_fuzzIvlRange(int64_t ivl) {
  if (ivl < 2) return {1, 1};
  if (ivl == 2) return {2, 3};
  const auto d = static_cast<double>(ivl);
  int64_t f;
  if (ivl < 7)
    f = static_cast<int64_t>(d * 0.25);
  else if (ivl < 30)
    f = static_cast<int64_t>(std::max(d * 0.15, 2.0));
  else
    f = static_cast<int64_t>(std::max(d * 0.05, 4.0));
  f = std::max<int64_t>(f, 1);
  return {ivl - f, ivl + f};
}

int64_t Scheduler::_fuzzedIvl(int64_t ivl) {
  const auto [low, high] = _fuzzIvlRange(ivl);
  const float r = randomBetween(static_cast<float>(low), static_cast<float>(high));
  return static_cast<int64_t>(std::ceil(static_cast<double>(r) - 0.5));
}

int64_t Scheduler::_dynIvlBoost(const Card& card) {
  if (!card.odid || card.type != kTypeReview)
    throw std::logic_error("[card odid] && [card type] == 2");
  if (!card.factor) throw std::logic_error("[card factor]");
  const int64_t elapsed = card.ivl - card.odue + _today;
  const auto f = static_cast<float>((static_cast<double>(card.factor) / 1000.0 + 1.2) * 0.5);
  const float x = static_cast<float>(elapsed) * f;
  int64_t ivl = static_cast<int64_t>(std::max(x, static_cast<float>(card.ivl)));
  ivl = std::max<int64_t>(ivl, 1);
  return std::min(ivl, jsonNumberInt(jsonMember(_revConf(card), "maxIvl"), 36500));
}

bool Scheduler::_checkLeech(Card& card, const Json& conf) {
  const int64_t lf = jsonNumberInt(jsonMember(conf, "leechFails"));
  if (lf == 0 || card.lapses < lf) return false;
  if ((card.lapses - lf) % std::max<int64_t>(lf / 2, 1) != 0) return false;
  if (auto note = card.note()) {
    note->addTag("leech");
    note->flush();
  }
  if (jsonNumberInt(jsonMember(conf, "leechAction")) == 0) {
    if (card.odue) card.due = card.odue;
    if (card.odid) card.did = card.odid;
    card.odid = 0;
    card.odue = 0;
    card.queue = kQueueSuspended;
  }
  _col.postNotification("leech");
  return true;
}

// The review log.

void Scheduler::_logLrn(const Card& card, int ease, const Json& conf, bool leaving, int type,
                        int lastLeft) {
  const int64_t ivl = leaving ? card.ivl : -_delayForGrade(conf, card.left);
  _writeLog(card, ease, ivl, -_delayForGrade(conf, lastLeft), type, "retry logLrn insert");
}

void Scheduler::_logRev(const Card& card, int ease, int64_t delay) {
  _writeLog(card, ease, delay ? -delay : card.ivl, card.lastIvl, kRevlogReview,
            "retry logRev insert");
}

void Scheduler::_writeLog(const Card& card, int ease, int64_t ivl, int64_t lastIvl, int type,
                          const char* retryMessage) {
  // Answers can come faster than one a millisecond: start past the last id written here
  // rather than clash with it and wait for the clock.
  int64_t id = std::max<int64_t>(intTime(1000), _lastRevlogId + 1);
  const int64_t taken = const_cast<Card&>(card).timeTaken();
  const std::string typeText = std::to_string(type);
  const char* sql = "insert into revlog values (?,?,?,?,?,?,?,?,?)";
  auto vars = [&] {
    return Row{id,      card.id, int64_t{_col.usn()},  int64_t{ease},
               ivl,     lastIvl, int64_t{card.factor}, taken,
               typeText};
  };
  while (!_col.db()->runWithResult(sql, vars())) {
    // Anything but a clash on the id is a real failure: let it be raised.
    if (!_col.db()->scalar("select 1 from revlog where id = ?", {id})) _col.db()->run(sql, vars());
    _col.log({retryMessage});
    // The next millisecond: the clock only moves forward, so waiting for it gains nothing.
    id = std::max<int64_t>(intTime(1000), id + 1);
  }
  _lastRevlogId = id;
}

// --- What the buttons show ---

int Scheduler::answerButtons(const Card& card) {
  if (card.odue) {
    if (card.odid && card.queue == kQueueReview) return 4;
    const Json conf = _lrnConf(card);
    if (card.type == kTypeNew || card.type == kTypeLearning || delayCount(conf) >= 2) return 3;
    return 2;
  }
  return card.queue == kQueueReview ? 4 : 3;
}

int64_t Scheduler::nextIvl(Card& card, int ease) {
  if (card.queue == kQueueNew || card.queue == kQueueLearning || card.queue == kQueueDayLearning)
    return _nextLrnIvl(card, ease);
  if (ease == 1) {
    const Json conf = _lapseConf(card);
    if (delayCount(conf) > 0) return jsonNumberInt(conf["delays"][0]) * 60;
    return _nextLapseIvl(card, conf) * 86400;
  }
  return _nextRevIvl(card, ease) * 86400;
}

int64_t Scheduler::_nextLrnIvl(Card& card, int ease) {
  if (card.queue == kQueueNew) card.left = _startingLeft(card);
  const Json conf = _lrnConf(card);
  if (ease == 1) return _delayForGrade(conf, static_cast<int>(delayCount(conf)));
  if (ease == 3) return _resched(card) ? _graduatingIvl(card, conf, true, false) * 86400 : 0;
  const int n = card.left % 1000 - 1;
  if (n > 0) return _delayForGrade(conf, n);
  return _resched(card) ? _graduatingIvl(card, conf, false, false) * 86400 : 0;
}

std::string Scheduler::nextIvlStr(Card& card, int ease, bool shortForm) {
  const int64_t ivl = nextIvl(card, ease);
  if (ivl == 0) return "(end)";
  return fmtTimeSpan(0, 0, shortForm, false, 99, static_cast<float>(ivl));
}

// --- Deck limits ---

int Scheduler::_deckNewLimitSingle(const Json& deck) {
  if (jsonBool(jsonMember(deck, "dyn"))) return reportLimit;
  const Json group = section(&_groupOf(jsonMember(deck, "id")), "new");
  return static_cast<int>(
      std::max<int64_t>(0, jsonNumberInt(group["perDay"]) - counter(deck, "newToday")));
}

int Scheduler::_deckRevLimitSingle(const Json& deck) {
  if (jsonBool(jsonMember(deck, "dyn"))) return reportLimit;
  const Json group = section(&_groupOf(jsonMember(deck, "id")), "rev");
  return static_cast<int>(
      std::max<int64_t>(0, jsonNumberInt(group["perDay"]) - counter(deck, "revToday")));
}

int Scheduler::_deckLimitWith(Id did, const LimitFn& fn) {
  Json* deck = _col.decks().getDeck(did);
  if (!deck) return 0;
  int lowest = fn(*deck);
  for (Json* parent : _col.decks().parents(did)) lowest = std::min(lowest, fn(*parent));
  return lowest;
}

int Scheduler::_deckNewLimit(Id did) {
  return _deckLimitWith(did, [this](const Json& deck) { return _deckNewLimitSingle(deck); });
}

int Scheduler::_deckRevLimit(Id did) {
  return _deckLimitWith(did, [this](const Json& deck) { return _deckRevLimitSingle(deck); });
}

int Scheduler::_walkingCount(const LimitFn& limFn, const CountFn& cntFn) {
  int total = 0;
  std::map<Id, int> remaining;
  for (Id did : _col.decks().active()) {
    Json* deck = _col.decks().getDeck(did, false);
    if (!deck) continue;
    int lim = limFn(*deck);
    if (lim == 0) continue;
    std::vector<Json*> parents = _col.decks().parents(did);
    for (Json* parent : parents) {
      const Id pid = idOf(*parent);
      auto it = remaining.find(pid);
      if (it == remaining.end()) it = remaining.emplace(pid, limFn(*parent)).first;
      lim = std::min(lim, it->second);
    }
    const int cnt = cntFn(did, lim);
    for (Json* parent : parents) remaining[idOf(*parent)] -= cnt;
    remaining[did] = lim - cnt;
    total += cnt;
  }
  return total;
}

int Scheduler::_newForDeck(Id did, int lim) {
  if (lim == 0) return 0;
  lim = std::min(lim, reportLimit);
  return static_cast<int>(_col.db()->scalarInt(
      "select count() from (select 1 from cards where did = ? and queue = 0 limit ?)",
      {did, int64_t{lim}}));
}

int Scheduler::_revForDeck(Id did, int lim) {
  lim = std::min(lim, reportLimit);
  return static_cast<int>(_col.db()->scalarInt(
      "select count() from (select 1 from cards where did = ? and queue = 2 and due <= ? limit ?)",
      {did, _today, int64_t{lim}}));
}

int Scheduler::_lrnForDeck(Id did) {
  const int64_t ahead = intTime(1) + jsonInt(jsonMember(_col.conf(), "collapseTime"), 1200);
  int64_t count = _col.db()->scalarInt(
      "select sum(left/1000) from (select left from cards where did = ? and queue = 1 and due < ? "
      "limit ?)",
      {did, ahead, int64_t{reportLimit}});
  count += _col.db()->scalarInt(
      "select count() from (select 1 from cards where did = ? and queue = 3 and due <= ? limit ?)",
      {did, _today, int64_t{reportLimit}});
  return static_cast<int>(count);
}

void Scheduler::_updateStats(const Card& card, const std::string& type, int64_t count) {
  // A deck that no longer exists counts nowhere.
  Json* deck = _col.decks().getDeck(card.did, false);
  if (!deck) return;
  const std::string key = type + "Today";
  std::vector<Json*> decks = _col.decks().parents(card.did);
  decks.insert(decks.begin(), deck);
  for (Json* d : decks) {
    Json& value = (*d)[key];
    // A counter of another day (a deck made since the last reset) starts today at 0.
    if (!value.is_array() || value.size() < 2 || jsonInt(value[0], -1) != _today)
      value = Json::array({_today, 0});
    value[1] = jsonNumberInt(value[1]) + count;
    _col.decks().save(d);
  }
}

void Scheduler::extendLimits(int newCards, int revCards) {
  Json* cur = _col.decks().current();
  if (!cur) return;
  const Id did = idOf(*cur);
  std::vector<Json*> decks = _col.decks().parents(did);
  decks.insert(decks.begin(), cur);
  for (const auto& [childName, child] : _col.decks().children(did))
    if (Json* d = _col.decks().getDeck(child, false)) decks.push_back(d);
  for (Json* d : decks) {
    for (auto [key, amount] : {std::pair{"newToday", newCards}, std::pair{"revToday", revCards}}) {
      Json& value = (*d)[key];
      // A counter of another day (a deck made since the last reset) starts today at 0.
      if (!value.is_array() || value.size() < 2 || jsonInt(value[0], -1) != _today)
        value = Json::array({_today, 0});
      value[1] = jsonNumberInt(value[1]) - amount;
    }
    _col.decks().save(d);
  }
}

// --- Operations on cards ---

void Scheduler::unburyCardsForDeck() {
  const std::string dids = _deckLimit();
  std::vector<Id> ids = _col.db()->ids("select id from cards where queue = -2 and did in " + dids);
  _col.log({"unburyCardsForDeck", ids2str(ids)});
  const Col::Stamp now = _col.stamp();
  _col.db()->run("update cards set mod=?,usn=?,queue=type where queue=-2 and did in " + dids,
                 {now.mod, now.usn});
}

void Scheduler::suspendCards(const std::vector<Id>& ids) {
  _col.log({"suspendCards", ids2str(ids)});
  remFromDyn(ids);
  removeLrnForIDs(ids);
  const Col::Stamp now = _col.stamp();
  _col.db()->run("update cards set queue=-1,mod=?,usn=? where id in " + ids2str(ids),
                 {now.mod, now.usn});
}

void Scheduler::unsuspendCards(const std::vector<Id>& ids) {
  _col.log({"unsuspendCards", ids2str(ids)});
  const Col::Stamp now = _col.stamp();
  _col.db()->run(
      "update cards set queue=type,mod=?,usn=? where queue = -1 and id in " + ids2str(ids),
      {now.mod, now.usn});
}

void Scheduler::buryCard(Id cid) {
  _col.log({"buryCard", std::to_string(cid)});
  remFromDyn({cid});
  removeLrnForIDs({cid});
  const Col::Stamp now = _col.stamp();
  _col.db()->run("update cards set queue=-2,mod=?,usn=? where id = ?", {now.mod, now.usn, cid});
}

void Scheduler::buryNote(Id nid) {
  std::vector<Id> ids = _col.db()->ids("select id from cards where nid = ? and queue >= 0", {nid});
  _col.log({"buryNote", ids2str(ids)});
  remFromDyn(ids);
  removeLrnForIDs(ids);
  const Col::Stamp now = _col.stamp();
  _col.db()->run("update cards set queue=-2,mod=?,usn=? where id in " + ids2str(ids),
                 {now.mod, now.usn});
}

void Scheduler::removeLrnForIDs(const std::vector<Id>& ids) {
  const std::string clause = " and id in " + ids2str(ids);
  const Col::Stamp now = _col.stamp();
  _col.db()->run(
      "update cards set due = odue, queue = 2, mod = ?, usn = ?, odue = 0 where queue in (1,3) "
      "and type = 2 " +
          clause,
      {now.mod, now.usn});
  // What is still learning was never a review: it starts again as a new card.
  std::vector<Id> learning = _col.db()->ids("select id from cards where queue in (1,3) " + clause);
  forgetCards(learning);
}

void Scheduler::forgetCards(const std::vector<Id>& ids) {
  _col.db()->run(
      "update cards set type=0,queue=0,ivl=0,due=0,factor=2500 where odid=0 and queue>=0 and id "
      "in " +
      ids2str(ids));
  std::optional<Value> top = _col.db()->scalar("select max(due) from cards where type=0");
  const int64_t start = top && !isNull(*top) ? toInt(*top) + 1 : 1;
  sortCards(ids, static_cast<int>(start));
}

void Scheduler::resetCards(const std::vector<Id>& ids) {
  _col.db()->run("update cards set reps=0, lapses=0 where odid=0 and queue >=0 and id in " +
                 ids2str(ids));
  forgetCards(ids);
}

void Scheduler::reschedCards(const std::vector<Id>&, int, int) {
  throw std::logic_error("0");
}

void Scheduler::sortCards(const std::vector<Id>& ids, int start, int step, bool shuffleNotes,
                          bool shift) {
  const int64_t now = intTime(1);
  std::vector<Id> nids;
  for (Id cid : ids) {
    std::optional<Value> nid = _col.db()->scalar("select nid from cards where id = ?", {cid});
    if (!nid || isNull(*nid)) continue;
    const Id n = toInt(*nid);
    if (std::find(nids.begin(), nids.end(), n) == nids.end()) nids.push_back(n);
  }
  if (nids.empty()) return;
  if (shuffleNotes) shuffle(nids);
  std::map<Id, int64_t> due;
  for (size_t i = 0; i < nids.size(); ++i)
    due[nids[i]] = int64_t{start} + static_cast<int64_t>(i) * step;
  const int64_t high = due[nids.back()];
  const std::string sids = ids2str(ids);
  const int64_t usn = _col.usn();
  if (shift) {
    const int64_t low = _col.db()->scalarInt(
        "select min(due) from cards where due >= ? and type = 0 and id not in " + sids,
        {int64_t{start}});
    if (low != 0) {
      _col.db()->run("update cards set mod=?, usn=?, due=due+? where id not in " + sids +
                         " and due >= ? and queue = 0",
                     {now, usn, high - low + 1, low});
    }
  }
  // Cards that aren't new keep their due, though they took part in numbering their notes.
  std::vector<Row> rows;
  for (const Row& r : _col.db()->all("select id, nid from cards where type = 0 and id in " + sids))
    rows.push_back({due[toInt(r[1])], now, usn, toInt(r[0])});
  _col.db()->executeMany("update cards set due=?,mod=?,usn=? where id = ?", rows);
}

void Scheduler::randomizeCards(Id did) {
  std::vector<Id> ids = _col.db()->ids("select id from cards where did = ?", {did});
  sortCards(ids, true);
}

void Scheduler::orderCards(Id did) {
  std::vector<Id> ids = _col.db()->ids("select id from cards where did = ? order by id", {did});
  sortCards(ids);
}

void Scheduler::resortConf(const Json& conf) {
  const bool randomOrder = jsonNumberInt(section(&conf, "new")["order"]) == 0;
  for (Id did : _col.decks().didsForConf(conf)) {
    if (randomOrder)
      randomizeCards(did);
    else
      orderCards(did);
  }
}

void Scheduler::maybeRandomizeDeck(Id did) {
  const Json* conf = _col.decks().confForDid(did);
  if (conf && jsonNumberInt(section(conf, "new")["order"]) == 0) randomizeCards(did);
}

std::string Scheduler::_nextDueMsg() {
  std::vector<std::string> parts;
  if (revDue())
    parts.push_back(
        "Today's review limit has been reached, but there are still cards waiting to be "
        "reviewed. For optimum memory, consider increasing the daily limit in the options.");
  if (newDue())
    parts.push_back(
        "There are more new cards available, but the daily limit has been reached. You can "
        "increase the limit in the options, but please bear in mind that the more new cards you "
        "introduce, the higher your short-term review workload will become.");
  if (haveBuried())
    parts.push_back(
        "Some related or buried cards were delayed. They will be shown in a future study "
        "session, or you can <a href=_unbury>unbury cards now</a>.");
  const Json* cur = _col.decks().current();
  if (_haveCustomStudy && !(cur && jsonBool(jsonMember(*cur, "dyn"))))
    parts.push_back(
        "To study outside of the normal schedule, you can use<br><a href=_cstudy "
        "style='padding:2em;'>Custom Study.</a>");
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out += "<p>";
    out += parts[i];
  }
  return out;
}

std::string Scheduler::finishedMsg() {
  return "<b>Congratulations! You have finished this deck for now.</b><br><br>" + _nextDueMsg();
}

// --- Filtered decks and custom study ---

const std::map<int, std::string>& Scheduler::dynOrderLabels() {
  static const std::map<int, std::string> labels = {{0, "Oldest seen first"},
                                                    {1, "Random"},
                                                    {2, "Increasing intervals"},
                                                    {3, "Decreasing intervals"},
                                                    {4, "Most lapses"},
                                                    {5, "Order added"},
                                                    {6, "Order due"},
                                                    {7, "Latest added first"},
                                                    {8, "Relative overdueness"}};
  return labels;
}

std::vector<Id> Scheduler::rebuildDynForDeck(Id did) {
  if (!did) did = _col.decks().selected();
  const Json* deck = _col.decks().getDeck(did, false);
  if (!deck || !jsonBool(jsonMember(*deck, "dyn"))) return {};
  emptyDyn(did);
  std::vector<Id> ids = _fillDyn(*deck);
  if (ids.empty()) return {};
  _col.decks().select(did);
  return ids;
}

std::vector<Id> Scheduler::_fillDyn(const Json& deck) {
  // Only the first term counts; a damaged one reads as an empty search.
  const Json& terms = jsonMember(deck, "terms");
  const Json& term = terms.is_array() && !terms.empty() ? terms[0] : Json();
  std::string search;
  int64_t limit = 0, order = 6;
  if (term.is_array() && term.size() >= 3) {
    if (term[0].is_string()) search = term[0].get<std::string>();
    limit = jsonNumberInt(term[1]);
    order = jsonNumberInt(term[2], 6);
  }
  const std::string sort = _dynOrder(order, limit);
  search += " -is:suspended -is:buried -deck:filtered";
  std::vector<Id> ids = _col.findCards(search, sort);
  if (ids.empty()) return {};
  const Id did = idOf(deck);
  _col.log({"fillDyn", std::to_string(did), ids2str(ids)});
  _moveToDyn(did, ids);
  return ids;
}

std::string Scheduler::_dynOrder(int64_t order, int64_t limit) const {
  static const char* const kSorts[] = {"c.mod",       "random()", "ivl",   "ivl desc",
                                       "lapses desc", "n.id",     "c.due", "n.id desc"};
  std::string sort = "c.due";
  if (order >= 0 && order < 8) sort = kSorts[order];
  if (order == 8) {
    // A card due today divides by 0.001, so the more overdue of two equal intervals leads.
    const std::string t = std::to_string(_today);
    sort = "(case when queue=2 and due <= " + t + " then (ivl / cast(" + t +
           "-due+0.001 as real)) else 100000+due end)";
  }
  // The limit is written as a C int, as the other devices write it.
  return sort + " limit " + std::to_string(static_cast<int>(limit));
}

void Scheduler::_moveToDyn(Id did, const std::vector<Id>& ids) {
  const int64_t now = intTime(1);
  const int usn = _col.usn();
  const std::string t = std::to_string(_today);
  // A lapsed card in relearning keeps its review day in odue, so that is the one tested.
  const std::string queue = "(case when type=2 and (case when odue then odue <= " + t +
                            " else due <= " + t + " end) then 2 else 0 end)";
  std::vector<Row> rows;
  rows.reserve(ids.size());
  for (size_t i = 0; i < ids.size(); ++i)
    rows.push_back({did, static_cast<int64_t>(-100000 + static_cast<int64_t>(i)), now,
                    static_cast<int64_t>(usn), ids[i]});
  // A home deck and due already recorded are kept: the first ones are the true home.
  _col.db()->executeMany(
      "update cards set odid = (case when odid then odid else did end), odue = (case when odue "
      "then odue else due end), did = ?, queue = " +
          queue + ", due = ?, mod = ?, usn = ? where id = ?",
      rows);
}

void Scheduler::emptyDyn(Id did, const std::string& lim) {
  const std::string where = lim.empty() ? "did = " + std::to_string(did) : lim;
  std::vector<Id> ids = _col.db()->ids("select id from cards where " + where);
  _col.log({"emptyDyn", ids2str(ids)});
  const Col::Stamp now = _col.stamp();
  _col.db()->run(
      "update cards set did = odid, queue = (case when type = 1 then 0 else type end), type = "
      "(case when type = 1 then 0 else type end), due = odue, odue = 0, odid = 0, usn = ?, mod "
      "= ? where " +
          where,
      {now.usn, now.mod});
}

void Scheduler::remFromDyn(const std::vector<Id>& ids) {
  emptyDyn(0, "id in " + ids2str(ids) + " and odid");
}

// --- The deck list ---

std::vector<DeckDueRow> Scheduler::deckDueList() {
  _checkDay();
  _col.decks().recoverOrphans();
  DeckManager& dm = _col.decks();
  // Each pass either finishes or removes a deck, so the passes are bounded by the deck count.
  for (size_t pass = 0; pass <= dm.count(); ++pass) {
    std::vector<Json*> decks = dm.all();
    std::stable_sort(decks.begin(), decks.end(), [](const Json* a, const Json* b) {
      return jsonText(*a, "name") < jsonText(*b, "name");
    });
    std::map<std::string, std::pair<int, int>> limits;
    std::vector<DeckDueRow> rows;
    bool restart = false;
    for (Json* deck : decks) {
      const Id did = idOf(*deck);
      if (jsonText(*deck, "name").empty()) {
        dm.rename(*deck, "(blank)");
        _col.save();
      }
      const std::string name = jsonText(*deck, "name");
      const size_t cut = name.rfind("::");
      const std::string parent = cut == std::string::npos ? std::string() : name.substr(0, cut);
      if (limits.count(name) || (!parent.empty() && !limits.count(parent))) {
        // A duplicate, or a child whose parent is gone: its cards go home at the next pass.
        dm.removeDeck(did, false, true);
        if (!dm.getDeck(did, false)) {
          restart = true;
          break;
        }
        continue;  // the default deck stays whatever its name
      }
      int nlim = _deckNewLimitSingle(*deck);
      int rlim = _deckRevLimitSingle(*deck);
      if (!parent.empty()) {
        nlim = std::min(nlim, limits[parent].first);
        rlim = std::min(rlim, limits[parent].second);
      }
      DeckDueRow row{name, did, 0, 0, 0};
      row.newCount = _newForDeck(did, nlim);
      row.lrn = _lrnForDeck(did);
      row.rev = _revForDeck(did, rlim);
      rows.push_back(std::move(row));
      limits[name] = {nlim, rlim};
    }
    if (!restart) return rows;
    _col.decks().recoverOrphans();
  }
  return {};
}

namespace {

struct PathRow {
  std::vector<std::string> path;
  const DeckDueRow* row;
};

}  // namespace

std::vector<DeckDueNode> Scheduler::_groupChildren(const std::vector<DeckDueRow>& rows) {
  std::vector<PathRow> entries;
  entries.reserve(rows.size());
  for (const DeckDueRow& r : rows) entries.push_back({DeckManager::_path(r.name), &r});
  std::stable_sort(entries.begin(), entries.end(),
                   [](const PathRow& a, const PathRow& b) { return a.path[0] < b.path[0]; });
  std::function<std::vector<DeckDueNode>(const std::vector<PathRow>&)> group =
      [&](const std::vector<PathRow>& items) {
        std::vector<DeckDueNode> nodes;
        auto groups = groupBy(items, [](const PathRow& e) { return e.path.front(); });
        for (auto& [key, members] : groups) {
          DeckDueNode node;
          node.name = key;
          std::vector<PathRow> childRows;
          for (const PathRow& e : members) {
            if (e.path.size() == 1) {
              node.did = e.row->did;
              node.rev += e.row->rev;
              node.lrn += e.row->lrn;
              node.newCount += e.row->newCount;
            } else {
              childRows.push_back({{e.path.begin() + 1, e.path.end()}, e.row});
            }
          }
          node.children = group(childRows);
          for (const DeckDueNode& child : node.children) {
            node.rev += child.rev;
            node.lrn += child.lrn;
            node.newCount += child.newCount;
          }
          // The list has removed every deck without a parent, so each node has its deck.
          if (!node.did) throw std::logic_error("did");
          const Json& conf = _groupOf(node.did);
          if (!jsonBool(jsonMember(conf, "dyn"))) {
            const Json* deck = _col.decks().getDeck(node.did);
            const Json rev = section(&conf, "rev");
            const Json fresh = section(&conf, "new");
            node.rev = static_cast<int>(std::max<int64_t>(
                0, std::min<int64_t>(node.rev,
                                     jsonNumberInt(rev["perDay"]) - counter(*deck, "revToday"))));
            node.newCount = static_cast<int>(std::max<int64_t>(
                0, std::min<int64_t>(node.newCount,
                                     jsonNumberInt(fresh["perDay"]) - counter(*deck, "newToday"))));
          }
          nodes.push_back(std::move(node));
        }
        return nodes;
      };
  return group(entries);
}

std::vector<DeckDueNode> Scheduler::deckDueTree() {
  return _groupChildren(deckDueList());
}

std::vector<int> Scheduler::dueForecast(int days) {
  std::map<std::string, int> byDay;
  for (const Row& r : _col.db()->all("select due, count() from cards where did in " + _deckLimit() +
                                         " and queue = 2 and due between ? and ? group by due "
                                         "order by due ",
                                     {_today, _today + days - 1}))
    byDay[toText(r[0])] = static_cast<int>(toInt(r[1]));
  for (int64_t day = _today; day < _today + days; ++day) byDay.emplace(std::to_string(day), 0);
  // Ordered as text, as the other devices order it.
  std::vector<int> out;
  out.reserve(byDay.size());
  for (const auto& [key, count] : byDay) out.push_back(count);
  return out;
}

// --- The day boundary ---

void Scheduler::_updateCutoff() {
  const int64_t oldToday = _today;
  const bool hadToday = _haveToday;
  _today = (intTime(1) - _col.crt()) / 86400;
  _haveToday = true;
  _dayCutOff = _col.crt() + (_today + 1) * 86400;
  if (!hadToday || oldToday != _today)
    _col.log({"updateCutoff", std::to_string(_today), std::to_string(_dayCutOff)});
  _col.decks().rollCounters(_today);
  if (jsonInt(jsonMember(_col.conf(), "lastUnburied")) < _today) unburyCards();
}

void Scheduler::_checkDay() {
  if (intTime(1) > _dayCutOff) reset();
}

void Scheduler::unburyCards() {
  _col.conf()["lastUnburied"] = _today;
  std::vector<Id> ids = _col.db()->ids("select id from cards where queue = -2");
  _col.log({"unburyCards", ids2str(ids)});
  _col.db()->run("update cards set queue=type where queue=-2");
}

}  // namespace rivo
