// Filtered decks: cards gathered by a search, answered inside, and sent home again. Every
// check reads the card rows back with SQL, so what is compared is what the file holds.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Scheduler.h"
#include "tests/librivo/SchedFixture.h"

namespace rivo::test {
namespace {

// The columns a move into or out of a filtered deck touches.
struct Place {
  int64_t did = 0, odid = 0, odue = 0, due = 0, queue = 0, type = 0;
  bool operator==(const Place&) const = default;
  friend void PrintTo(const Place& p, std::ostream* os) {
    *os << "{did " << p.did << ", odid " << p.odid << ", odue " << p.odue << ", due " << p.due
        << ", queue " << p.queue << ", type " << p.type << "}";
  }
};

class FilteredTest : public SchedTest {
 protected:
  void SetUp() override {
    SchedTest::SetUp();
    home = col->decks().getID("Home");
    away = col->decks().getID("Away");
  }

  // A filtered deck with one term; newDyn selects it.
  Id dyn(const std::string& name, const std::string& search, int limit = 100, int order = 6,
         bool resched = true) {
    const Id did = col->decks().newDyn(name);
    Json& d = deck(did);
    d["terms"] = Json::array({Json::array({search, limit, order})});
    d["resched"] = resched;
    return did;
  }

  Place place(Id cid) {
    const Row r = *col->db()->first(
        "select did, odid, odue, due, queue, type from cards where id = ?", {cid});
    return {toInt(r[0]), toInt(r[1]), toInt(r[2]), toInt(r[3]), toInt(r[4]), toInt(r[5])};
  }
  std::map<Id, std::string> allRows() {
    std::map<Id, std::string> out;
    for (const Value& id : col->db()->list("select id from cards"))
      out[toInt(id)] = rowText("select * from cards where id = ?", {toInt(id)});
    return out;
  }

