#include "app/DeckConfViewController.h"

#include <cctype>
#include <climits>

#include "app/AppDelegate.h"
#include "app/StudyViewController.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"

namespace rivo {

int64_t DeckConfViewController::intValue(const std::string& text) {
  size_t i = text.find_first_not_of(" \t\n");
  if (i == std::string::npos) return 0;
  bool negative = false;
  if (text[i] == '+' || text[i] == '-') negative = text[i++] == '-';
  int64_t n = 0;
  for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
    n = n * 10 + (text[i] - '0');
    if (n > INT_MAX) return negative ? INT_MIN : INT_MAX;
  }
  return negative ? -n : n;
}

void DeckConfViewController::viewWillAppear() {
  if (_filled) return;
  std::shared_ptr<Col> col = _app.col();
  if (!col) return;
  DeckManager& dm = col->decks();
  Json* deck = dm.current();
  Json* conf = dm.confForDid((*deck)["id"]);
  _deckName = deck->value("name", std::string());
  _dyn = dm.isDyn((*deck)["id"]);
  _newPerDay = std::to_string(jsonInt((*conf)["new"]["perDay"]));
  _revPerDay = std::to_string(jsonInt((*conf)["rev"]["perDay"]));
  _filled = true;
}

void DeckConfViewController::viewWillDisappear() {
  std::shared_ptr<Col> col = _app.col();
  if (!col || !_filled || _dyn) return;
  DeckManager& dm = col->decks();
  Json* deck = dm.byName(_deckName);
  if (!deck) return;
  Json* conf = dm.confForDid((*deck)["id"]);
  if (!conf) return;
  (*conf)["new"]["perDay"] = intValue(_newPerDay);
  (*conf)["rev"]["perDay"] = intValue(_revPerDay);
  dm.save(deck);
  dm.save(conf);
  if (StudyViewController* svc = _app.svc())
    svc->reset();
  else
    col->reset();
}

Screen DeckConfViewController::describe() {
  Screen s;
  s.title = _deckName;
  Screen::Section limits;
  limits.title = "Daily Limits";
  if (_dyn) {
    // A filtered deck has no option group of its own to limit.
    limits.footer = "A filtered deck takes the limits of the search that built it.";
    s.sections.push_back(std::move(limits));
    return s;
  }
  limits.footer = "Cards of this deck's options group studied each day.";
  Screen::Row newRow;
  newRow.id = "new";
  newRow.text = "New cards/day";
  newRow.selectable = false;
  newRow.hasField = true;
  newRow.field = _newPerDay;
  newRow.keyboard = "number";
  Screen::Row revRow = newRow;
  revRow.id = "rev";
  revRow.text = "Reviews/day";
  revRow.field = _revPerDay;
  limits.rows = {newRow, revRow};
  s.sections.push_back(std::move(limits));
  return s;
}

bool DeckConfViewController::handle(const Event& e) {
  if (e.element != "row" || e.kind != "change" || !e.value.is_string()) return false;
  if (e.id == "new")
    _newPerDay = e.value.get<std::string>();
  else if (e.id == "rev")
    _revPerDay = e.value.get<std::string>();
  else
    return false;
  return true;
}

}  // namespace rivo
