// Cards from notes: which templates apply, deck and due of new cards, bulk generation, preview
// and the field cache, with the standard note types.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include "librivo/Card.h"
#include "librivo/Checksum.h"
#include "librivo/DeckManager.h"
#include "librivo/FieldText.h"
#include "librivo/Note.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

class CardGenerationTest : public test::CollectionTest {
 protected:
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
};

TEST_F(CardGenerationTest, EachStandardTypeYieldsItsCardsAndANoteWithoutAnyIsNotSaved) {
  struct Case {
    const char* type;
    std::vector<std::string> fields;
    std::vector<int64_t> ords;
  };
  const Case cases[] = {
      {"Basic", {"front", "back"}, {0}},
      {"Basic", {" ", ""}, {0}},  // a blank counts as filled
      {"Basic", {"", "back"}, {}},
      {"Basic (and reversed card)", {"front", "back"}, {0, 1}},
      {"Basic (and reversed card)", {"", "back"}, {1}},
      {"Basic (optional reversed card)", {"front", "back", ""}, {0}},
      {"Basic (optional reversed card)", {"front", "back", "y"}, {0, 1}},
      {"Basic (optional reversed card)", {"front", "", "y"}, {0}},
      {"Cloze", {"{{c1::a}} {{c3::b}} {{c0::z}}", ""}, {0, 2}},
      {"Cloze", {"{{c2::a}} {{c2::b::hint}}", "extra"}, {1}},
      {"Cloze", {"{{c0::x}} no gap", ""}, {}},
  };
  for (const Case& c : cases) {
    auto n = note(c.type, c.fields);
    EXPECT_EQ(col->addNote(*n), static_cast<int>(c.ords.size())) << c.type;
    EXPECT_EQ(ords(n->id), c.ords) << c.type << " " << joinFields(c.fields);
    EXPECT_EQ(sqlInt("select count() from notes where id = ?", {n->id}), c.ords.empty() ? 0 : 1);
    clock.advance(1);
  }
}

TEST_F(CardGenerationTest, AddedNoteCardsShareOneDuePositionAndTheModelDeck) {
  const Id deck = col->decks().getID("Languages");
  model("Cloze")["did"] = deck;
  const int64_t pos = jsonInt(col->conf()["nextPos"]);
  auto n = note("Cloze", {"{{c1::a}} {{c2::b}} {{c5::c}}", ""});
  ASSERT_EQ(col->addNote(*n), 3);
  EXPECT_EQ(sqlInt("select count(distinct due) from cards where nid = ?", {n->id}), 1);
  EXPECT_EQ(sqlInt("select due from cards where nid = ?", {n->id}), pos);
  EXPECT_EQ(sqlInt("select count() from cards where did = ?", {deck}), 3);
  EXPECT_EQ(jsonInt(col->conf()["nextPos"]), pos + 1);
  // Written as new cards of this collection.
  EXPECT_EQ(sqlInt("select count() from cards where type = 0 and queue = 0 and usn = -1"), 3);
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
    return sqlInt("select did from cards where nid = ? and ord = ?", {n->id, int64_t{ord}});
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
  EXPECT_TRUE(n->cards()[0].isEmpty());
  // Bulk generation on a covered note inserts nothing and reports the empty ones, which stay.
  std::vector<Id> empty = col->genCards({n->id});
  EXPECT_EQ(empty.size(), 2u);
  col->remEmptyCards(empty);
  EXPECT_EQ(sqlInt("select count() from cards"), 2);
}

TEST_F(CardGenerationTest, BulkGenerationFollowsTheNoteDeckAndNumbersEachCard) {
  // Notes written without cards, as an import might leave them, then generated together.
  const Id mid = jsonInt(model("Basic (and reversed card)")["id"]);
  const Id deck = col->decks().getID("Shared");
  const std::vector<Id> nids{insertNote("f\037b", mid), insertNote("f\037b", mid),
                             insertNote("f\037b", mid)};
  // The second already has its first card in another deck; the third both cards, in two decks.
  const Id last = insertCard(nids[1], 0);
  insertCard(nids[2], 0);
  insertCard(nids[2], 1);
  col->db()->run("update cards set did = ? where id < ?", {deck, last + 2});
  const int64_t pos = jsonInt(col->conf()["nextPos"]);
  EXPECT_TRUE(col->genCards(nids).empty());
  for (Id nid : nids) EXPECT_EQ(ords(nid), (std::vector<int64_t>{0, 1}));
  EXPECT_EQ(sqlInt("select did from cards where nid = ? and ord = 1", {nids[1]}), deck);
  EXPECT_EQ(sqlInt("select count() from cards where nid = ? and did = 1", {nids[0]}), 2);
  // Three new cards, each with its own position, ids above every existing one.
  EXPECT_EQ(sqlInt("select count(distinct due) from cards where id > ?", {last + 2}), 3);
  EXPECT_EQ(sqlInt("select min(due) from cards where id > ?", {last + 2}), pos);
  EXPECT_EQ(jsonInt(col->conf()["nextPos"]), pos + 3);
  EXPECT_EQ(sqlInt("select count() from cards where id > ? and mod = ? and usn = -1",
                   {last + 2, static_cast<int64_t>(intTime(1))}),
            3);
  // Again: nothing to add.
  col->genCards(nids);
  EXPECT_EQ(sqlInt("select count() from cards"), 6);
}

TEST_F(CardGenerationTest, PreviewMakesUnsavedCards) {
  auto n = note("Basic (and reversed card)", {"front", ""});
  std::vector<Card> preview = col->previewCards(*n);
  ASSERT_EQ(preview.size(), 1u);
  EXPECT_EQ(preview[0].ord, 0);
  EXPECT_EQ(preview[0].note()->fields[0], "front");
  EXPECT_EQ(col->previewCards(*n, Col::kPreviewAll).size(), 2u);
  EXPECT_TRUE(col->previewCards(*n, Col::kPreviewExisting).empty());
  auto c = note("Cloze", {"{{c2::x}}", ""});
  preview = col->previewCards(*c);
  ASSERT_EQ(preview.size(), 1u);
  EXPECT_EQ(preview[0].ord, 1);
  EXPECT_EQ(sqlInt("select count() from notes") + sqlInt("select count() from cards"), 0);
}

TEST_F(CardGenerationTest, FieldCacheFollowsTheSortField) {
  Json& m = model("Basic");
  std::vector<Id> nids;
  for (int i = 1; i <= 2500; ++i)  // more than one batch
    nids.push_back(
        insertNote(std::string("<b>f") + std::to_string(i) + "</b>\037back", jsonInt(m["id"])));
  nids.push_back(insertNote("a", 42));  // a type that is gone
  col->db()->run("update notes set sfld = 'stale', csum = 0");
  col->updateFieldCache(nids);
  EXPECT_EQ(sqlInt("select count() from notes where sfld = 'stale'"), 1);
  EXPECT_EQ(rowText("select sfld from notes where id = ?", {nids[2499]}), "f2500");
  EXPECT_EQ(sqlInt("select csum from notes where id = ?", {nids[6]}), fieldChecksum("<b>f7</b>"));
  col->models().setSortIdx(m, 1);
  EXPECT_EQ(sqlInt("select count() from notes where sfld = 'back'"), 2500);
}

}  // namespace
}  // namespace rivo
