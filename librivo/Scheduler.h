#pragma once
// Decides which card comes next and what an answer does; keeps the calendar of study days.

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "librivo/Card.h"
#include "librivo/Json.h"

namespace rivo {

class Col;

// One line of the deck list before grouping: the full name and the three counts.
struct DeckDueRow {
  std::string name;
  Id did = 0;
  int rev = 0;
  int lrn = 0;
  int newCount = 0;
};

// One node of the deck tree: the last name component, the counts summed over the children.
struct DeckDueNode {
  std::string name;
  Id did = 0;
  int rev = 0;
  int lrn = 0;
  int newCount = 0;
  std::vector<DeckDueNode> children;
};

class Scheduler {
 public:
  explicit Scheduler(Col& col);

  // --- Serving cards ---

  // The next card, or null when the study is finished.
  std::unique_ptr<Card> getCard();
  void reset();
  // [new, learning, review]; `card` is the one on the screen, already out of the counts.
  std::array<int, 3> counts() { return countsForCard(nullptr); }
  std::array<int, 3> countsForCard(const Card* card);
  static int countIdx(const Card& card);
  int totalNewForCurrentDeck();
  int totalRevForCurrentDeck();

  // --- Answering ---

  void answerCard(Card& card, int ease);
  int answerButtons(const Card& card);
  // Seconds; 0 when the card returns to its place unchanged.
  int64_t nextIvl(Card& card, int ease);
  std::string nextIvlStr(Card& card, int ease, bool shortForm = false);

  // --- Deck list and limits ---

  std::vector<DeckDueRow> deckDueList();
  std::vector<DeckDueNode> deckDueTree();
  // Raises today's limits of the current deck, its parents and children.
  void extendLimits(int newCards, int revCards);
  std::vector<int> dueForecast(int days = 7);

  // --- Operations on cards ---

  // These write the cards table alone and leave the queues stale: the caller resets.
  void unburyCardsForDeck();
  void suspendCards(const std::vector<Id>& ids);
  void unsuspendCards(const std::vector<Id>& ids);
  void buryCard(Id cid);
  void buryNote(Id nid);
  // Relearning cards return to review on their old date; first-time learners become new.
  void removeLrnForIDs(const std::vector<Id>& ids);
  // New again at the end of the new cards; cards hidden or in a filtered deck are left alone.
  void forgetCards(const std::vector<Id>& ids);
  // As forgetCards, and the review and lapse counts start again.
  void resetCards(const std::vector<Id>& ids);
  // Not supported; calling it is a programming error.
  [[noreturn]] void reschedCards(const std::vector<Id>& ids, int imin, int imax);
  // New positions note by note, start + i * step; with `shift`, new cards at or above the
  // lowest taken position move up to make room.
  void sortCards(const std::vector<Id>& ids, int start = 1, int step = 1, bool shuffleNotes = false,
                 bool shift = false);
  void sortCards(const std::vector<Id>& ids, bool shuffleNotes) {
    sortCards(ids, 1, 1, shuffleNotes, false);
  }
  void randomizeCards(Id did);
  void orderCards(Id did);
  void maybeRandomizeDeck(Id did);
  void resortConf(const Json& conf);
  // HTML for the end of a session.
  std::string finishedMsg();
  std::string _nextDueMsg();

  // --- Filtered decks and custom study ---

  // The labels of a filtered deck's orders, by order number.
  static const std::map<int, std::string>& dynOrderLabels();
  // Sends a filtered deck's cards home and gathers them again from its first term, then
  // selects it (the selected deck when `did` is 0). The ids moved; empty when nothing matched
  // or the deck isn't filtered.
  std::vector<Id> rebuildDynForDeck(Id did);
  std::vector<Id> rebuildDyn() { return rebuildDynForDeck(0); }
  // Sends home the cards of `did`, or those `lim` (an SQL condition) picks; learning cards go
  // home as new ones.
  void emptyDyn(Id did, const std::string& lim = {});
  // Sends home those of these cards that sit in any filtered deck.
  void remFromDyn(const std::vector<Id>& ids);
  std::vector<Id> _fillDyn(const Json& deck);
  std::string _dynOrder(int64_t order, int64_t limit) const;
  void _moveToDyn(Id did, const std::vector<Id>& ids);

  // --- Day boundary ---

  void _updateCutoff();
  void _checkDay();
  void unburyCards();

  // What the end-of-study message tells: limits reached, buried cards waiting.
  bool revDue();
  bool newDue();
  bool haveBuried();

  // --- State ---

  int64_t today() const { return _today; }
  int64_t dayCutOff() const { return _dayCutOff; }
  // Cards to serve before any queue: the last pushed is served first.
  std::vector<Card>& undoQueue() { return _undoQueue; }
  bool needResetAfterUndo() const { return _needResetAfterUndo; }
  const std::string& name() const { return _name; }
  bool haveCustomStudy() const { return _haveCustomStudy; }

