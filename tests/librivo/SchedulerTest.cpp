// Which card comes next, the counts, the day boundary, deck limits and the deck tree, undo,
// and options or rows that are not what they should be.

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <vector>

#include "tests/librivo/SchedFixture.h"

namespace rivo {
namespace {

using test::Cols;
using test::kNow;
using test::kToday;
using Counts = std::array<int, 3>;

class SchedulerTest : public test::SchedTest {
 protected:
  // Serves and answers cards until none is left (at most `max`); the number served per deck.
  std::map<Id, int> study(int ease, int max = 100) {
    std::map<Id, int> served;
    for (int i = 0; i < max; ++i) {
      auto card = sched().getCard();
      if (!card) break;
      ++served[card->did];
      clock.advance(1);
      sched().answerCard(*card, ease);
    }
    return served;
  }
  // Ids served without answering, until none is left.
  std::vector<Id> drain(int max = 200) {
    std::vector<Id> ids;
    for (int i = 0; i < max; ++i) {
      auto card = sched().getCard();
      if (!card) break;
      ids.push_back(card->id);
    }
    return ids;
  }
  Row fullRow(Id cid) {
    return *col->db()->first(
        "select id, nid, did, ord, type, queue, due, ivl, factor, reps, lapses, left, odue, "
        "odid, flags, data from cards where id = ?",
        {cid});
  }
  const DeckDueRow* listRow(const std::vector<DeckDueRow>& rows, const std::string& name) {
    for (const DeckDueRow& r : rows)
      if (r.name == name) return &r;
    return nullptr;
  }
  static const DeckDueNode* node(const std::vector<DeckDueNode>& nodes, const std::string& name) {
    for (const DeckDueNode& n : nodes)
      if (n.name == name) return &n;
    return nullptr;
  }
};

TEST_F(SchedulerTest, DayBoundaryRollsCountersAndUnburiesOnce) {
  clock.set(87400);
  col->setCrt(1000);
  col->conf()["lastUnburied"] = 1;
  sched()._updateCutoff();
  // (87400 - 1000) / 86400 = 1; cutoff 1000 + 2 * 86400.
  EXPECT_EQ(sched().today(), 1);
  EXPECT_EQ(sched().dayCutOff(), 173800);

  const Id buriedNew = addCard({.queue = -2});
  const Id buriedRev = addCard({.type = 2, .queue = -2, .due = 1, .ivl = 3, .factor = 2500});
  const Id tomorrow = addReview(2);
  deck(1)["newToday"] = Json::array({1, 5});
  col->reset();
  EXPECT_EQ(counter(1, "newToday").second, 5);  // same day: kept

  for (int64_t t : {173799, 173800}) {  // before and exactly at the cutoff: still day 1
    clock.set(t);
    EXPECT_EQ(sched().getCard(), nullptr) << t;
    EXPECT_EQ(sched().today(), 1) << t;
  }
  clock.set(173801);  // one second after: getCard resets into day 2
  auto card = sched().getCard();
  EXPECT_EQ(sched().today(), 2);
  EXPECT_EQ(sched().dayCutOff(), 260200);
  ASSERT_NE(card, nullptr);
  EXPECT_EQ(card->queue, 2);  // reviews come before new cards at reps 0
  for (const char* key : {"newToday", "revToday", "lrnToday", "timeToday"})
    EXPECT_EQ(counter(1, key), std::make_pair(int64_t{2}, int64_t{0})) << key;
  EXPECT_EQ(queueOf(buriedNew), 0);  // queue = type
  EXPECT_EQ(queueOf(buriedRev), 2);
  EXPECT_EQ(col->db()->scalarInt("select count() from cards where mod != 555"), 0);
  EXPECT_EQ(jsonInt(col->conf()["lastUnburied"]), 2);
  EXPECT_EQ(queueOf(tomorrow), 2);

  // Once a day: burying again the same day holds across resets.
  col->db()->run("update cards set queue = -2 where id = ?", {buriedNew});
  col->reset();
  EXPECT_EQ(queueOf(buriedNew), -2);
}

TEST_F(SchedulerTest, DecksThatArriveDuringTheDayAreRolledAtTheNextReset) {
  // Resets on one day pass over decks already rolled, but not one that replaced another, a
  // new one, or one read back by a rollback.
  const Id kept = col->decks().getID("Kept");
  col->reset();
  Json stale = deck(kept);
  stale["revToday"] = Json::array({kToday - 3, 7});
  col->decks().update(stale);
  const Id added = col->decks().getID("Added");
  deck(added)["newToday"] = Json::array({kToday - 1, 4});
  col->reset();
  EXPECT_EQ(counter(kept, "revToday"), std::make_pair(kToday, int64_t{0}));
  EXPECT_EQ(counter(added, "newToday"), std::make_pair(kToday, int64_t{0}));

  col->save();
  col->db()->run("update col set decks = replace(decks, '\"lrnToday\":[" + std::to_string(kToday) +
                 ",0]', '\"lrnToday\":[1,9]')");
  col->db()->commit();
  ASSERT_GT(col->db()->scalarInt("select instr(decks, '\"lrnToday\":[1,9]') from col"), 0);
  col->rollback();
  col->reset();
  EXPECT_EQ(counter(kept, "lrnToday"), std::make_pair(kToday, int64_t{0}));
}

TEST_F(SchedulerTest, ParentLimitBindsItsChildrenTogether) {
  const Id parent = deckWithLimits("P", 5, 100);
  const Id a = deckWithLimits("P::A", 10, 100);
  const Id b = deckWithLimits("P::B", 10, 100);
  for (int i = 0; i < 10; ++i) {
    addNew(a, i);
    addNew(b, i);
  }
  col->decks().select(parent);
  col->reset();
  // Walking count over P, P::A, P::B: P 0 of 5; A min(10, 5) = 5, P left 0; B min(10, 0) = 0.
  EXPECT_EQ(sched().counts(), (Counts{5, 0, 0}));
  const auto served = study(3);  // Easy: graduated, not seen again today
  EXPECT_EQ(served, (std::map<Id, int>{{a, 5}}));
  EXPECT_EQ(counter(parent, "newToday").second, 5);
  EXPECT_EQ(counter(a, "newToday").second, 5);
  EXPECT_EQ(counter(b, "newToday").second, 0);
}

TEST_F(SchedulerTest, DeckListTreeAndSessionShareAParentLimitDifferently) {
  const Id parent = deckWithLimits("P", 20, 100);
  const Id a = deckWithLimits("P::A", 20, 100);
  const Id b = deckWithLimits("P::B", 20, 100);
  for (int i = 0; i < 15; ++i) {
    addNew(a, i);
    addNew(b, i);
  }
  col->reset();
  // The list lowers each child to its parent's limit, not to what is left of it: 15 and 15.
  const auto rows = sched().deckDueList();
  ASSERT_TRUE(listRow(rows, "P::A") && listRow(rows, "P::B") && listRow(rows, "P"));
  EXPECT_EQ(listRow(rows, "P::A")->newCount, 15);
  EXPECT_EQ(listRow(rows, "P::B")->newCount, 15);
  EXPECT_EQ(listRow(rows, "P")->newCount, 0);
  // The tree sums 0 + 15 + 15 = 30 into the parent and caps it at its own 20.
  const auto tree = sched().deckDueTree();
  const DeckDueNode* p = node(tree, "P");
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->did, parent);
  EXPECT_EQ(p->newCount, 20);
  ASSERT_TRUE(node(p->children, "A") && node(p->children, "B"));
  EXPECT_EQ(node(p->children, "A")->newCount, 15);
  EXPECT_EQ(node(p->children, "B")->newCount, 15);

