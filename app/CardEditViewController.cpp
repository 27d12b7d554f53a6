#include "app/CardEditViewController.h"

#include <set>
#include <sstream>

#include "app/AppDelegate.h"
#include "app/DeckAndNoteTypeSelector.h"
#include "app/NavigationController.h"
#include "app/StudyViewController.h"
#include "app/Ui.h"
#include "app/UrlText.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"

namespace rivo {

namespace {

std::string joined(const std::vector<std::string>& tags) {
  std::string out;
  for (const std::string& t : tags) out += (out.empty() ? "" : " ") + t;
  return out;
}

}  // namespace

CardEditViewController::CardEditViewController(AppDelegate& app) : _app(app) {}

CardEditViewController::~CardEditViewController() = default;

void CardEditViewController::setupWithCard(std::unique_ptr<Card> card) {
  _card = std::move(card);
  _adding = !_card;
  if (_adding) {
    _newNote();
  } else {
    _note = _card->note();
    _tags = joined(_note->tags);
  }
}

// A new note of the current type, with the tags last stored on the type.
void CardEditViewController::_newNote() {
  _note = _app.col()->newNote();
  if (!_note) return;
  const Json& model = _note->model();
  std::vector<std::string> tags;
  if (model.contains("tags") && model["tags"].is_array())
    for (const Json& t : model["tags"])
      if (t.is_string()) tags.push_back(t.get<std::string>());
  _tags = joined(tags);
}

Screen CardEditViewController::describe() {
  Col& col = *_app.col();
  Screen s;
  s.title = _adding ? "Add" : "Edit";
  s.hidesBackButton = true;
  s.left.push_back({"cancel", "Cancel"});
  s.right.push_back({"save", "Save"});
  s.keys = {{"Control+Enter", "save", "Save"}, {"Escape", "cancel", "Cancel"}};
  if (!_note) return s;
  if (_adding) {
    Screen::Section choose;
    auto chooser = [](const char* id, const char* text, const std::string& detail) {
      Screen::Row row;
      row.id = id;
      row.text = text;
      row.detail = detail;
      row.accessory = Screen::Accessory::push;
      return row;
    };
    choose.rows = {chooser("type", "Type", jsonText(_note->model(), "name")),
                   chooser("deck", "Deck", col.decks().name(Json(col.decks().selected())))};
    s.sections.push_back(std::move(choose));
  }
  Screen::Section fields;
  size_t i = 0;
  for (const auto& [name, value] : _note->items()) {
    Screen::Row row;
    row.id = "f" + std::to_string(i++);
    row.text = name;
    row.selectable = false;
    row.hasField = true;
    row.field = value;
    row.keyboard = "text";
    fields.rows.push_back(std::move(row));
  }
  Screen::Row tags;
  tags.id = "tags";
  tags.text = "Tags";
  tags.selectable = false;
  tags.hasField = true;
  tags.field = _tags;
  fields.rows.push_back(std::move(tags));
  s.sections.push_back(std::move(fields));
  return s;
}

bool CardEditViewController::handle(const Event& e) {
  if ((e.element == "button" || e.element == "key") && (e.id == "save" || e.id == "cancel")) {
    e.id == "save" ? saveChanges() : cancel();
    return true;
  }
  if (e.element != "row" || !_note) return false;
  if (e.kind == "change" && e.value.is_string()) {
    if (e.id == "tags") {
      _tags = e.value.get<std::string>();
      return true;
    }
    const size_t idx = e.id.size() > 1 && e.id[0] == 'f' ? std::stoul(e.id.substr(1)) : SIZE_MAX;
    if (idx >= _note->fields.size()) return false;
    _note->fields[idx] = e.value.get<std::string>();
    return true;
  }
  if (e.kind == "select" && _adding && (e.id == "type" || e.id == "deck")) {
    const bool types = e.id == "type";
    auto vc = std::make_shared<DeckAndNoteTypeSelector>(
        _app, types ? DeckAndNoteTypeSelector::kNoteTypes : DeckAndNoteTypeSelector::kDecks,
        [this, types] {
          if (!types) return;
          std::shared_ptr<Note> old = _note;
          _newNote();
          for (size_t i = 0; _note && i < std::min(old->fields.size(), _note->fields.size()); ++i)
            _note->fields[i] = old->fields[i];
        });
    if (NavigationController* nc = navigationController()) nc->push(vc);
    return true;
  }
  return false;
}

void CardEditViewController::saveChanges() {
  if (!_note) return;
  Col& col = *_app.col();
  _app.showPopup("Saved.");
  for (std::string& field : _note->fields) field = UrlText::replaceAll(field, "\n", "<br>");
  std::set<std::string> tags;
  std::istringstream words(_tags);
  for (std::string word; words >> word;) tags.insert(word);
  _note->tags.assign(tags.begin(), tags.end());
  // The deck and tags go with the note type, for the next note of that type.
  if (Json* model = col.models().get(_note->mid)) {
    (*model)["did"] = col.decks().selected();
    (*model)["tags"] = _note->tags;
    col.models().save(model);
  }
  if (_note->dupeOrEmpty() == 1) {
    _app.ui().showAlert("Cannot save note", "The first field is empty.");
    return;
  }
  if (!_adding) {
    _note->flush();
    col.save();
    if (StudyViewController* svc = _app.svc()) svc->reset();
    _close();
    return;
  }
  if (col.addNote(*_note) == 0) {
    _app.ui().showAlert("Cannot save note", "This note would not generate any cards.");
    return;
  }
  col.save();
  if (StudyViewController* svc = _app.svc()) svc->reset();
  _newNote();
  setNeedsDisplay();
}

void CardEditViewController::cancel() {
  if (_card) _card->load();
  _close();
}

void CardEditViewController::_close() {
  NavigationController* nc = navigationController();
  if (nc && nc->top() == this) nc->pop();
}

}  // namespace rivo
