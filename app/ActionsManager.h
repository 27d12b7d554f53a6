#pragma once
// Everything a user can do while studying through a tap zone, swipe, quick bar segment or
// Tools button. Each input is configured with an action key, a short string in the
// preferences, which is also the name of an operation here. Actions whose screens come
// later say so in a popup until those screens exist: each has one line below to change.
// Main loop only.

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "librivo/Value.h"

namespace rivo {

class AppDelegate;
class Card;
class DeckManager;
class StudyViewController;
class ViewController;

class ActionsManager {
 public:
  explicit ActionsManager(AppDelegate& app) : _app(app) {}

  // Both hold the same 32 keys: long names label buttons and option lists, short names the
  // quick bar's segments.
  static const std::map<std::string, std::string>& longNames();
  static const std::map<std::string, std::string>& shortNames();

  // Performs the action 0.01 seconds from now, so that the gesture in progress ends first;
  // an unknown key is reported to the user.
  void run(const std::string& key);
  // run() of the value of a preference.
  void runVar(const std::string& prefKey);
  // Performs the action now; false for a key that names no action.
  bool perform(const std::string& key);

  // The operations, by key.
  void showAnswer();
  void answerWrong();
  void answerHard();
  void answerGood();
  void answerEasy();
  void add();
  void edit();
  void search();
  // The editor on this card, or adding when there is none. Also the search screen's rows.
  void openEditor(std::unique_ptr<Card> card);
  void mark();
  void bury();
  void buryCard();
  void markAndBury();
  void unburyDeck();
  void suspend();
  void markAndSuspend();
  void suspendNote();
  void cardInfo();
  void deckInfo();
  // Pushes "Card Info" on any card: the review screen's action and the search screen's.
  void showCardInfo(Id cardId);
  void customStudy();
  void filterDeck();
  void empty();
  void rebuild();
  void deleteNote();
  void replayAudio();
  void finish();
  void studyOptions();
  void tools();
  void undo();
  void more();
  void toggleScratchPad();
  void toggleNavBar();
  void off() {}
  // Kept for stored preferences that name them; they do nothing.
  void toggleTextSelectable() {}
  void lookup() {}

  // Helpers.
  // True when the review screen has a card.
  bool _card() const;
  // True when the review screen is on top; otherwise the user is told how to use the action.
  bool _onStudyScreen();
  void popToStudyScreen();
  // The study screen of the selected deck, reset: popped to when it is on the stack, else
  // opened over the deck list.
  void showStudyScreen();
  // A new filtered deck ("Filtered Deck N"), searching the current deck unless that is a
  // filtered one, in its options table.
  void newFilteredDeck();
  // Adds "marked" when forced or absent, else removes it; true when the note is now marked.
  bool _markWithForceOn(bool force);
  void _bury();
  void _suspend();
  // "Filtered Deck N" with the lowest N from 1 that no deck has.
  static std::string nextFilteredDeckName(DeckManager& decks);

 private:
  using Operation = void (ActionsManager::*)();
  static const std::map<std::string, Operation>& operations();
  StudyViewController* _svc() const;
  void _answer(int easeWithFour, int easeOtherwise);
  void _push(std::shared_ptr<ViewController> vc);
  // The stand-in for a screen of a later version.
  void _notYet(const std::string& key);

  AppDelegate& _app;
};

}  // namespace rivo
