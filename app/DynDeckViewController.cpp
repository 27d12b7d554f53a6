#include "app/DynDeckViewController.h"

#include "app/ActionsManager.h"
#include "app/AppDelegate.h"
#include "app/NavigationController.h"
#include "app/RVConfigTableController.h"
#include "app/Ui.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Scheduler.h"

namespace rivo {

namespace {

std::shared_ptr<RVConfigTableRow> textRow(const char* title, std::string& text,
                                          const char* keyboard = "") {
  auto row = std::make_shared<RVConfigTableRow>();
  row->kind = RVConfigTableRow::Kind::edit;
  row->title = title;
  row->keyboardType = keyboard;
  row->getTxt = [&text] { return text; };
  row->setTxt = [&text](const std::string& t) { text = t; };
  return row;
}

std::shared_ptr<RVConfigTableRow> switchRow(const char* title, bool& value) {
  auto row = std::make_shared<RVConfigTableRow>();
  row->kind = RVConfigTableRow::Kind::toggle;
  row->title = title;
  row->getVal = [&value] { return value; };
  row->setVal = [&value](bool on) { value = on; };
  return row;
}

}  // namespace

DynDeckViewController::DynDeckViewController(AppDelegate& app, Id did, bool isNew)
    : _app(app), _did(did), _isNew(isNew) {
  if (Json* deck = app.col()->decks().getDeck(Json(did), false))
    _options = DynDeckOptions::load(*deck);
}

const std::vector<std::string>& DynDeckViewController::orderLabels() {
  static const std::vector<std::string> labels = {"Oldest seen first",
                                                  "Random",
                                                  "Increasing intervals",
                                                  "Decreasing intervals",
                                                  "Most lapses",
                                                  "Order added",
                                                  "Order due",
                                                  "Latest added first",
                                                  "Relative overdueness"};
  return labels;
}

void DynDeckViewController::setupConfigTable(RVConfigTableController& table) {
  _table = &table;
  Json* deck = _app.col()->decks().getDeck(Json(_did), false);
  std::string name = deck ? deck->value("name", std::string()) : "";
  table.title = name.empty() ? "Dynamic Deck" : name;
  table.rightTitle = _isNew ? "Build" : "Rebuild";
  table.onRight = [this] { _accept(); };
  table.onClose = [this] { _close(); };

  auto order = std::make_shared<RVConfigTableRow>();
  order->kind = RVConfigTableRow::Kind::enumeration;
  order->title = "Order";
  order->getData = [this] {
    int idx = _options.order >= 0 && _options.order < static_cast<int>(orderLabels().size())
                  ? _options.order
                  : 6;  // an unknown order sorts as "Order due"
    return RVConfigTableRow::EnumData{orderLabels(), idx};
  };
  order->setIdx = [this](int idx) { _options.order = idx; };

  RVConfigTableSection filter{"Filter Options", "", {}};
  filter.rows = {textRow("Search", _options.search, "search"),
                 textRow("Limit", _options.limitText, "number"), order,
                 switchRow("Reschedule cards based on my answers in this deck", _options.resched)};
  RVConfigTableSection steps{"Steps", "", {}};
  steps.rows = {switchRow("Custom steps", _options.customSteps),
                textRow("Steps (in minutes)", _options.stepsText)};
  table.sections = {filter, steps};
}

void DynDeckViewController::_accept() {
  Col& col = *_app.col();
  Json* deck = col.decks().getDeck(Json(_did), false);
  if (!deck) return;
  if (std::optional<DynDeckAlert> alert = _options.save(col, *deck)) {
    _app.ui().showAlert(alert->title, alert->message);
    return;
  }
  auto moved = std::make_shared<std::vector<Id>>();
  std::weak_ptr<bool> alive = _alive;
  AppDelegate& app = _app;
  Id did = _did;
  app.doWork(
      "Building...", [&app, did, moved] { *moved = app.col()->sched().rebuildDynForDeck(did); },
      [this, &app, moved, alive] {
        if (alive.expired()) return;
        if (moved->empty()) {
          app.ui().askQuestion(DynDeckOptions::kNoCardsTitle, DynDeckOptions::kNoCardsMessage,
                               "Yes", "No", [this, &app, alive](int index) {
                                 if (index != 1 || alive.expired()) return;
                                 app.col()->reset();
                                 if (_table && _table->navigationController())
                                   _table->navigationController()->pop();
                               });
          return;
        }
        // Built: the deck's cards are to be kept, so leaving no longer removes it.
        _isNew = false;
        app.col()->decks().select(Json(_did));
        app.acts().showStudyScreen();
        app.showInfo(DynDeckOptions::kBuiltMessage);
      });
}

void DynDeckViewController::_close() {
  std::shared_ptr<Col> col = _app.col();
  if (!_isNew || !col) return;
  int64_t cards = col->db()->scalarInt("select count() from cards where did = ?", {_did});
  if (cards == 0 && col->decks().getDeck(Json(_did), false))
    col->decks().removeDeck(Json(_did), true);
}

}  // namespace rivo
