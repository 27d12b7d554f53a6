// Custom study without its screen: the searches its choices make, raising today's limits, and
// the session deck it builds and replaces.
#include "app/CustomStudy.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Scheduler.h"
#include "tests/librivo/SchedFixture.h"

namespace rivo::test {
namespace {

using Mode = CustomStudyMode;

class CustomStudyTest : public SchedTest {
 protected:
  void SetUp() override {
    SchedTest::SetUp();
    x = col->decks().getID("x");
    col->decks().select(x);
    // As the deck list does: the new deck's daily counters start on today.
    col->reset();
  }

  Id tagged(const std::string& tags, Id did) {
    const Id cid = insertCard(insertNote("f\037b", kBasicId, tags), 0);
    col->db()->run("update cards set did = ? where id = ?", {did, cid});
    return cid;
  }
  Id sessionDeck() { return col->decks().getID(CustomStudy::kSessionDeck, false); }

  Id x = 0;
};

TEST_F(CustomStudyTest, EachModeMakesItsSearch) {
  CustomStudy cs(*col);
  cs.setMode(Mode::kAhead);
  ASSERT_TRUE(cs.setRowValue(100));
  EXPECT_FALSE(cs.setRowValue(10000)) << "above the row's greatest value";
  EXPECT_FALSE(cs.setRowValue(0));
  EXPECT_EQ(cs.searchString(), "deck:\"x\" prop:due<=100");
  // Switching to a mode with a smaller greatest value brings the days down.
  cs.setMode(Mode::kForgotten);
  EXPECT_EQ(cs.dayLimit(), 31);
  EXPECT_EQ(cs.rowLabel(cs.mode()), "Days to look back");
  cs.setRowValue(3);
  EXPECT_EQ(cs.searchString(), "deck:\"x\" rated:3:1");
  cs.setMode(Mode::kPreviewNew);
  EXPECT_EQ(cs.searchString(), "deck:\"x\" is:new added:3");
  cs.setMode(Mode::kNewLimit);
  EXPECT_EQ(cs.searchString(), "deck:\"x\" is:new");

  // No tags chosen: the deck's part and blanks, so every card of the deck.
  cs.setMode(Mode::kCramWithTags);
  EXPECT_EQ(cs.searchString(), "deck:\"x\"  ");
  cs.setIncludedTags({"b", "a"});
  cs.setExcludedTags({"c"});
  cs.setMode(Mode::kDueWithTags);
  EXPECT_EQ(cs.searchString(), "deck:\"x\" is:due (tag:\"a\" or tag:\"b\") -tag:\"c\"");

  // The tags live in the deck, where the next dialog finds them.
  EXPECT_EQ(deck(x)["activeTags"], Json::array({"a", "b"}));
  CustomStudy again(*col);
  again.setMode(Mode::kNewWithTags);
  EXPECT_EQ(again.searchString(), "deck:\"x\" is:new (tag:\"a\" or tag:\"b\") -tag:\"c\"");
}

TEST_F(CustomStudyTest, TagRowsAndEstimates) {
  EXPECT_EQ(CustomStudy(*col).tagRowText(true), "no tags available");
  tagged(" verbs travel ", x);
  tagged(" travel ", x);
  tagged(" elsewhere ", 1);
  CustomStudy cs(*col);
  EXPECT_EQ(cs.allValidTags(), (std::vector<std::string>{"travel", "verbs"}));
  EXPECT_EQ(cs.tagRowText(true), "any");
  EXPECT_EQ(cs.tagRowText(false), "none");
  cs.setIncludedTags({"verbs", "travel"});
  EXPECT_EQ(cs.tagRowText(true), "travel, verbs");

  EXPECT_EQ(cs.updateEstimateForSearch(), "2 new card(s) available.");
  cs.setMode(Mode::kRevLimit);
  EXPECT_EQ(cs.updateEstimateForSearch(), "0 review(s) available.");
  cs.setMode(Mode::kNewWithTags);
  cs.setIncludedTags({"verbs"});
  EXPECT_EQ(cs.updateEstimateForSearch(), "Search matches 1 card(s).");

  // The count stops at a thousand.
  col->db()->run("update cards set did = ?", {x});
  for (int i = 0; i < 1000; ++i) addNew(x, i);
  cs.setMode(Mode::kNewLimit);
  EXPECT_EQ(cs.updateEstimateForSearch(), "1000+ new card(s) available.");
}

TEST_F(CustomStudyTest, RaisingLimitsNeedsCardsAndUsesTheDecksLastAmount) {
  CustomStudy cs(*col);
  CustomStudy::Outcome out = cs.accept();
  EXPECT_FALSE(out.done);
  EXPECT_EQ(out.message, "Can't extend limits - no extra cards are available.");
  EXPECT_EQ(counter(x, "newToday"), (std::pair<int64_t, int64_t>{kToday, 0}));

  addNew(x, 1);
  ASSERT_TRUE(cs.setRowValue(15));
  EXPECT_EQ(jsonInt(deck(x)["extendNew"]), 15) << "saved with the deck at each change";
  out = cs.accept();
  EXPECT_TRUE(out.done);
  EXPECT_EQ(counter(x, "newToday"), (std::pair<int64_t, int64_t>{kToday, -15}));
  EXPECT_EQ(counter(x, "revToday"), (std::pair<int64_t, int64_t>{kToday, 0}));

  // A value that isn't a whole number counts as 10.
  addReview(kToday, x);
  deck(x)["extendRev"] = "lots";
  cs.setMode(Mode::kRevLimit);
  EXPECT_TRUE(cs.accept().done);
  EXPECT_EQ(counter(x, "revToday"), (std::pair<int64_t, int64_t>{kToday, -10}));
  EXPECT_EQ(col->decks().selected(), x);
}

TEST_F(CustomStudyTest, ASessionDeckIsBuiltThenReplacedByTheNext) {
  const Id soon = addReview(kToday + 3, x);
  const Id late = addReview(kToday + 20, x);
  const Id fresh = addNew(x, 9);
  CustomStudy cs(*col);
  cs.setMode(Mode::kAhead);
  cs.setRowValue(7);
  CustomStudy::Outcome out = cs.accept();
  ASSERT_TRUE(out.done) << out.message;
  EXPECT_EQ(out.message.rfind("Cards will be returned to their original deck", 0), 0u);
  const Id session = sessionDeck();
  ASSERT_NE(session, 0);
  EXPECT_EQ(col->decks().selected(), session);
  EXPECT_EQ(deck(session)["terms"][0], Json::array({"deck:\"x\" prop:due<=7", 99999, 6}));
  EXPECT_TRUE(deck(session)["delays"].is_null());
  EXPECT_EQ(deck(session)["resched"], true);
  EXPECT_EQ(didOf(soon), session);
  EXPECT_EQ(didOf(late), x);

  // Forgotten cards: the next session empties the deck first and fills it again. The dialog
  // opens on the session deck here, so it asks for the home deck's cards by name.
  col->db()->run("insert into revlog values (?, ?, -1, 1, 1, 10, 2500, 4000, 1)",
                 {(kNow - 3600) * 1000, fresh});
  col->decks().select(x);
  CustomStudy next(*col);
  next.setMode(Mode::kForgotten);
  next.setRowValue(2);
  ASSERT_TRUE(next.accept().done);
  EXPECT_EQ(row(soon).due, kToday + 3) << "home again with its due";
  EXPECT_EQ(didOf(soon), x);
  EXPECT_EQ(didOf(fresh), session);
  EXPECT_EQ(deck(session)["resched"], false);

  // Nothing matching: the deck stays, empty and selected.
  col->decks().select(x);
  CustomStudy empty(*col);
  empty.setMode(Mode::kNewWithTags);
  empty.setIncludedTags({"nothing-has-this"});
  out = empty.accept();
  EXPECT_FALSE(out.done);
  EXPECT_EQ(out.message, "The selected options did not match any cards.");
  EXPECT_EQ(sqlInt("select count() from cards where did = ?", {session}), 0);
  EXPECT_EQ(col->decks().selected(), session);
}

TEST_F(CustomStudyTest, ANormalDeckWithTheSessionNameIsRefused) {
  addNew(x, 1);
  const Id taken = col->decks().getID(CustomStudy::kSessionDeck);
  col->decks().select(x);
  CustomStudy cs(*col);
  cs.setMode(Mode::kCramWithTags);
  const CustomStudy::Outcome out = cs.accept();
  EXPECT_FALSE(out.done);
  EXPECT_EQ(out.message, "An existing deck named 'Custom Study Session' exists.");
  EXPECT_FALSE(col->decks().isDyn(taken));
  EXPECT_EQ(col->decks().selected(), x);
}

}  // namespace
}  // namespace rivo::test