  // A session walks the limit down: 15 from A, then what is left of P's 20 for B.
  col->decks().select(parent);
  col->reset();
  EXPECT_EQ(study(3), (std::map<Id, int>{{a, 15}, {b, 5}}));

  // P has used its whole limit: nothing new for it or its children.
  const auto after = sched().deckDueList();
  EXPECT_EQ(listRow(after, "P::B")->newCount, 0);
  EXPECT_EQ(node(sched().deckDueTree(), "P")->newCount, 0);
}

TEST_F(SchedulerTest, DeckListRepairsOrphanAndBlankDecks) {
  DeckManager& dm = col->decks();
  const Id orphan = dm.getID("a::b");
  dm.removeDeck(dm.getID("a"), false, false);
  ASSERT_NE(dm.byName("a::b"), nullptr);
  const Id cid = addNew(orphan);
  const Id blank = dm.getID("x");
  deck(blank)["name"] = "";

  const auto rows = sched().deckDueList();
  EXPECT_EQ(dm.byName("a::b"), nullptr);
  EXPECT_EQ(dm.byName("a"), nullptr);  // the parent is not made up
  EXPECT_EQ(listRow(rows, "a::b"), nullptr);
  EXPECT_EQ(didOf(cid), 1);
  const DeckDueRow* renamed = listRow(rows, "(blank)");
  ASSERT_NE(renamed, nullptr);
  EXPECT_EQ(renamed->did, blank);
  EXPECT_EQ(deck(blank)["name"], "(blank)");
}

TEST_F(SchedulerTest, NewCardModulusAndTheFirstCard) {
  group()["new"]["perDay"] = 200;
  group()["rev"]["perDay"] = 200;
  struct Case {
    int news, revs, spread, modulus, firstQueue;
  };
  const Case cases[] = {
      {100, 50, 0, 2, 2},  // 150 / 100 = 1, raised to 2 as there are reviews
      {0, 50, 0, 0, 2},    // no new cards: 0
      {10, 90, 1, 0, 2},   // after the reviews: no interleaving
      {10, 90, 2, 0, 0},   // before the reviews: the first card is new
      {10, 90, 0, 10, 2},  // (10 + 90) / 10; reps 0, so not a new card first
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.news << " new, " << c.revs << " rev, spread " << c.spread);
    col->db()->run("delete from cards");
    for (int i = 0; i < c.news; ++i) addNew(1, i);
    for (int i = 0; i < c.revs; ++i) addReview(kToday - i % 3);
    col->conf()["newSpread"] = c.spread;
    col->reset();
    EXPECT_EQ(sched().newCardModulus, c.modulus);
    auto first = sched().getCard();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->queue, c.firstQueue);
  }
  // Modulus 10: a new card when reps is a multiple of it.
  sched().reps = 20;
  EXPECT_TRUE(sched()._timeForNewCard());
  sched().reps = 25;
  EXPECT_FALSE(sched()._timeForNewCard());
}

