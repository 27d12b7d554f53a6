#include "app/ActionsManager.h"

#include "app/AllActionsViewController.h"
#include "app/AppDelegate.h"
#include "app/CardEditViewController.h"
#include "app/CardStatsViewController.h"
#include "app/CustomStudyViewController.h"
#include "app/DeckOptions.h"
#include "app/DeckStatsViewController.h"
#include "app/DynDeckViewController.h"
#include "app/EditViewController.h"
#include "app/NavigationController.h"
#include "app/ProfileManager.h"
#include "app/RVConfigTableController.h"
#include "app/SearchViewController.h"
#include "app/StudyViewController.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/Note.h"
#include "librivo/Scheduler.h"

namespace rivo {

const std::map<std::string, std::string>& ActionsManager::longNames() {
  static const std::map<std::string, std::string> names = {
      {"add", "Add"},
      {"answerWrong", "Answer Again"},
      {"answerHard", "Answer Hard"},
      {"answerGood", "Answer Good"},
      {"answerEasy", "Answer Easy"},
      {"buryCard", "Bury Card"},
      {"bury", "Bury Note"},
      {"cardInfo", "Card Info"},
      {"customStudy", "Custom Study"},
      {"deckInfo", "Deck Statistics"},
      {"finish", "Deck List"},
      {"deleteNote", "Delete Note"},
      {"edit", "Edit"},
      {"empty", "Empty"},
      {"filterDeck", "Filter/Cram"},
      {"search", "Find"},
      {"mark", "Mark"},
      {"markAndBury", "Mark+Bury"},
      {"markAndSuspend", "Mark+Suspend"},
      {"more", "More"},
      {"off", "Off"},
      {"rebuild", "Rebuild"},
      {"replayAudio", "Replay Audio"},
      {"showAnswer", "Show Answer"},
      {"studyOptions", "Study Options"},
      {"suspend", "Suspend Card"},
      {"suspendNote", "Suspend Note"},
      {"tools", "Tools"},
      {"toggleNavBar", "Toggle Nav. Bar"},
      {"toggleScratchPad", "Toggle ScratchPad"},
      {"unburyDeck", "Unbury Deck"},
      {"undo", "Undo"}};
  return names;
}

const std::map<std::string, std::string>& ActionsManager::shortNames() {
  static const std::map<std::string, std::string> names = {{"add", "Add"},
                                                           {"answerWrong", "Ans.A"},
                                                           {"answerHard", "Ans.H"},
                                                           {"answerGood", "Ans.G"},
                                                           {"answerEasy", "Ans.E"},
                                                           {"buryCard", "Bury.C"},
                                                           {"bury", "Bury.N"},
                                                           {"cardInfo", "C.Info"},
                                                           {"customStudy", "Custom"},
                                                           {"deckInfo", "D.Stats"},
                                                           {"finish", "Decks"},
                                                           {"deleteNote", "Del"},
                                                           {"edit", "Edit"},
                                                           {"empty", "Empty"},
                                                           {"filterDeck", "Filter"},
                                                           {"search", "Find"},
                                                           {"mark", "Mark"},
                                                           {"markAndBury", "M&B"},
                                                           {"markAndSuspend", "M&S"},
                                                           {"more", "More"},
                                                           {"off", "Off"},
                                                           {"rebuild", "Rebuild"},
                                                           {"replayAudio", "Replay"},
                                                           {"showAnswer", "S.Ans"},
                                                           {"studyOptions", "S.Opt"},
                                                           {"suspend", "Sus.C"},
                                                           {"suspendNote", "Sus.N"},
                                                           {"tools", "Tools"},
                                                           {"toggleNavBar", "Nav.B"},
                                                           {"toggleScratchPad", "Pad"},
                                                           {"unburyDeck", "UBury"},
                                                           {"undo", "Undo"}};
  return names;
}

const std::map<std::string, ActionsManager::Operation>& ActionsManager::operations() {
  static const std::map<std::string, Operation> ops = {
      {"add", &ActionsManager::add},
      {"answerWrong", &ActionsManager::answerWrong},
      {"answerHard", &ActionsManager::answerHard},
      {"answerGood", &ActionsManager::answerGood},
      {"answerEasy", &ActionsManager::answerEasy},
      {"buryCard", &ActionsManager::buryCard},
      {"bury", &ActionsManager::bury},
      {"cardInfo", &ActionsManager::cardInfo},
      {"customStudy", &ActionsManager::customStudy},
      {"deckInfo", &ActionsManager::deckInfo},
      {"finish", &ActionsManager::finish},
      {"deleteNote", &ActionsManager::deleteNote},
      {"edit", &ActionsManager::edit},
      {"empty", &ActionsManager::empty},
      {"filterDeck", &ActionsManager::filterDeck},
      {"search", &ActionsManager::search},
      {"mark", &ActionsManager::mark},
      {"markAndBury", &ActionsManager::markAndBury},
      {"markAndSuspend", &ActionsManager::markAndSuspend},
      {"more", &ActionsManager::more},
      {"off", &ActionsManager::off},
      {"rebuild", &ActionsManager::rebuild},
      {"replayAudio", &ActionsManager::replayAudio},
      {"showAnswer", &ActionsManager::showAnswer},
      {"studyOptions", &ActionsManager::studyOptions},
      {"suspend", &ActionsManager::suspend},
      {"suspendNote", &ActionsManager::suspendNote},
      {"tools", &ActionsManager::tools},
      {"toggleNavBar", &ActionsManager::toggleNavBar},
      {"toggleScratchPad", &ActionsManager::toggleScratchPad},
      {"unburyDeck", &ActionsManager::unburyDeck},
      {"undo", &ActionsManager::undo},
      {"toggleTextSelectable", &ActionsManager::toggleTextSelectable},
      {"lookup", &ActionsManager::lookup}};
  return ops;
}

// Running.

void ActionsManager::run(const std::string& key) {
  if (!operations().count(key)) {
    _app.showInfo("Unknown action: " + key);
    return;
  }
  _app.performAfterDelay(0.01f, [this, key] { perform(key); });
}

void ActionsManager::runVar(const std::string& prefKey) {
  run(_app.pm().stringForKey(prefKey));
}

bool ActionsManager::perform(const std::string& key) {
  auto op = operations().find(key);
  if (op == operations().end()) return false;
  (this->*(op->second))();
  return true;
}

// Helpers.

StudyViewController* ActionsManager::_svc() const {
  return _app.svc();
}

bool ActionsManager::_card() const {
  return _svc() && _svc()->card();
}

bool ActionsManager::_onStudyScreen() {
  NavigationController* nc = _app.nc();
  if (nc && _svc() && nc->top() == _svc()) return true;
  _app.showInfo(
      "To use this action, please set it to a swipe, tap or quickbar button in the "
      "preferences.");
  return false;
}

void ActionsManager::popToStudyScreen() {
  NavigationController* nc = _app.nc();
  StudyViewController* svc = _svc();
  if (!nc || !svc) return;
  if (nc->top() == svc)
    svc->showCurrentOrNextCard();
  else
    nc->popTo(svc);
}

bool ActionsManager::_markWithForceOn(bool force) {
  std::shared_ptr<Note> note = _svc()->card()->note();
  bool marked = force || !note->hasTag("marked");
  if (marked)
    note->addTag("marked");
  else
    note->delTag("marked");
  note->flush();
  return marked;
}

void ActionsManager::_bury() {
  _app.col()->sched().buryNote(_svc()->card()->nid);
  _svc()->reset();
}

void ActionsManager::_suspend() {
  _app.col()->sched().suspendCards({_svc()->card()->id});
  _svc()->reset();
}

void ActionsManager::showStudyScreen() {
  std::shared_ptr<StudyViewController> svc = _app.studyViewController();
  svc->reset();
  NavigationController* nc = _app.nc();
  if (!nc) return;
  if (nc->top() == svc.get()) {
    svc->showCurrentOrNextCard();
  } else if (svc->navigationController()) {
    nc->popTo(svc.get());
  } else {
    nc->popToRoot();
    nc->push(svc);
  }
}

void ActionsManager::newFilteredDeck() {
  DeckManager& dm = _app.col()->decks();
  Json* current = dm.current();
  std::string search;
  if (!dm.isDyn((*current)["id"]))
    search = "deck:\"" + current->value("name", std::string()) + "\" ";
  Id did = dm.newDyn(nextFilteredDeckName(dm));
  Json* deck = dm.getDeck(Json(did), false);
  if (!search.empty()) {
    (*deck)["terms"][0][0] = search;
    dm.save(deck);
  }
  _push(std::make_shared<RVConfigTableController>(
      std::make_shared<DynDeckViewController>(_app, did, true)));
}

std::string ActionsManager::nextFilteredDeckName(DeckManager& decks) {
  for (int i = 1;; ++i) {
    std::string name = "Filtered Deck " + std::to_string(i);
    if (!decks.byName(name)) return name;
  }
}

void ActionsManager::_push(std::shared_ptr<ViewController> vc) {
  if (NavigationController* nc = _app.nc()) nc->push(std::move(vc));
}

void ActionsManager::_notYet(const std::string& key) {
  _app.showPopup(longNames().at(key) + " comes with a later version of Rivo.");
}

// The operations.

void ActionsManager::_answer(int easeWithFour, int easeOtherwise) {
  if (!_card() || !_onStudyScreen()) return;
  Card& card = *_svc()->card();
  _svc()->answerCard(_app.col()->sched().answerButtons(card) == 4 ? easeWithFour : easeOtherwise);
}

void ActionsManager::showAnswer() {
  if (_card() && _onStudyScreen()) _svc()->showAnswer();
}

void ActionsManager::answerWrong() {
  _answer(1, 1);
}

void ActionsManager::answerHard() {
  _answer(2, 2);
}

void ActionsManager::answerGood() {
  _answer(3, 2);
}

void ActionsManager::answerEasy() {
  _answer(4, 3);
}

void ActionsManager::add() {
  openEditor(nullptr);
}

void ActionsManager::edit() {
  if (_card()) openEditor(std::make_unique<Card>(*_app.col(), _svc()->card()->id));
}

void ActionsManager::openEditor(std::unique_ptr<Card> card) {
  if (_app.pm().boolForKey("useOldEditor")) {
    auto old = std::make_shared<CardEditViewController>(_app);
    old->setupWithCard(std::move(card));
    if (old->note()) return _push(old);
    _app.showInfo("The collection has no note type to add a note with.");
    return;
  }
  auto vc = std::make_shared<EditViewController>(_app);
  vc->setupWithCard(std::move(card));
  if (!vc->note()) {
    _app.showInfo("The collection has no note type to add a note with.");
    return;
  }
  _push(vc);
}

void ActionsManager::search() {
  _push(std::make_shared<SearchViewController>(_app));
}

void ActionsManager::mark() {
  if (!_card()) return;
  _markWithForceOn(false);
  NavigationController* nc = _app.nc();
  if (nc && nc->top() == _svc()) {
    _svc()->updateMarkStar();
    _svc()->setNeedsDisplay();
  } else {
    popToStudyScreen();
  }
}

void ActionsManager::bury() {
  if (!_card()) return;
  _bury();
  popToStudyScreen();
  _app.showPopup("Note buried");
}

void ActionsManager::buryCard() {
  if (!_card()) return;
  _app.col()->sched().buryCard(_svc()->card()->id);
  _svc()->reset();
  popToStudyScreen();
  _app.showPopup("Card buried");
}

void ActionsManager::markAndBury() {
  if (!_card()) return;
  _markWithForceOn(true);
  _bury();
  popToStudyScreen();
  _app.showPopup("Note marked and buried");
}

void ActionsManager::unburyDeck() {
  _app.col()->sched().unburyCardsForDeck();
  if (_svc()) _svc()->reset();
  popToStudyScreen();
}

void ActionsManager::suspend() {
  if (!_card()) return;
  _suspend();
  popToStudyScreen();
  _app.showPopup("Card suspended");
}

void ActionsManager::markAndSuspend() {
  if (!_card()) return;
  _markWithForceOn(true);
  _suspend();
  popToStudyScreen();
  _app.showPopup("Card suspended");
}

void ActionsManager::suspendNote() {
  if (!_card()) return;
  std::vector<Id> ids;
  for (const Card& c : _svc()->card()->note()->cards()) ids.push_back(c.id);
  _app.col()->sched().suspendCards(ids);
  _svc()->reset();
  popToStudyScreen();
  _app.showPopup("Note and its " + std::to_string(ids.size()) + " card(s) suspended");
}

void ActionsManager::cardInfo() {
  if (_card()) showCardInfo(_svc()->card()->id);
}

void ActionsManager::showCardInfo(Id cardId) {
  _push(std::make_shared<CardStatsViewController>(_app, cardId));
}

void ActionsManager::deckInfo() {
  _push(std::make_shared<DeckStatsViewController>(_app));
}

void ActionsManager::customStudy() {
  Col& col = *_app.col();
  if (col.decks().isDyn(Json(col.decks().selected()))) {
    _app.showInfo("Custom study can't be used on a filtered deck.");
    return;
  }
  _push(
      std::make_shared<RVConfigTableController>(std::make_shared<CustomStudyViewController>(_app)));
}

void ActionsManager::filterDeck() {
  newFilteredDeck();
}

void ActionsManager::empty() {
  Col& col = *_app.col();
  Id did = col.decks().selected();
  if (!col.decks().isDyn(Json(did))) {
    _app.showInfo("You can only empty a filtered deck.");
    return;
  }
  AppDelegate& app = _app;
  app.doWork(
      "Emptying deck...", [&app, did] { app.col()->sched().emptyDyn(did); }, [this] { finish(); });
}

void ActionsManager::rebuild() {
  Col& col = *_app.col();
  Id did = col.decks().selected();
  if (!col.decks().isDyn(Json(did))) {
    _app.showInfo("You can only rebuild a filtered deck.");
    return;
  }
  AppDelegate& app = _app;
  app.doWork(
      "Rebuilding deck...", [&app, did] { app.col()->sched().rebuildDynForDeck(did); },
      [this] {
        if (_svc()) _svc()->reset();
        popToStudyScreen();
      });
}

void ActionsManager::deleteNote() {
  if (!_card()) return;
  Id nid = _svc()->card()->nid;
  _app.askUser("Delete note and its cards?", "Confirm Delete", [this, nid](bool yes) {
    std::shared_ptr<Col> col = _app.col();
    if (!yes || !col) return;
    size_t cards = col->getNote(nid)->cards().size();
    col->remNotes({nid});
    if (_svc()) _svc()->reset();
    popToStudyScreen();
    _app.showPopup("Note and its " + std::to_string(cards) + " cards deleted");
  });
}

void ActionsManager::replayAudio() {
  if (_card()) _svc()->replayAudio();
}

void ActionsManager::finish() {
  if (NavigationController* nc = _app.nc()) nc->popToRoot();
}

void ActionsManager::studyOptions() {
  Col& col = *_app.col();
  if (col.decks().isDyn(Json(col.decks().selected()))) {
    _push(std::make_shared<RVConfigTableController>(
        std::make_shared<DynDeckViewController>(_app, col.decks().selected(), false)));
    return;
  }
  _push(std::make_shared<RVConfigTableController>(std::make_shared<DeckOptions>(_app)));
}

void ActionsManager::tools() {
  NavigationController* nc = _app.nc();
  if (nc && _svc() && nc->top() == _svc()) _svc()->loadTools();
}

void ActionsManager::undo() {
  if (!_app.col()->canUndo()) {
    _app.showPopup("Nothing to undo");
    return;
  }
  if (_svc()) _svc()->undo();
  popToStudyScreen();
  _app.showPopup("Review undone");
}

void ActionsManager::more() {
  _push(std::make_shared<AllActionsViewController>(_app));
}

void ActionsManager::toggleScratchPad() {
  popToStudyScreen();
  if (_svc()) _svc()->toggleScratchPad();
}

void ActionsManager::toggleNavBar() {
  NavigationController* nc = _app.nc();
  if (nc && _svc() && nc->top() == _svc()) {
    _svc()->showHideNavbar();
    return;
  }
  ProfileManager& pm = _app.pm();
  pm.setBool(!pm.boolForKey("navBarHidden"), "navBarHidden");
  popToStudyScreen();
}

}  // namespace rivo