  Id home = 0, away = 0;
};

TEST_F(FilteredTest, BuildingMovesTheMatchesInOrderAndEmptyingRestoresEveryColumn) {
  const Id fresh = addNew(home, 7);
  const Id due = addReview(kToday - 3, home);
  const Id notYet = addReview(kToday + 5, home);
  const Id lrn = addCard({.type = 1, .queue = 1, .due = kNow + 60, .left = 2002}, home);
  // In relearning: the review day waits in odue, and it is today.
  const Id relrn = addCard({.type = 2,
                            .queue = 1,
                            .due = kNow + 600,
                            .ivl = 1,
                            .factor = 2300,
                            .left = 1001,
                            .odue = kToday},
                           home);
  const Id suspended = addCard({.type = 2, .queue = -1, .due = kToday, .ivl = 3}, home);
  const Id buried = addCard({.type = 0, .queue = -2, .due = 3}, home);
  const Id elsewhere = addNew(away, 1);
  const auto before = allRows();

  clock.advance(10);
  const Id f = dyn("Filtered", "deck:Home");
  const std::vector<Id> moved = sched().rebuildDyn();
  // Ordered by due: position, review days, then the learning seconds.
  EXPECT_EQ(moved, (std::vector<Id>{fresh, due, notYet, lrn, relrn}));
  EXPECT_EQ(place(fresh), (Place{f, home, 7, -100000, 0, 0}));
  EXPECT_EQ(place(due), (Place{f, home, kToday - 3, -99999, 2, 2}));
  // Not due yet: served as new, an early review at its first answer.
  EXPECT_EQ(place(notYet), (Place{f, home, kToday + 5, -99998, 0, 2}));
  EXPECT_EQ(place(lrn), (Place{f, home, kNow + 60, -99997, 0, 1}));
  // The queue comes from odue, the review day, not from the learning seconds in due.
  EXPECT_EQ(place(relrn), (Place{f, home, kToday, -99996, 2, 2}));
  EXPECT_EQ(
      sqlInt("select count() from cards where did = ? and (mod != ? or usn != -1)", {f, kNow + 10}),
      0);
  EXPECT_EQ(row(lrn).left, 2002) << "left is not touched";
  for (Id untouched : {suspended, buried, elsewhere})
    EXPECT_EQ(rowText("select * from cards where id = ?", {untouched}), before.at(untouched));
  EXPECT_EQ(col->decks().selected(), f);

  clock.advance(10);
  sched().emptyDyn(f);
  EXPECT_EQ(place(fresh), (Place{home, 0, 0, 7, 0, 0}));
  EXPECT_EQ(place(due), (Place{home, 0, 0, kToday - 3, 2, 2}));
  EXPECT_EQ(place(notYet), (Place{home, 0, 0, kToday + 5, 2, 2}));
  // Learning goes home as new; relearning as a review on the day odue held.
  EXPECT_EQ(place(lrn), (Place{home, 0, 0, kNow + 60, 0, 0}));
  EXPECT_EQ(place(relrn), (Place{home, 0, 0, kToday, 2, 2}));
  EXPECT_EQ(sqlInt("select count() from cards where did = ?", {f}), 0);

  const auto emptied = allRows();
  clock.advance(10);
  sched().emptyDyn(f);
  EXPECT_EQ(allRows(), emptied) << "a second empty changes nothing";

  const std::string log = debugLog();
  EXPECT_NE(log.find("fillDyn " + std::to_string(f)), std::string::npos) << log;
  EXPECT_NE(log.find("emptyDyn"), std::string::npos) << log;
}

TEST_F(FilteredTest, LimitAndOrderPickWhichCardsAndTheirPositions) {
  const Id small = addCard({.type = 2, .queue = 2, .due = kToday, .ivl = 5, .factor = 2500}, home);
  const Id large = addCard({.type = 2, .queue = 2, .due = kToday, .ivl = 50, .factor = 2500}, home);
  const Id middle =
      addCard({.type = 2, .queue = 2, .due = kToday, .ivl = 20, .factor = 2500}, home);
  const Id f = dyn("F", "deck:Home", 2, 3);  // decreasing intervals
  EXPECT_EQ(sched().rebuildDyn(), (std::vector<Id>{large, middle}));
  EXPECT_EQ(place(small).did, home);

  // Relative overdueness: of equal intervals the more overdue comes first (due today divides
  // by 0.001), and a card not yet due sorts last by 100000 + due.
  sched().emptyDyn(f);
  col->db()->run("update cards set ivl = 10");
  col->db()->run("update cards set due = ? where id = ?", {kToday + 1, small});
  col->db()->run("update cards set due = ? where id = ?", {kToday - 4, middle});
  deck(f)["terms"][0] = Json::array({"deck:Home", 100, 8});
  EXPECT_EQ(sched().rebuildDyn(), (std::vector<Id>{middle, large, small}));
  EXPECT_EQ(place(small), (Place{f, home, kToday + 1, -99998, 0, 2}));

  // A limit that reads as 0 gathers nothing; the deck is left empty, its cards home.
  deck(f)["terms"][0][1] = 0;
  EXPECT_TRUE(sched().rebuildDyn().empty());
  EXPECT_EQ(sqlInt("select count() from cards where did = ? or odid != 0", {f}), 0);
}

TEST_F(FilteredTest, RebuildSendsCardsHomeFirstAndLeavesOtherFilteredDecksAlone) {
  const Id a = addReview(kToday - 1, home);
  const Id b = addNew(home, 3);
  const Id first = dyn("First", "deck:Home", 1, 6);
  ASSERT_EQ(sched().rebuildDyn(), std::vector<Id>{b});
  // A second filtered deck over the same cards finds only the one still at home.
  const Id second = dyn("Second", "deck:Home", 100, 6);
  EXPECT_EQ(sched().rebuildDynForDeck(second), std::vector<Id>{a});
  EXPECT_EQ(place(b).did, first);
  EXPECT_EQ(col->decks().selected(), second);

  // Rebuilding the first with a search matching nothing empties it and returns nothing.
  deck(first)["terms"][0][0] = "deck:Nowhere";
  EXPECT_TRUE(sched().rebuildDynForDeck(first).empty());
  EXPECT_EQ(place(b), (Place{home, 0, 0, 3, 0, 0}));
  EXPECT_EQ(col->decks().selected(), second) << "selection is kept when nothing matched";

  // A normal deck isn't rebuilt, and the ids of a filtered one's cards come home with remFromDyn.
  const auto rows = allRows();
  EXPECT_TRUE(sched().rebuildDynForDeck(home).empty());
  EXPECT_EQ(allRows(), rows);
  sched().remFromDyn({a, b});
  EXPECT_EQ(place(a), (Place{home, 0, 0, kToday - 1, 2, 2}));
  EXPECT_EQ(allRows().at(b), rows.at(b)) << "a card at home is left alone";
}

TEST_F(FilteredTest, AnsweringWithReschedulingMovesTheCardHomeOnItsNewSchedule) {
  const Id rev = addReview(kToday - 3, home);
  const Id fresh = addNew(home, 4);
  const Id f = dyn("F", "deck:Home");
  ASSERT_EQ(sched().rebuildDyn().size(), 2u);

  answer(rev, 3);
  Place p = place(rev);
  EXPECT_GT(p.due, kToday + 10) << "rescheduled from today";
  p.due = 0;
  EXPECT_EQ(p, (Place{home, 0, 0, 0, 2, 2}));

  // A new card takes the home group's steps; Easy graduates it home as a review.
  answer(fresh, 3);
  p = place(fresh);
  EXPECT_NEAR(p.due, kToday + 4, 1) << "the easy interval, spread a day either way";
  p.due = 0;
  EXPECT_EQ(p, (Place{home, 0, 0, 0, 2, 2}));
  EXPECT_EQ(sqlInt("select count() from cards where did = ?", {f}), 0);
}

TEST_F(FilteredTest, AnsweringWithoutReschedulingKeepsTheOldSchedule) {
  const Id rev = addReview(kToday - 3, home);
  const Id fresh = addNew(home, 4);
  const Id stepper = addNew(home, 5);
  const Id f = dyn("F", "deck:Home", 100, 6, false);
  deck(f)["delays"] = Json::array({1});
  ASSERT_EQ(sched().rebuildDyn().size(), 3u);

  answer(rev, 3);
  EXPECT_EQ(place(rev), (Place{home, 0, 0, kToday - 3, 2, 2}));
  EXPECT_EQ(row(rev).ivl, 10);

  // A previewed new card goes home to the end of the new cards.
  const int64_t pos = col->nextID("pos", false);
  answer(fresh, 3);
  EXPECT_EQ(place(fresh), (Place{home, 0, 0, pos, 0, 0}));

  // Again leaves it learning inside on the deck's own one-minute step; emptying sends it home
  // as new at its old position.
  answer(stepper, 1);
  Place p = place(stepper);
  EXPECT_GE(p.due, kNow + 60);
  EXPECT_LE(p.due, kNow + 75) << "one minute, and up to a quarter more";
  p.due = 0;
  EXPECT_EQ(p, (Place{f, home, 5, 0, 1, 1}));
  sched().emptyDyn(f);
  EXPECT_EQ(place(stepper), (Place{home, 0, 0, 5, 0, 0}));
}

TEST_F(FilteredTest, RemovingAFilteredDeckSendsItsCardsHome) {
  const Id a = addReview(kToday, home);
  const Id f = dyn("F", "deck:Home");
  ASSERT_EQ(sched().rebuildDyn(), std::vector<Id>{a});
  col->decks().removeDeck(f, true);
  EXPECT_EQ(place(a), (Place{home, 0, 0, kToday, 2, 2}));
  EXPECT_EQ(col->decks().getDeck(f, false), nullptr);
}

}  // namespace
}  // namespace rivo::test