TEST_F(SchedulerTest, ServingOrderAcrossTheQueues) {
  const Id review = addReview(kToday);
  const Id fresh = addNew();
  const Id soon = addCard({.type = 1, .queue = 1, .due = kNow + 1, .left = 1001});
  const Id dueNow = addCard({.type = 1, .queue = 1, .due = kNow, .left = 1001});
  col->reset();
  // A learning card due exactly now first; the review (reps 0: no new card by the ratio);
  // the new card once reviews are gone; the learning card due in a second, learnt ahead.
  EXPECT_EQ(drain(), (std::vector<Id>{dueNow, review, fresh, soon}));
}

TEST_F(SchedulerTest, LearnAheadWindowIsCollapseTime) {
  for (int collapse : {1200, 300}) {
    SCOPED_TRACE(collapse);
    col->db()->run("delete from cards");
    const Id fresh = addNew();
    const Id inTenMinutes = addCard({.type = 1, .queue = 1, .due = kNow + 600, .left = 1001});
    col->conf()["collapseTime"] = collapse;
    col->reset();
    const std::vector<Id> expected =
        collapse == 1200 ? std::vector<Id>{fresh, inTenMinutes} : std::vector<Id>{fresh};
    EXPECT_EQ(drain(), expected);
  }
}

TEST_F(SchedulerTest, CountsOfCardsOnScreenAndWaitingInUndo) {
  addCard({.type = 1, .queue = 1, .due = kNow, .left = 2002});
  col->reset();
  EXPECT_EQ(sched().counts(), (Counts{0, 2, 0}));  // lrnCount counts steps: 2002 / 1000
  auto card = sched().getCard();
  ASSERT_NE(card, nullptr);
  EXPECT_EQ(sched().counts(), (Counts{0, 0, 0}));
  EXPECT_EQ(sched().countsForCard(card.get()), (Counts{0, 2, 0}));  // on screen: left / 1000

  sched().undoQueue().push_back(*card);
  EXPECT_EQ(sched().counts(), (Counts{0, 1, 0}));  // waiting: 1, whatever its left
  auto undone = sched().getCard();
  ASSERT_NE(undone, nullptr);
  EXPECT_TRUE(sched().needResetAfterUndo());
  EXPECT_EQ(sched().countsForCard(undone.get()), (Counts{0, 1, 0}));
}