  int queueLimit = 50;
  int reportLimit = 1000;
  int reps = 0;
  int newCount = 0;
  int lrnCount = 0;
  int revCount = 0;
  int newCardModulus = 0;
  bool _spreadRev = true;

  // --- Internals, public for tests and for the operations on cards ---

  using LrnEntry = std::pair<int64_t, Id>;  // [due, card id]
  const std::vector<LrnEntry>& _lrnQueue() const { return _lrnQ; }
  const std::vector<Id>& _newQueue() const { return _newQ; }
  const std::vector<Id>& _revQueue() const { return _revQ; }
  const std::vector<Id>& _lrnDayQueue() const { return _lrnDayQ; }

  bool _timeForNewCard() const;
  void _updateNewCardRatio();
  std::string _deckLimit() const;

  // Option lookups: dictionaries with every key the scheduler reads, of the right type; a
  // missing or wrongly typed value reads as the default group's.
  Json _newConf(const Card& card);
  Json _lapseConf(const Card& card);
  Json _revConf(const Card& card);
  Json _lrnConf(const Card& card);
  bool _resched(const Card& card);

  int64_t _delayForGrade(const Json& conf, int left) const;
  int _startingLeft(const Card& card);
  int _leftToday(const Json& delays, int left, int64_t now = 0) const;
  int64_t _nextRevIvl(const Card& card, int ease);
  int64_t _nextLapseIvl(const Card& card, const Json& conf) const;
  int64_t _daysLate(const Card& card) const;
  int64_t _dynIvlBoost(const Card& card);
  static std::pair<int64_t, int64_t> _fuzzIvlRange(int64_t ivl);
  static int64_t _fuzzedIvl(int64_t ivl);
  bool _checkLeech(Card& card, const Json& conf);

  int _deckNewLimitSingle(const Json& deck);
  int _deckRevLimitSingle(const Json& deck);
  int _deckNewLimit(Id did);
  int _deckRevLimit(Id did);
  void _updateStats(const Card& card, const std::string& type, int64_t count = 1);

  // The C library's generator, as the review order of a day depends on it.
  static void shuffle(std::vector<Id>& ids);

 private:
  using LimitFn = std::function<int(const Json& deck)>;
  using CountFn = std::function<int(Id did, int lim)>;

  std::unique_ptr<Card> _getCard();
  std::unique_ptr<Card> _getNewCard();
  std::unique_ptr<Card> _getLrnCard(bool collapse = false);
  std::unique_ptr<Card> _getLrnDayCard();
  std::unique_ptr<Card> _getRevCard();
  bool _fillNew();
  bool _fillLrn();
  bool _fillLrnDay();
  bool _fillRev();
  void _resetNew();
  void _resetNewCount();
  void _resetLrn();
  void _resetLrnCount();
  void _resetRev();
  void _resetRevCount();
  int _walkingCount(const LimitFn& limFn, const CountFn& cntFn);
  int _deckLimitWith(Id did, const LimitFn& fn);
  int _newForDeck(Id did, int lim);
  int _revForDeck(Id did, int lim);
  int _lrnForDeck(Id did);
  std::vector<DeckDueNode> _groupChildren(const std::vector<DeckDueRow>& rows);

  void _burySiblings(const Card& card);
  void _answerLrnCard(Card& card, int ease);
  void _answerRevCard(Card& card, int ease);
  void _rescheduleAsRev(Card& card, const Json& conf, bool early);
  void _rescheduleNew(Card& card, const Json& conf, bool early);
  int64_t _graduatingIvl(Card& card, const Json& conf, bool early, bool adj = true);
  int64_t _rescheduleLapse(Card& card);
  void _rescheduleRev(Card& card, int ease);
  int64_t _adjRevIvl(int64_t idealIvl) const;
  // Moves a learning due that has passed the cutoff onto a day; true when it did.
  bool _moveToDayLearning(Card& card);
  void _lrnQueuePush(LrnEntry entry);
  void _logLrn(const Card& card, int ease, const Json& conf, bool leaving, int type, int lastLeft);
  void _logRev(const Card& card, int ease, int64_t delay);
  void _writeLog(const Card& card, int ease, int64_t ivl, int64_t lastIvl, int type,
                 const char* retryMessage);
  int64_t _nextLrnIvl(Card& card, int ease);
  const Json& _groupOf(const Json& did);

  Col& _col;
  std::string _name = "std";
  bool _haveCustomStudy = true;
  bool _haveQueues = false;
  bool _needResetAfterUndo = false;
  int64_t _today = 0;
  bool _haveToday = false;
  int64_t _dayCutOff = 0;
  std::vector<LrnEntry> _lrnQ;
  std::vector<Id> _newQ, _revQ, _lrnDayQ;
  std::vector<Id> _newDids, _revDids, _lrnDids;
  std::vector<Card> _undoQueue;
  // The id of the last review log row written here.
  int64_t _lastRevlogId = 0;
};

}  // namespace rivo
