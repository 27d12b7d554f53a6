// Hiding cards and bringing them back, forgetting, new-card positions, and the message at the
// end of a session. Every result is read back from the cards table.

#include <cstdlib>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/librivo/SchedFixture.h"

namespace rivo {
namespace {

using test::Cols;
using test::kNow;
using test::kToday;

const std::string kDone = "<b>Congratulations! You have finished this deck for now.</b><br><br>";
const std::string kRevLimit =
    "Today's review limit has been reached, but there are still cards waiting to be reviewed. "
    "For optimum memory, consider increasing the daily limit in the options.";
const std::string kNewLimit =
    "There are more new cards available, but the daily limit has been reached. You can increase "
    "the limit in the options, but please bear in mind that the more new cards you introduce, "
    "the higher your short-term review workload will become.";
const std::string kBuried =
    "Some related or buried cards were delayed. They will be shown in a future study session, or "
    "you can <a href=_unbury>unbury cards now</a>.";
const std::string kCustom =
    "To study outside of the normal schedule, you can use<br><a href=_cstudy "
    "style='padding:2em;'>Custom Study.</a>";

class SchedCardOpsTest : public test::SchedTest {
 protected:
  // Every card's due, by id.
  std::map<Id, int64_t> dues() {
    std::map<Id, int64_t> out;
    for (const Row& r : col->db()->all("select id, due from cards")) out[toInt(r[0])] = toInt(r[1]);
    return out;
  }
  // "mod|usn" of a card.
  std::string stamp(Id cid) { return rowText("select mod, usn from cards where id=?", {cid}); }
  Id learning(int64_t queue = 1) {
    const int64_t due = queue == 1 ? kNow + 60 : kToday + 1;
    return addCard({.type = 1, .queue = queue, .due = due, .factor = 2500, .reps = 1, .left = 2});
  }
  // A lapsed card in relearning; its review date waits in odue.
  static constexpr Cols kLapsed{.type = 2,
                                .queue = 1,
                                .due = kNow + 600,
                                .ivl = 3,
                                .factor = 2300,
                                .reps = 6,
                                .lapses = 1,
                                .left = 1};
  Id relearning(int64_t odue) {
    Cols c = kLapsed;
    c.odue = odue;
    return addCard(c);
  }
  // kLapsed back on its review date, in this queue.
  static Cols lapsedHome(int64_t queue, int64_t due) {
    Cols c = kLapsed;
    c.queue = queue;
    c.due = due;
    return c;
  }
  const std::string kStamped = std::to_string(kNow) + "|-1";
  const std::string kUntouched = "555|0";  // as the fixture writes a card
};

TEST_F(SchedCardOpsTest, SortCardsShiftMakesRoomForTheNewPositions) {
  const Id a = addNew(1, 5), b = addNew(1, 10), c = addNew(1, 11), d = addNew(1, 20);
  // Suspended new cards count for the lowest position but don't move; reviews neither.
  const Id s = addCard({.queue = -1, .due = 12});
  const Id r = addReview(150);
  const Id n1 = addNote();
  const Id x1 = addCard({.due = 99}, 1, n1, 0), x2 = addCard({.due = 98}, 1, n1, 1);
  const Id y = addNew(1, 97);
  const Id z = addReview(kToday);  // numbers its note, keeps its due

  std::map<Id, int64_t> want = dues();
  sched().sortCards({x1, y, x2, z}, 10, 2, false, true);
  // Notes at 10, 12, 14; everything new from 10 on moves up by 14 - 10 + 1.
  want[x1] = want[x2] = 10;
  want[y] = 12;
  want[b] = 15;
  want[c] = 16;
  want[d] = 25;
  EXPECT_EQ(dues(), want);
  for (Id moved : {x1, x2, y, b, c, d}) EXPECT_EQ(stamp(moved), kStamped) << moved;
  for (Id kept : {a, s, r, z}) EXPECT_EQ(stamp(kept), kUntouched) << kept;

  // Without shift, only the given cards change, even where positions now collide.
  clock.advance(10);
  sched().sortCards({d, a}, 16);
  want[d] = 16;
  want[a] = 17;
  EXPECT_EQ(dues(), want);
  EXPECT_EQ(stamp(c), kStamped);

  // Nothing at or above start: shifting moves nothing.
  want = dues();
  sched().sortCards({y}, 500, 1, false, true);
  want[y] = 500;
  EXPECT_EQ(dues(), want);
}

TEST_F(SchedCardOpsTest, SortCardsShortFormsAndShuffle) {
  std::vector<Id> ids;
  for (int i = 0; i < 20; ++i) ids.push_back(addNew(1, 1000 - i));
  const Id nid = sqlInt("select nid from cards where id=?", {ids[3]});
  const Id sibling = addCard({.due = 7}, 1, nid, 1);

  sched().sortCards(ids);
  for (size_t i = 0; i < ids.size(); ++i) EXPECT_EQ(row(ids[i]).due, int64_t(i) + 1);
  EXPECT_EQ(row(sibling).due, 7) << "only the given cards are written";
  sched().sortCards({ids[0], ids[1]}, 40);
  EXPECT_EQ(row(ids[0]).due, 40);
  EXPECT_EQ(row(ids[1]).due, 41);

  ids.push_back(sibling);
  srandom(7);
  sched().sortCards(ids, true);
  std::set<int64_t> seen;
  for (Id id : ids) seen.insert(row(id).due);
  EXPECT_EQ(seen.size(), 20u) << "two cards of one note share a position";
  EXPECT_EQ(*seen.begin(), 1);
  EXPECT_EQ(*seen.rbegin(), 20);
  EXPECT_EQ(row(sibling).due, row(ids[3]).due);
  sched().sortCards({424242}, 5, 1, true, true);  // unknown ids: nothing to do
}

TEST_F(SchedCardOpsTest, SuspendTakesCardsOutOfLearningAndUnsuspendRestoresTheirType) {
  addNew(1, 30);
  const Id fresh = addNew(1, 3), rev = addReview(kToday + 5);
  const Id lrn = learning(1), lrnDay = learning(3), relrn = relearning(90);
  const Id other = learning(1);

  sched().suspendCards({fresh, rev, lrn, lrnDay, relrn});
  EXPECT_EQ(row(fresh), (Cols{.type = 0, .queue = -1, .due = 3}));
  EXPECT_EQ(row(rev).queue, -1);
  EXPECT_EQ(row(rev).due, kToday + 5);
  // First-time learners are new again at the end of the new cards, reps kept.
  EXPECT_EQ(row(lrn),
            (Cols{.type = 0, .queue = -1, .due = 31, .factor = 2500, .reps = 1, .left = 2}));
  EXPECT_EQ(row(lrnDay).due, 32);
  // A lapsed card gets its old review date back.
  EXPECT_EQ(row(relrn), lapsedHome(-1, 90));
  for (Id id : {fresh, rev, lrn, lrnDay, relrn}) EXPECT_EQ(stamp(id), kStamped) << id;
  EXPECT_EQ(queueOf(other), 1);
  EXPECT_EQ(stamp(other), kUntouched);

  clock.advance(5);
  const Id buried = addCard({.type = 2, .queue = -2, .due = kToday, .ivl = 1});
  sched().unsuspendCards({fresh, rev, lrn, relrn, buried});
  EXPECT_EQ(queueOf(fresh), 0);
  EXPECT_EQ(queueOf(rev), 2);
  EXPECT_EQ(queueOf(lrn), 0);
  EXPECT_EQ(queueOf(relrn), 2);
  EXPECT_EQ(queueOf(lrnDay), -1) << "not asked for";
  EXPECT_EQ(queueOf(buried), -2) << "only suspended cards";
  EXPECT_EQ(stamp(fresh), std::to_string(kNow + 5) + "|-1");
  EXPECT_EQ(stamp(buried), kUntouched);
}

TEST_F(SchedCardOpsTest, RemoveLrnForIDsSendsEachKindOfLearnerHome) {
  addNew(1, 8);
  const Id lrn = learning(1), lrnDay = learning(3), relrn = relearning(95),
           relrnDay = relearning(0);
  col->db()->run("update cards set queue=3, due=?, odue=80 where id=?", {kToday + 1, relrnDay});
  const Id rev = addReview(kToday + 2);

  sched().removeLrnForIDs({lrn, lrnDay, relrn, relrnDay, rev});
  EXPECT_EQ(row(relrn), lapsedHome(2, 95));
  EXPECT_EQ(row(relrnDay).queue, 2);
  EXPECT_EQ(row(relrnDay).due, 80);
  // Both learners are numbered note by note after the last new card.
  EXPECT_EQ(row(lrn), (Cols{.due = 9, .factor = 2500, .reps = 1, .left = 2}));
  EXPECT_EQ(row(lrnDay), (Cols{.due = 10, .factor = 2500, .reps = 1, .left = 2}));
  EXPECT_EQ(row(rev).due, kToday + 2);
  EXPECT_EQ(stamp(rev), kUntouched);
}

TEST_F(SchedCardOpsTest, BuryAndUnburyCardsOfTheDeck) {
  const Id nid = addNote();
  const Id a = addCard({.due = 1}, 1, nid, 0);
  const Id b = addCard({.type = 1, .queue = 1, .due = kNow, .reps = 1, .left = 1}, 1, nid, 1);
  const Id c = addCard({.type = 2, .queue = -1, .due = 50, .ivl = 4}, 1, nid, 2);
  sched().buryNote(nid);
  EXPECT_EQ(queueOf(a), -2);
  EXPECT_EQ(row(b).queue, -2);
  EXPECT_EQ(row(b).type, 0) << "out of learning first";
  EXPECT_EQ(row(b).due, 2);
  EXPECT_EQ(queueOf(c), -1) << "suspended cards stay suspended";

  const Id other = deckWithLimits("Other", 20, 100);
  const Id away = addReview(kToday, other);
  const Id rel = relearning(70);
  sched().buryCard(away);
  sched().buryCard(rel);
  EXPECT_EQ(row(rel).due, 70);
  EXPECT_EQ(row(rel).queue, -2);
  EXPECT_EQ(stamp(away), kStamped);
  EXPECT_TRUE(sched().haveBuried());

  // Only the active decks; unlike the day's unburying, stamped as a change.
  col->decks().select(1);
  clock.advance(30);
  sched().unburyCardsForDeck();
  EXPECT_EQ(queueOf(a), 0);
  EXPECT_EQ(queueOf(b), 0);
  EXPECT_EQ(queueOf(rel), 2);
  EXPECT_EQ(stamp(a), std::to_string(kNow + 30) + "|-1");
  EXPECT_EQ(queueOf(away), -2);
  EXPECT_FALSE(sched().haveBuried());
}

TEST_F(SchedCardOpsTest, ForgetAndResetLeaveHiddenAndFilteredCardsAlone) {
  const Cols worn{
      .type = 2, .queue = 2, .due = kToday, .ivl = 30, .factor = 2100, .reps = 9, .lapses = 2};
  const Id a = addCard(worn), b = addCard(worn);
  const Id hidden =
      addCard({.type = 2, .queue = -1, .due = 40, .ivl = 30, .factor = 2100, .reps = 4});
  const Id filtered = addCard(worn);
  col->db()->run("update cards set odid=1, odue=?, did=? where id=?",
                 {kToday + 3, col->decks().newDyn("Filtered"), filtered});
  const Cols filteredBefore = row(filtered);

  // No new cards anywhere: positions start at 1.
  sched().forgetCards({a, hidden, filtered});
  EXPECT_EQ(row(a), (Cols{.due = 1, .factor = 2500, .reps = 9, .lapses = 2}));
  EXPECT_EQ(row(hidden).queue, -1);
  EXPECT_EQ(row(hidden).due, 40);
  EXPECT_EQ(row(filtered), filteredBefore);
  EXPECT_EQ(stamp(a), kStamped);
  EXPECT_EQ(stamp(filtered), kUntouched);

  addNew(1, 60);
  sched().resetCards({b, hidden});
  EXPECT_EQ(row(b), (Cols{.due = 61, .factor = 2500}));
  EXPECT_EQ(row(hidden).reps, 4) << "reset only where forgetting applies";
  EXPECT_THROW(sched().reschedCards({a}, 1, 5), std::logic_error);
}

TEST_F(SchedCardOpsTest, FinishedMessageTellsWhatIsLeft) {
  EXPECT_EQ(sched().finishedMsg(), kDone + kCustom);

  const Id rev = addReview(kToday), fresh = addNew(1, 1);
  EXPECT_EQ(sched().finishedMsg(), kDone + kRevLimit + "<p>" + kNewLimit + "<p>" + kCustom);
  col->db()->run("update cards set queue=-2 where id=?", {rev});
  EXPECT_EQ(sched().finishedMsg(), kDone + kNewLimit + "<p>" + kBuried + "<p>" + kCustom);
  // Reviews due on a later day are not waiting.
  col->db()->run("update cards set queue=2, due=? where id=?", {kToday + 1, rev});
  col->db()->run("update cards set queue=-1 where id=?", {fresh});
  EXPECT_EQ(sched().finishedMsg(), kDone + kCustom);

  // Custom study isn't offered from a filtered deck, and other decks don't count.
  col->decks().newDyn("Filtered");
  col->db()->run("update cards set due=? where id=?", {kToday, rev});
  EXPECT_EQ(sched().finishedMsg(), kDone);
}

TEST_F(SchedCardOpsTest, RandomizeOrderAndResortDecks) {
  const Id did = deckWithLimits("Sorted", 20, 100);
  const Id gid = jsonInt(deck(did)["conf"]);
  std::vector<Id> ids;
  for (int i = 0; i < 12; ++i) ids.push_back(addNew(did, 100 - i));
  const Id elsewhere = addNew(1, 100);

  sched().orderCards(did);
  for (size_t i = 0; i < ids.size(); ++i) EXPECT_EQ(row(ids[i]).due, int64_t(i) + 1);
  EXPECT_EQ(row(elsewhere).due, 100);

  auto positions = [&] {
    std::vector<int64_t> out;
    for (Id id : ids) out.push_back(row(id).due);
    return out;
  };
  const std::vector<int64_t> ordered = positions();
  srandom(3);
  sched().randomizeCards(did);
  std::vector<int64_t> shuffled = positions();
  EXPECT_NE(shuffled, ordered);
  EXPECT_EQ(std::set<int64_t>(shuffled.begin(), shuffled.end()),
            std::set<int64_t>(ordered.begin(), ordered.end()));

  // The group's order decides; a deck in order stays as it is unless random.
  sched().maybeRandomizeDeck(did);
  EXPECT_EQ(positions(), shuffled);
  sched().resortConf(group(gid));
  EXPECT_EQ(positions(), ordered);
  group(gid)["new"]["order"] = 0;
  sched().maybeRandomizeDeck(did);
  EXPECT_NE(positions(), ordered);

  // Restoring defaults re-sorts only a group that had no order of its own.
  sched().randomizeCards(did);
  shuffled = positions();
  col->decks().restoreToDefault(group(gid));
  EXPECT_EQ(positions(), shuffled);
  group(gid)["new"].erase("order");
  col->decks().restoreToDefault(group(gid));
  EXPECT_EQ(positions(), ordered);
  EXPECT_EQ(row(elsewhere).due, 100);
}

}  // namespace
}  // namespace rivo