TEST_F(SchedulerTest, ReviewOrderIsFixedForTheDay) {
  std::vector<Id> ids;
  for (int i = 0; i < 30; ++i) ids.push_back(addReview(kToday - i % 4));
  col->reset();
  const std::vector<Id> first = drain();
  col->reset();
  EXPECT_EQ(drain(), first);
  EXPECT_EQ(first.size(), ids.size());
}

TEST_F(SchedulerTest, SiblingsAreBuriedAndLeaveTheQueues) {
  for (bool bury : {true, false}) {
    SCOPED_TRACE(bury);
    group()["new"]["bury"] = bury;
    group()["rev"]["bury"] = bury;
    col->db()->run("delete from cards");
    const Id nid = addNote();
    const Id a = addCard({.due = 1}, 1, nid, 0);
    const Id b = addCard({.due = 2}, 1, nid, 1);
    const Id c = addNew(1, 3);
    col->reset();
    auto card = sched().getCard();
    ASSERT_NE(card, nullptr);
    EXPECT_EQ(card->id, a);
    clock.advance(1);
    sched().answerCard(*card, 2);
    // Taken out of the batch either way; buried only with the flag on.
    const auto& q = sched()._newQueue();
    EXPECT_EQ(std::find(q.begin(), q.end(), b), q.end());
    EXPECT_EQ(queueOf(b), bury ? -2 : 0);
    auto next = sched().getCard();
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(next->id, c);

    // Reviews: a due sibling goes; one due tomorrow is left alone.
    col->db()->run("delete from cards");
    const Id rn = addNote();
    auto rev = [&](int64_t due, int ord) {
      return addCard({.type = 2, .queue = 2, .due = due, .ivl = 5, .factor = 2500}, 1, rn, ord);
    };
    const Id r1 = rev(kToday, 0), r2 = rev(kToday - 1, 1), r3 = rev(kToday + 1, 2);
    col->reset();
    auto shown = sched().getCard();
    ASSERT_NE(shown, nullptr);
    const Id other = shown->id == r1 ? r2 : r1;
    clock.advance(1);
    sched().answerCard(*shown, 3);
    const auto& rq = sched()._revQueue();
    EXPECT_EQ(std::find(rq.begin(), rq.end(), other), rq.end());
    EXPECT_EQ(queueOf(other), bury ? -2 : 2);
    EXPECT_EQ(queueOf(r3), 2);
  }
}

TEST_F(SchedulerTest, UndoOfTenAnswersRestoresEveryCardAndLogRow) {
  for (int i = 0; i < 10; ++i) addNew(1, i + 1);
  col->reset();
  std::vector<Id> served;
  std::vector<Row> before;
  for (int i = 0; i < 10; ++i) {
    auto card = sched().getCard();
    ASSERT_NE(card, nullptr);
    served.push_back(card->id);
    before.push_back(fullRow(card->id));
    clock.advance(3);
    sched().answerCard(*card, 1 + i % 3);
  }
  EXPECT_EQ(logCount(), 10);
  for (int i = 9; i >= 0; --i) {
    clock.advance(1);
    const auto undone = col->undoSavingCurrentCard(nullptr);
    ASSERT_TRUE(undone);
    EXPECT_EQ(*undone, served[i]);
    EXPECT_EQ(fullRow(served[i]), before[i]) << i;  // every column but mod and usn
    EXPECT_EQ(col->db()->scalarInt("select mod from cards where id = ?", {served[i]}), intTime(1));
    EXPECT_EQ(logCount(), i);
  }
  EXPECT_FALSE(col->canUndo());
  // The last undone (the first answered) is served first, and so on, each as it stands.
  EXPECT_EQ(drain(10), served);
  EXPECT_TRUE(sched().needResetAfterUndo());
}

