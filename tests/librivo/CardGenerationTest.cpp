// Cards from notes: which templates apply, deck and due of new cards, bulk generation, preview
// and the field cache, on a new collection with the standard note types.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>

#include "librivo/Card.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"
#include "librivo/Storage.h"
#include "librivo/Utils.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

class CardGenerationTest : public ::testing::Test {
 protected:
  CardGenerationTest() : clock(1773144000) {}
  void SetUp() override {
    col = Storage::open(dir.file("collection.rivo2"), true, false, true, dir.path());
    ASSERT_TRUE(col);
  }
  Json& model(const std::string& name) { return *col->models().byName(name); }
  std::unique_ptr<Note> note(const std::string& type, const std::vector<std::string>& values) {
    auto n = std::make_unique<Note>(*col, model(type));
    n->fields = values;
    return n;
  }
  // Ords of the note's cards, in order.
  std::vector<int64_t> ords(Id nid) {
    std::vector<int64_t> out;
    for (const Value& v :
         col->db()->list("select ord from cards where nid = ? order by ord", {nid}))
      out.push_back(toInt(v));
    return out;
  }
  int64_t count(const std::string& sql, const Row& vars = {}) {
    return col->db()->scalarInt(sql, vars);
  }

  Clock::Override clock;
  test::TempDir dir;
  std::unique_ptr<Col> col;
};

TEST_F(CardGenerationTest, EachStandardTypeYieldsItsCards) {
  struct Case {
    const char* type;
    std::vector<std::string> fields;
    std::vector<int64_t> ords;
  };
  const Case cases[] = {
      {"Basic", {"front", "back"}, {0}},
      {"Basic", {" ", ""}, {0}},  // a blank counts as filled
      {"Basic (and reversed card)", {"front", "back"}, {0, 1}},
      {"Basic (and reversed card)", {"", "back"}, {1}},
      {"Basic (optional reversed card)", {"front", "back", ""}, {0}},
      {"Basic (optional reversed card)", {"front", "back", "y"}, {0, 1}},
      {"Basic (optional reversed card)", {"front", "", "y"}, {0}},
      {"Cloze", {"{{c1::a}} {{c3::b}} {{c0::z}}", ""}, {0, 2}},
      {"Cloze", {"{{c2::a}} {{c2::b::hint}}", "extra"}, {1}},
  };
  for (const Case& c : cases) {
    auto n = note(c.type, c.fields);
    EXPECT_EQ(col->addNote(*n), static_cast<int>(c.ords.size())) << c.type;
    EXPECT_EQ(ords(n->id), c.ords) << c.type << " " << joinFields(c.fields);
    clock.advance(1);
  }
}

TEST_F(CardGenerationTest, ANoteWithNoApplicableTemplateIsNotSaved) {
  for (auto fields :
       {std::vector<std::string>{"", "back"}, std::vector<std::string>{"{{c0::x}} no gap", ""}}) {
    auto n = note(fields[0].empty() ? "Basic" : "Cloze", fields);
    EXPECT_EQ(col->addNote(*n), 0);
  }
  EXPECT_EQ(count("select count() from notes"), 0);
  EXPECT_EQ(count("select count() from cards"), 0);
}

TEST_F(CardGenerationTest, AddedNoteCardsShareOneDuePositionAndTheModelDeck) {
  const Id deck = col->decks().getID("Languages");
  model("Cloze")["did"] = deck;
  const int64_t pos = jsonInt(col->conf()["nextPos"]);
  auto n = note("Cloze", {"{{c1::a}} {{c2::b}} {{c5::c}}", ""});
  ASSERT_EQ(col->addNote(*n), 3);
  EXPECT_EQ(count("select count(distinct due) from cards where nid = ?", {n->id}), 1);
  EXPECT_EQ(count("select due from cards where nid = ?", {n->id}), pos);
  EXPECT_EQ(count("select count() from cards where did = ?", {deck}), 3);
  EXPECT_EQ(jsonInt(col->conf()["nextPos"]), pos + 1);
  // Written as new cards of this collection.
  EXPECT_EQ(count("select count() from cards where type = 0 and queue = 0 and usn = -1"), 3);
}

TEST_F(CardGenerationTest, TemplateDeckOverrides) {
  Json& m = model("Basic (and reversed card)");
  const Id other = col->decks().getID("Other");
  clock.advance(1);  // deck ids wait for the clock
  const Id filtered = col->decks().newDyn("Filtered");
  auto cardDeck = [&](const Json& override, int ord) {
    m["tmpls"][1]["did"] = override;
    auto n = note("Basic (and reversed card)", {"f", "b"});
    col->addNote(*n);
    clock.advance(1);
    return count("select did from cards where nid = ? and ord = ?", {n->id, int64_t{ord}});
  };
  EXPECT_EQ(cardDeck(other, 1), other);
  EXPECT_EQ(cardDeck(other, 0), 1);
  EXPECT_EQ(cardDeck(filtered, 1), 1);  // never into a filtered deck
  EXPECT_EQ(cardDeck(999999, 1), 1);    // a missing deck is passed over
  m["did"] = filtered;
  EXPECT_EQ(cardDeck(nullptr, 0), 1);
}

TEST_F(CardGenerationTest, DueComesFromTheGeneratorOnlyWithoutAnOrderKey) {
  const Id did = col->decks().getID("Random");
  EXPECT_EQ(col->_dueForDid(did, 7), 7);
  Json* conf = col->decks().confForDid(Json(did));
  ASSERT_TRUE(conf);
  (*conf)["new"]["order"] = nullptr;  // only the key's presence counts
  EXPECT_EQ(col->_dueForDid(did, 7), 7);
  (*conf)["new"].erase("order");
  for (int64_t due : {7, 5000}) {
    srandom(static_cast<unsigned>(due));
    const int64_t expected = random() % std::max<int64_t>(due, 1000);
    EXPECT_EQ(col->_dueForDid(did, due), expected);
  }
}

