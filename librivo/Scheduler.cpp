#include "librivo/Scheduler.h"

#include <string>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"

namespace rivo {

Scheduler::Scheduler(Col& col) : _col(col) {
  _updateCutoff();
}

void Scheduler::reset() {
  _updateCutoff();
}

void Scheduler::_updateCutoff() {
  int64_t oldToday = _today;
  bool hadToday = _haveToday;
  _today = (intTime(1) - _col.crt()) / 86400;
  _haveToday = true;
  _dayCutOff = _col.crt() + (_today + 1) * 86400;
  if (!hadToday || oldToday != _today)
    _col.log({"updateCutoff", std::to_string(_today), std::to_string(_dayCutOff)});
  for (auto& [id, deck] : _col.decks().decks().items()) {
    if (!deck.is_object()) continue;
    for (const char* word : {"new", "rev", "lrn", "time"}) {
      std::string key = std::string(word) + "Today";
      Json& counter = deck[key];
      if (!counter.is_array() || counter.empty() || jsonInt(counter[0], -1) != _today)
        counter = Json::array({_today, 0});
    }
  }
  const Json& conf = _col.conf();
  int64_t lastUnburied = conf.contains("lastUnburied") ? jsonInt(conf["lastUnburied"]) : 0;
  if (lastUnburied < _today) unburyCards();
}

void Scheduler::_checkDay() {
  if (intTime(1) > _dayCutOff) reset();
}

void Scheduler::unburyCards() {
  _col.conf()["lastUnburied"] = _today;
  std::string ids;
  for (const Value& v : _col.db()->list("select id from cards where queue = -2")) {
    if (!ids.empty()) ids += ",";
    ids += toText(v);
  }
  _col.log({"unburyCards", "(" + ids + ")"});
  _col.db()->run("update cards set queue=type where queue=-2");
}

}  // namespace rivo