TEST_F(SchedulerTest, UndoReturnsBuriedSiblingsAndTheCardOnScreen) {
  const Id nid = addNote();
  const Id a = addCard({.due = 1}, 1, nid, 0);
  const Id b = addCard({.due = 2}, 1, nid, 1);
  const Id c = addNew(1, 3);
  col->reset();
  auto card = sched().getCard();
  ASSERT_EQ(card->id, a);
  clock.advance(2);
  sched().answerCard(*card, 3);
  ASSERT_EQ(queueOf(b), -2);
  auto onScreen = sched().getCard();
  ASSERT_EQ(onScreen->id, c);

  clock.advance(2);
  col->undoSavingCurrentCard(onScreen.get());
  EXPECT_EQ(row(a), (Cols{.due = 1}));  // new again, as before the answer
  EXPECT_EQ(queueOf(b), 0);
  EXPECT_EQ(col->db()->scalarInt("select mod from cards where id = ?", {b}), intTime(1));
  EXPECT_EQ(logCount(), 0);
  EXPECT_EQ(drain(2), (std::vector<Id>{a, c}));
}

TEST_F(SchedulerTest, BadOptionValuesFallBackOrBehaveAsWritten) {
  const Id odd = deckWithLimits("Odd", 20, 100);
  Json& g = *col->decks().confForDid(odd);
  g["new"]["perDay"] = "many";         // wrong type: the default group's 20
  g["new"]["delays"] = Json::array();  // no steps: one minute, and 1 step doable today
  g["rev"]["perDay"] = -5;             // 0, never below
  g["rev"]["ease4"] = "fast";          // wrong type: 1.3
  g["rev"].erase("ivlFct");            // missing: 1.0
  g["lapse"].erase("minInt");          // missing: the default group's 1
  for (int i = 0; i < 25; ++i) addNew(odd, i);
  for (int i = 0; i < 3; ++i) addReview(kToday, odd);
  col->decks().select(odd);
  col->reset();
  EXPECT_EQ(sched().counts(), (Counts{20, 0, 0}));

  // Empty delays: Again waits a minute, Good then graduates.
  const Id fresh = addNew(odd, 100);
  answer(fresh, 1);
  EXPECT_EQ(row(fresh).left, 1000);
  EXPECT_GE(row(fresh).due, kNow + 60);
  EXPECT_LE(row(fresh).due, kNow + 74);
  answer(fresh, 2);
  EXPECT_EQ(row(fresh), (Cols{2, 2, kToday + 1, 1, 2500, 2, 0, 1000, 0}));

  sched()._spreadRev = false;
  const Id easy = addReview(kToday, odd);
  answer(easy, 4);
  EXPECT_EQ(row(easy).ivl, 32);  // 10 * 2.5 * 1.3
  const Id lapse = addReview(kToday, odd);
  answer(lapse, 1);
  EXPECT_EQ(row(lapse).ivl, 1);  // max(1, 10 * 0)
}

TEST_F(SchedulerTest, UnknownQueueAndMissingDeckDontBreakAnything) {
  const Id strange = addCard({.type = 0, .queue = 7, .due = 5, .ivl = 3});
  col->reset();
  EXPECT_EQ(sched().counts(), (Counts{0, 0, 0}));
  EXPECT_EQ(sched().getCard(), nullptr);
  EXPECT_NE(listRow(sched().deckDueList(), "Default"), nullptr);
  // Answered anyway: nothing changes but the time counter and the stamp; nothing is logged.
  answer(strange, 3);
  const Cols after = row(strange);
  EXPECT_EQ((std::array<int64_t, 5>{after.type, after.queue, after.due, after.ivl, after.left}),
            (std::array<int64_t, 5>{0, 7, 5, 3, 0}));
  EXPECT_EQ(col->db()->scalarInt("select mod from cards where id = ?", {strange}), kNow);
  EXPECT_EQ(logCount(), 0);
  EXPECT_EQ(counter(1, "timeToday").second, 4000);

  // A card whose deck is gone is answered with the default options and recovered to deck 1.
  const Id lost = addNew(424242);
  answer(lost, 1);
  EXPECT_EQ(row(lost).left, 2002);
  sched().deckDueList();
  EXPECT_EQ(didOf(lost), 1);
}

}  // namespace
}  // namespace rivo
