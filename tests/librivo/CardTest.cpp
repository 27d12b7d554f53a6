#include "librivo/Card.h"

#include <gtest/gtest.h>

#include "librivo/DeckManager.h"
#include "librivo/Note.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

using test::kBasicId;
using test::kClozeId;

class CardTest : public test::CollectionTest {
 protected:
  std::string row(Id cid) { return rowText("select * from cards where id = ?", {cid}); }
};

TEST_F(CardTest, LoadAndFlushCarryEveryColumnThroughTheFile) {
  // Every value differs, so a column read or written in another's place shows.
  col->db()->run(
      "insert into cards values (500, 77, 1500000000000, 3, 5, 7, 2, 3, 20500, 12, 2350, 9, 2, "
      "1002, 19000, 1400000000000, 4, 'kept')");
  clock.advance(30);
  Card(*col, 500).flush();
  reopen();
  EXPECT_EQ(row(500),
            "500|77|1500000000000|3|1773144030|-1|2|3|20500|12|2350|9|2|1002|19000|1400000000000|4|"
            "kept");
  EXPECT_NE(debugLog().find("flush <Card id:500 nid:77 did:1500000000000 ord:3 mod:1773144030 "
                            "type:2 queue:3 due:20500 ivl:12 factor:2350 reps:9 lapses:2 "
                            "left:1002 odue:19000 odid:1400000000000>"),
            std::string::npos);

  // The scheduling flush leaves the note link, ordinal, flags and data alone.
  Card card(*col, 500);
  card.nid = 999;
  card.ord = 5;
  card.flags = 7;
  card.data = "changed";
  card.queue = card.type = 1;
  card.due = 1773144600;
  card.did = 5;
  clock.advance(30);
  card.flushSched();
  EXPECT_EQ(row(500),
            "500|77|5|3|1773144060|-1|1|1|1773144600|12|2350|9|2|1002|19000|1400000000000|4|kept");
}

TEST_F(CardTest, NoteIsCachedUntilReloadAndSharedWithCopies) {
  Card card(*col, insertCard(insertNote("front\037back"), 0));
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
  EXPECT_EQ(missing.template_(), nullptr);
  EXPECT_TRUE(missing.isEmpty());
}

TEST_F(CardTest, ACardIsEmptyWhenItsTemplateWouldShowNothing) {
  struct Case {
    const char* flds;
    Id mid;
    int ord;
    bool empty;
  };
  const Case cases[] = {
      {"front\037", kBasicId, 0, false},
      {"front\037", kBasicId, 1, true},
      {"front\037 ", kBasicId, 1, false},    // only the exact empty string is missing
      {"front\037back", kBasicId, 4, true},  // no template for the ordinal
      {"{{c1::a}} {{c3::b}} {{c0::z}}\037{{c2::in extra}}", kClozeId, 0, false},
      {"{{c1::a}} {{c3::b}} {{c0::z}}\037{{c2::in extra}}", kClozeId, 1, true},
      {"{{c1::a}} {{c3::b}} {{c0::z}}\037{{c2::in extra}}", kClozeId, 2, false},
  };
  for (const Case& c : cases) {
    Card card(*col, insertCard(insertNote(c.flds, c.mid), c.ord));
    EXPECT_EQ(card.isEmpty(), c.empty) << c.flds << " ord " << c.ord;
  }
  // A cloze type has one template for every ordinal.
  Card third(*col, insertCard(insertNote("{{c3::x}}", kClozeId), 2));
  EXPECT_EQ((*third.template_())["name"], "Cloze");
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