TEST_F(CardGenerationTest, EditingANoteAddsCardsButNeverRemovesThem) {
  auto n = note("Basic (optional reversed card)", {"front", "back", ""});
  ASSERT_EQ(col->addNote(*n), 1);
  clock.advance(1);
  // Filling the optional field calls for the reverse card on save.
  n->fields[2] = "y";
  n->flush();
  EXPECT_EQ(ords(n->id), (std::vector<int64_t>{0, 1}));
  // Emptying the required fields keeps both cards; the card reports itself empty.
  clock.advance(1);
  n->fields = {"", "", ""};
  n->flush();
  EXPECT_EQ(ords(n->id), (std::vector<int64_t>{0, 1}));
  std::vector<Card> cards = n->cards();
  EXPECT_TRUE(cards[0].isEmpty());
  // Bulk generation on a covered note inserts nothing and reports the empty ones.
  std::vector<Id> empty = col->genCards({n->id});
  EXPECT_EQ(empty.size(), 2u);
  col->remEmptyCards(empty);
  EXPECT_EQ(count("select count() from cards"), 2);
}

TEST_F(CardGenerationTest, BulkGenerationFollowsTheNoteDeckAndNumbersEachCard) {
  // Rows written without cards, as an import might leave them, then generated together.
  Json& m = model("Basic (and reversed card)");
  const Id mid = jsonInt(m["id"]);
  const Id deck = col->decks().getID("Shared");
  std::vector<Id> nids;
  for (Id nid : {Id{100}, Id{101}, Id{102}}) {
    col->db()->run("insert into notes values (?, ?, ?, 0, 0, '', ?, '', 0, 0, '')",
                   {nid, "g" + std::to_string(nid), mid,
                    std::string("f\x1f"
                                "b")});
    nids.push_back(nid);
  }
  // Note 101 already has its first card in another deck; 102 has two cards in two decks.
  col->db()->run(
      "insert into cards values (500, 101, ?, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '')",
      {deck});
  col->db()->run(
      "insert into cards values (501, 102, ?, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '')",
      {deck});
  col->db()->run(
      "insert into cards values (502, 102, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '')");
  const int64_t pos = jsonInt(col->conf()["nextPos"]);
  EXPECT_TRUE(col->genCards(nids).empty());
  EXPECT_EQ(ords(100), (std::vector<int64_t>{0, 1}));
  EXPECT_EQ(ords(101), (std::vector<int64_t>{0, 1}));
  EXPECT_EQ(ords(102), (std::vector<int64_t>{0, 1}));
  EXPECT_EQ(count("select did from cards where nid = 101 and ord = 1"), deck);
  EXPECT_EQ(count("select count() from cards where nid = 100 and did = 1"), 2);
  // Three new cards, each with its own position, ids above every existing one.
  EXPECT_EQ(count("select count(distinct due) from cards where id > 502"), 3);
  EXPECT_EQ(count("select min(due) from cards where id > 502"), pos);
  EXPECT_EQ(jsonInt(col->conf()["nextPos"]), pos + 3);
  EXPECT_EQ(count("select count() from cards where id > 502 and mod = ? and usn = -1",
                  {static_cast<int64_t>(intTime(1))}),
            3);
  // Again: nothing to add.
  col->genCards(nids);
  EXPECT_EQ(count("select count() from cards"), 6);
}

TEST_F(CardGenerationTest, PreviewMakesUnsavedCards) {
  auto n = note("Basic (and reversed card)", {"front", ""});
  std::vector<Card> preview = col->previewCards(*n);
  ASSERT_EQ(preview.size(), 1u);
  EXPECT_EQ(preview[0].ord, 0);
  EXPECT_EQ(preview[0].note()->fields[0], "front");
  EXPECT_EQ(col->previewCards(*n, 2).size(), 2u);
  EXPECT_TRUE(col->previewCards(*n, 1).empty());
  EXPECT_EQ(count("select count() from cards"), 0);

  auto c = note("Cloze", {"{{c2::x}}", ""});
  preview = col->previewCards(*c);
  ASSERT_EQ(preview.size(), 1u);
  EXPECT_EQ(preview[0].ord, 1);
  EXPECT_EQ(count("select count() from notes"), 0);
}

TEST_F(CardGenerationTest, FieldCacheFollowsTheSortField) {
  Json& m = model("Basic");
  const Id mid = jsonInt(m["id"]);
  std::vector<Id> nids;
  // More than one batch.
  std::vector<Row> rows;
  for (Id i = 0; i < 2500; ++i) {
    rows.push_back({i + 1, "g" + std::to_string(i), mid,
                    std::string("<b>f") + std::to_string(i) +
                        "</b>\x1f"
                        "back"});
    nids.push_back(i + 1);
  }
  col->db()->executeMany("insert into notes values (?, ?, ?, 0, 0, '', ?, 'stale', 0, 0, '')",
                         rows);
  col->db()->run("insert into notes values (9999, 'x', 42, 0, 0, '', 'a', 'stale', 0, 0, '')");
  nids.push_back(9999);
  col->updateFieldCache(nids);
  EXPECT_EQ(count("select count() from notes where sfld = 'stale'"), 1);  // unknown type
  EXPECT_EQ(toText(*col->db()->scalar("select sfld from notes where id = 2500")), "f2499");
  EXPECT_EQ(count("select csum from notes where id = 7"), fieldChecksum("<b>f6</b>"));
  col->models().setSortIdx(m, 1);
  EXPECT_EQ(count("select count() from notes where sfld = 'back'"), 2500);
}

}  // namespace
}  // namespace rivo
