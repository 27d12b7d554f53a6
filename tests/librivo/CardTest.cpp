#include "librivo/Card.h"

#include <gtest/gtest.h>

#include "librivo/DeckManager.h"
#include "librivo/Note.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

using test::kClozeId;

class CardTest : public test::CollectionTest {};

TEST_F(CardTest, FlushWritesEveryColumnAndLoadReadsThemBackFromTheFile) {
  Card card(*col);
  EXPECT_EQ(card.crt, 1773144000);
  card.nid = 77;
  card.did = 1500000000000;
  card.ord = 3;
  card.type = 2;
  card.queue = 3;
  card.due = 20500;
  card.ivl = 12;
  card.factor = 2350;
  card.reps = 9;
  card.lapses = 2;
  card.left = 1002;
  card.odue = 19000;
  card.odid = 1400000000000;
  card.flags = 4;
  card.data = "kept";
  card.flush();
  reopen();

  Card loaded(*col, card.id);
  EXPECT_EQ(loaded.description(), card.description());  // every scheduling column
  EXPECT_EQ(loaded.mod, 1773144000);
  EXPECT_EQ(loaded.usn, -1);  // a client between syncs
  EXPECT_EQ(loaded.flags, 4);
  EXPECT_EQ(loaded.data, "kept");
  EXPECT_NE(debugLog().find("flush <Card id:" + std::to_string(card.id) + " nid:77 "),
            std::string::npos);
}

TEST_F(CardTest, FlushSchedLeavesFlagsDataAndTheNoteLinkAlone) {
  const Id cid = insertCard(insertNote("a"), 0);
  col->db()->run("update cards set flags = 2, data = 'd' where id = ?", {cid});
  Card card(*col, cid);
  clock.advance(30);
  card.nid = 999;
  card.ord = 5;
  card.flags = 7;
  card.data = "changed";
  card.queue = card.type = 1;
  card.due = 1773144600;
  card.left = 2002;
  card.odid = 4;
  card.did = 5;
  card.flushSched();
  auto row = col->db()->first(
      "select nid, ord, flags, data, mod, usn, type, queue, due, left, odid, did from cards");
  const Row expected = {int64_t{1000},       int64_t{0},    int64_t{2}, std::string("d"),
                        int64_t{1773144030}, int64_t{-1},   int64_t{1}, int64_t{1},
                        int64_t{1773144600}, int64_t{2002}, int64_t{4}, int64_t{5}};
  EXPECT_EQ(*row, expected);
  EXPECT_NE(debugLog().find("flushSched <Card id:"), std::string::npos);
}

TEST_F(CardTest, NoteIsCachedUntilReloadAndSharedWithCopies) {
  Card card(*col, insertCard(insertNote("front\x1f"
                                        "back"),
                             0));
  auto first = card.note();
  EXPECT_EQ(card.note(), first);
  Card copy = card.copy();
  first->fields[0] = "edited in memory";
  EXPECT_EQ(copy.note()->fields[0], "edited in memory");
  EXPECT_EQ(card.noteAndReload(true)->fields[0], "front");
  EXPECT_NE(card.note(), first);

  // A card whose row or note is gone still answers.
  Card missing(*col, 424242);
  ASSERT_TRUE(missing.note());
  EXPECT_EQ(missing.model(), nullptr);
  EXPECT_EQ(missing.template_(), nullptr);
  EXPECT_TRUE(missing.isEmpty());
}

TEST_F(CardTest, StandardCardsNeedTheirFieldsAndATemplate) {
  const Id nid = insertNote("front\x1f");
  Card front(*col, insertCard(nid, 0));
  Card back(*col, insertCard(nid, 1));
  Card beyond(*col, insertCard(nid, 4));
  EXPECT_EQ((*back.template_())["name"], "Card 2");
  EXPECT_EQ(beyond.template_(), nullptr);
  EXPECT_FALSE(front.isEmpty());
  EXPECT_TRUE(back.isEmpty());
  EXPECT_TRUE(beyond.isEmpty());
  EXPECT_EQ(back.emptyMessage(),
            "The front of this card is blank. (<a "
            "href='https://rivo.kelpo.net/kb/card-appearance/the-front-of-this-card-is-blank'>"
            "help</a>)");
  back.note()->fields[1] = " ";  // only the exact empty string is missing
  EXPECT_FALSE(back.isEmpty());
}

TEST_F(CardTest, ClozeCardsNeedTheirNumberInAFieldTheTemplateNames) {
  const Id nid = insertNote("{{c1::a}} {{c3::b}} {{c0::z}}\x1f{{c2::in extra}}", kClozeId);
  Card first(*col, insertCard(nid, 0));
  Card second(*col, insertCard(nid, 1));
  Card third(*col, insertCard(nid, 2));
  EXPECT_EQ((*third.template_())["name"], "Cloze");  // one template for every ordinal
  EXPECT_FALSE(first.isEmpty());
  EXPECT_TRUE(second.isEmpty());
  EXPECT_FALSE(third.isEmpty());
  EXPECT_EQ(second.emptyMessage().substr(0, 30), "Missing {{c2::...}} on cloze. ");
  EXPECT_NE(second.emptyMessage().find("https://rivo.kelpo.net/kb/problems/unexpected-empty-"),
            std::string::npos);
}

TEST_F(CardTest, TimerLimitComesFromTheHomeDecksGroup) {
  Json group = DeckManager::getDefaultConf();
  group["maxTaken"] = 30;
  group["timer"] = 1;
  col->decks().deckConf()["2"] = group;
  Json home = DeckManager::getDefaultDeck();
  home["conf"] = "2";  // as text, as files from elsewhere may hold it
  col->decks().decks()["1500000000001"] = home;
  col->decks().decks()["1500000000002"] = DeckManager::getDefaultDynamicDeck();

  Card card(*col);
  EXPECT_EQ(card.timeLimit(), 60000);  // the default group of deck 1
  EXPECT_FALSE(card.shouldShowTimer());
  EXPECT_EQ(card.timeTaken(), 60000);  // never started: the difference is huge
  card.startTimer();
  clock.advance(5.25);
  EXPECT_EQ(card.timeTaken(), 5250);
  clock.advance(600);
  EXPECT_EQ(card.timeTaken(), 60000);

  card.did = 1500000000002;  // filtered, from its home deck
  card.odid = 1500000000001;
  EXPECT_EQ(card.timeLimit(), 30000);
  EXPECT_TRUE(card.shouldShowTimer());
  card.did = 42;  // a deck that is gone has the default group
  card.odid = 0;
  EXPECT_EQ(card.timeLimit(), 60000);
}

}  // namespace
}  // namespace rivo
