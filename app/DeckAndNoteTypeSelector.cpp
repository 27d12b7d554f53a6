#include "app/DeckAndNoteTypeSelector.h"

#include <algorithm>

#include "app/AppDelegate.h"
#include "app/NavigationController.h"
#include "app/Ui.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/ModelManager.h"

namespace rivo {

namespace {

struct Entry {
  int64_t id;
  std::string name;
};

std::vector<Entry> entries(Col& col, DeckAndNoteTypeSelector::Mode mode) {
  std::vector<Entry> out;
  const auto list =
      mode == DeckAndNoteTypeSelector::kDecks ? col.decks().all() : col.models().all();
  for (const Json* obj : list) {
    // New cards never go to a filtered deck.
    if (mode == DeckAndNoteTypeSelector::kDecks && jsonInt(obj->value("dyn", Json(0)))) continue;
    out.push_back({jsonInt((*obj)["id"]), jsonText(*obj, "name")});
  }
  std::sort(out.begin(), out.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return out;
}

}  // namespace

DeckAndNoteTypeSelector::DeckAndNoteTypeSelector(AppDelegate& app, Mode mode,
                                                 std::function<void()> completion)
    : _app(app), _mode(mode), _completion(std::move(completion)) {}

Screen DeckAndNoteTypeSelector::describe() {
  Col& col = *_app.col();
  Screen s;
  s.title = _mode == kDecks ? "Select Deck" : "Select Note Type";
  if (_mode == kDecks) s.right.push_back({"add", "Add New", "add"});
  const int64_t current =
      _mode == kDecks ? col.decks().selected()
                      : jsonInt(col.models().current() ? (*col.models().current())["id"] : Json(0));
  Screen::Section section;
  for (const Entry& e : entries(col, _mode)) {
    Screen::Row row;
    row.id = std::to_string(e.id);
    row.text = e.name;
    if (e.id == current) {
      row.accessory = Screen::Accessory::check;
      row.tone = "current";
    }
    section.rows.push_back(std::move(row));
  }
  s.sections.push_back(std::move(section));
  return s;
}

bool DeckAndNoteTypeSelector::handle(const Event& e) {
  if (e.element == "button" && e.id == "add" && _mode == kDecks) {
    _app.ui().askText("Add Deck", "", {{"Deck Name", "", false}}, "Cancel", "Create",
                      [this](int button, std::vector<std::string> texts) {
                        if (button == 1 && !texts.empty()) addDeck(texts[0]);
                      });
    return true;
  }
  if (e.element != "row" || e.kind != "select") return false;
  const int64_t id = std::strtoll(e.id.c_str(), nullptr, 10);
  for (const Entry& entry : entries(*_app.col(), _mode))
    if (entry.id == id) {
      choose(id);
      return true;
    }
  return false;
}

void DeckAndNoteTypeSelector::choose(int64_t id) {
  Col& col = *_app.col();
  if (_mode == kDecks) {
    col.decks().select(Json(id));
  } else if (const Json* model = col.models().get(id)) {
    col.models().setCurrent(*model);
  }
  std::function<void()> completion = _completion;
  NavigationController* nc = navigationController();
  if (nc && nc->top() == this) nc->pop();
  if (completion) completion();
}

void DeckAndNoteTypeSelector::addDeck(const std::string& name) {
  Col& col = *_app.col();
  if (name.empty()) {
    _app.showInfo("Unable to create a deck without a name.");
    return;
  }
  if (col.decks().byName(name)) {
    _app.showInfo("A deck with that name already exists.");
    return;
  }
  const Id did = col.decks().getID(name);
  if (!did) {
    _app.showInfo("Invalid deck name.");
    return;
  }
  choose(did);
}

}  // namespace rivo
