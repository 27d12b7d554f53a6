#include "librivo/DeckManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Scheduler.h"
#include "librivo/Storage.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

class DeckManagerTest : public ::testing::Test {
 protected:
  void SetUp() override { open(); }
  void open() {
    col = Storage::open(dir.file("collection.rivo2"), true, false, true, dir.path());
    ASSERT_TRUE(col);
  }
  void reopen() {
    col->close();
    open();
  }
  DeckManager& dm() { return col->decks(); }

  // Saves, then reads a blob back from the col row: what another reader of the file would see.
  Json fileBlob(const std::string& column) {
    col->save();
    return decodeJson(toText(*col->db()->scalar("select " + column + " from col")));
  }
  // Name to deck, as written in the file.
  std::map<std::string, Json> fileDecks() {
    std::map<std::string, Json> out;
    Json decks = fileBlob("decks");
    for (auto& [key, deck] : decks.items()) out[deck["name"]] = deck;
    return out;
  }
  std::vector<std::string> fileNames() {
    std::vector<std::string> out;
    for (auto& [name, deck] : fileDecks()) out.push_back(name);
    return out;
  }
  Json& deck(Id did) { return *dm().getDeck(did, false); }

  // A note with one card in `did`, written with plain SQL; returns the card id.
  Id addCard(Id did) {
    Id id = nextId++;
    col->db()->run("insert into notes values (?, 'g', 1, 0, -1, '', 'f', 'f', 0, 0, '')", {id});
    col->db()->run(
        "insert into cards values (?, ?, ?, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '')",
        {id, id, did});
    return id;
  }
  // Ids of what was removed, and whether each was a deck.
  std::vector<std::pair<Id, bool>> graves() {
    std::vector<std::pair<Id, bool>> out;
    for (auto& row : col->db()->all("select oid, type = 2 from graves order by rowid"))
      out.emplace_back(toInt(row[0]), toInt(row[1]));
    return out;
  }
  int64_t cardDid(Id cid) {
    return col->db()->scalarInt("select did from cards where id = ?", {cid});
  }

  test::TempDir dir;
  std::unique_ptr<Col> col;
  Id nextId = 1000;
};

using Names = std::vector<std::string>;

TEST_F(DeckManagerTest, NewCollectionKeepsStringValuesThatReadersConvert) {
  Json raw = fileBlob("decks")["1"];
  EXPECT_EQ(raw["conf"], "1");
  EXPECT_TRUE(raw["mod"].is_string());
  EXPECT_EQ(dm().getID("DEFAULT"), 1);
  Json* group = dm().confForDid("1");
  ASSERT_NE(group, nullptr);
  EXPECT_EQ(dm().didsForConf(*group), std::vector<Id>{1});

  // A flush repairs the type of `id` and only that.
  dm().save();
  Json flushed = fileBlob("decks")["1"];
  EXPECT_EQ(flushed["id"], 1);
  EXPECT_EQ(flushed["conf"], "1");
  EXPECT_EQ(flushed["mod"], raw["mod"]);
}

TEST_F(DeckManagerTest, GetIdCreatesMissingParentsTopDownInExistingSpelling) {
  Id c = dm().getID("a::b::c");
  Id a = dm().getID("a", false), b = dm().getID("a::b", false);
  EXPECT_TRUE(0 < a && a < b && b < c);
  dm().getID("Lang");
  dm().getID("lang::x::y");
  EXPECT_EQ(dm().getID("nope", false), 0);
  EXPECT_EQ(fileNames(),
            (Names{"Default", "Lang", "Lang::x", "Lang::x::y", "a", "a::b", "a::b::c"}));

  reopen();
  EXPECT_EQ(dm().getID("A::B::C", false), c);
  EXPECT_EQ(deck(c)["id"], c);
  EXPECT_EQ(deck(c)["conf"], 1);
  EXPECT_EQ(deck(c)["usn"], -1);
}

TEST_F(DeckManagerTest, NamesAreCleanedAndEmptyNamesNeverWritten) {
  Id verbs = dm().getID(" Spanish :: Verbs ");
  EXPECT_EQ(dm().getID("spanish::::verbs\t"), verbs);
  EXPECT_EQ(dm().getID("::Spanish::"), dm().getID("Spanish", false));
  for (const char* bad : {"", "::", " :: :: ", "\t"}) EXPECT_EQ(dm().getID(bad), 0) << bad;
  EXPECT_EQ(fileNames(), (Names{"Default", "Spanish", "Spanish::Verbs"}));

  // A name from elsewhere that isn't clean is still found as it stands.
  Json odd = DeckManager::getDefaultDeck();
  odd["id"] = 77;
  odd["name"] = " odd ";
  dm().update(odd);
  EXPECT_EQ(dm().getID(" odd "), 77);

  for (const char* bad : {"", "::", " :: "})
    EXPECT_THROW(dm().rename(deck(verbs), bad), DeckNameError) << bad;
  EXPECT_EQ(fileDecks().count("Spanish::Verbs"), 1u);
}

TEST_F(DeckManagerTest, RenameCarriesDescendantsAndSavesEveryPrefixMatch) {
  Id a = dm().getID("a");
  Id ab = dm().getID("a::b");
  Id aba = dm().getID("a::b::a");
  dm().getID("ab");
  dm().beforeUpload();
  col->save();

  dm().rename(deck(a), "x");
  auto decks = fileDecks();
  EXPECT_EQ(fileNames(), (Names{"Default", "ab", "x", "x::b", "x::b::a"}));
  for (const char* name : {"x", "x::b", "x::b::a", "ab"}) EXPECT_EQ(decks[name]["usn"], -1) << name;
  EXPECT_EQ(decks["Default"]["usn"], 0);

  // The name index keeps the descendants' old names until the next load.
  EXPECT_EQ(dm().getID("a::b", false), ab);
  reopen();
  EXPECT_EQ(dm().getID("a::b", false), 0);
  EXPECT_EQ(dm().getID("x::b::a", false), aba);

  // Into a new parent and out again.
  dm().rename(deck(ab), "p::b");
  EXPECT_EQ(fileNames(), (Names{"Default", "ab", "p", "p::b", "p::b::a", "x"}));
  reopen();
  dm().rename(deck(ab), "B");
  EXPECT_EQ(fileNames(), (Names{"B", "B::a", "Default", "ab", "p", "x"}));
}

TEST_F(DeckManagerTest, RenameRefusesTakenAndCircularNamesWithoutWriting) {
  Id a = dm().getID("a");
  dm().getID("a::b");
  dm().getID("c");
  try {
    dm().rename(deck(a), "c");
    FAIL();
  } catch (const DeckNameError& e) {
    EXPECT_EQ(e.name(), "Cannot rename deck");
    EXPECT_STREQ(e.what(), "New deck name conflicts with existing name");
  }
  EXPECT_THROW(dm().rename(deck(a), "a"), DeckNameError);
  EXPECT_THROW(dm().rename(deck(a), " c "), DeckNameError);
  EXPECT_THROW(dm().rename(deck(a), "A::z"), DeckNameError);
  EXPECT_EQ(fileNames(), (Names{"Default", "a", "a::b", "c"}));
}

TEST_F(DeckManagerTest, RenamingABlankNameTouchesOnlyThatDeckAndItsChildren) {
  for (auto [id, name] : {std::pair<Id, const char*>{100, ""}, {101, "::x"}, {102, "y"}}) {
    Json d = DeckManager::getDefaultDeck();
    d["id"] = id;
    d["name"] = name;
    d["usn"] = 7;
    dm().update(d);
  }
  dm().rename(deck(100), "(blank)");
  auto decks = fileDecks();
  EXPECT_EQ(fileNames(), (Names{"(blank)", "(blank)::x", "Default", "y"}));
  EXPECT_EQ(decks["y"]["usn"], 7);
  EXPECT_EQ(decks["(blank)::x"]["usn"], -1);
}

TEST_F(DeckManagerTest, RemovingAParentWithCardsRemovesTheTreeAndLeavesGraves) {
  Id p = dm().getID("p");
  Id c = dm().getID("p::c");
  Id d = dm().getID("p::c::d");
  std::vector<Id> cards{addCard(p), addCard(c), addCard(d)};
  Id kept = addCard(1);

  dm().removeDeck(p, true);
  EXPECT_EQ(fileNames(), Names{"Default"});
  EXPECT_EQ(toInt(*col->db()->scalar("select group_concat(id) from cards")), kept);
  std::vector<Id> deckGraves;
  for (auto [id, isDeck] : graves())
    if (isDeck) deckGraves.push_back(id);
  EXPECT_EQ(deckGraves, (std::vector<Id>{p, d, c}));
  EXPECT_EQ(graves().size(), 9u);  // and each card and its note
}

TEST_F(DeckManagerTest, RemovingWithoutCardsLeavesOrphansUntilRecovered) {
  Id p = dm().getID("p");
  Id c = dm().getID("p::c");
  Id x = dm().getID("x");
  Id y = dm().getID("x::y");
  Id inP = addCard(p), inC = addCard(c);

  dm().removeDeck(p);
  dm().removeDeck(x, false, false);
  EXPECT_EQ(fileNames(), (Names{"Default", "x::y"}));
  EXPECT_EQ(cardDid(inP), p);
  EXPECT_EQ(cardDid(inC), c);
  EXPECT_EQ(graves(), (std::vector<std::pair<Id, bool>>{{p, true}, {c, true}, {x, true}}));

  ASSERT_FALSE(col->db()->mod);
  dm().recoverOrphans();
  EXPECT_FALSE(col->db()->mod);
  EXPECT_EQ(cardDid(inP), 1);
  EXPECT_EQ(cardDid(inC), 1);
  EXPECT_EQ(dm().getID("x::y", false), y);
}

TEST_F(DeckManagerTest, TheDefaultDeckStaysAndUnknownIdsOnlyLeaveAGrave) {
  dm().rename(deck(1), "top::Default");
  dm().removeDeck(1, true);
  dm().removeDeck("1");
  dm().removeDeck(424242);
  EXPECT_EQ(fileNames(), (Names{"Default", "top"}));
  EXPECT_EQ(graves(), (std::vector<std::pair<Id, bool>>{{424242, true}}));

  dm().rename(deck(1), "Main");
  reopen();
  EXPECT_EQ(dm().name(1), "Main");
  EXPECT_EQ(dm().name(424242), "Main");
}

TEST_F(DeckManagerTest, SelectionWritesStringsAndReadsBothForms) {
  Id p = dm().getID("p");
  Id pb = dm().getID("p::b");
  Id pa = dm().getID("p::a");
  dm().select(p);
  Json conf = fileBlob("conf");
  EXPECT_EQ(conf["curDeck"], std::to_string(p));
  EXPECT_EQ(conf["activeDecks"],
            Json::array({std::to_string(p), std::to_string(pa), std::to_string(pb)}));

  // A new child of the selected deck joins the active list.
  Id pc = dm().getID("p::c");
  EXPECT_EQ(dm().active(), (std::vector<Id>{p, pa, pb, pc}));

  col->conf()["curDeck"] = pa;
  col->conf()["activeDecks"] = Json::array({pa, std::to_string(pb)});
  EXPECT_EQ(dm().selected(), pa);
  EXPECT_EQ(dm().active(), (std::vector<Id>{pa, pb}));
  EXPECT_EQ(dm().current(), &deck(pa));

  // Removing an active deck selects the first key, which is deck 1.
  dm().removeDeck(pb);
  conf = fileBlob("conf");
  EXPECT_EQ(conf["curDeck"], "1");
  EXPECT_EQ(conf["activeDecks"], Json::array({"1"}));
}

TEST_F(DeckManagerTest, IdsOfRemovedDecksAreAnsweredWithoutCrashing) {
  Id a = dm().getID("a");
  Id ab = dm().getID("a::b");
  dm().select(ab);
  dm().rename(deck(a), "x");
  dm().removeDeck(ab);
  // The stale index entry "a::b" points at a deck that is gone: no answer.
  EXPECT_EQ(dm().getID("a::b", false), 0);

  col->conf()["curDeck"] = ab;
  EXPECT_EQ(dm().current(), nullptr);
  dm().maybeAddToActive();
  EXPECT_EQ(dm().getDeck(ab), dm().getDeck(1));
  EXPECT_EQ(dm().getDeck(ab, false), nullptr);
  EXPECT_FALSE(dm().isDyn(ab));
  EXPECT_TRUE(dm().children(ab).empty());
  EXPECT_TRUE(dm().parents(ab).empty());
  EXPECT_TRUE(dm().cardIDs(ab, true).empty());
  EXPECT_EQ(dm().confForDid(ab), dm().getConf(1));
  EXPECT_EQ(dm().getDeck(Json()), dm().getDeck(1));
  EXPECT_EQ(dm().getDeck(Json(), false), nullptr);
}

TEST_F(DeckManagerTest, ParentsRecreateAMissingLevel) {
  Id c = dm().getID("a::b::c");
  Id oldB = dm().getID("a::b", false);
  dm().removeDeck(oldB, false, false);
  auto parents = dm().parents(c);
  ASSERT_EQ(parents.size(), 2u);
  EXPECT_EQ((*parents[0])["name"], "a");
  EXPECT_EQ((*parents[1])["name"], "a::b");
  EXPECT_EQ(fileNames(), (Names{"Default", "a", "a::b", "a::b::c"}));
}

TEST_F(DeckManagerTest, OptionGroupsCloneAssignRemoveAndRestore) {
  Id d = dm().getID("d");
  Id fast = dm().confIdForName("Fast", dm().getConf(1));
  Json& group = *dm().getConf(fast);
  group["new"]["perDay"] = 5;
  EXPECT_EQ((*dm().getConf(1))["new"]["perDay"], 20);
  dm().setConf(deck(d), fast);
  EXPECT_EQ(dm().didsForConf(group), std::vector<Id>{d});
  EXPECT_EQ(dm().confForDid(d), &group);
  // The read-only lookup writes nothing; a deck gone has none, where confForDid reads deck 1.
  group.erase("dyn");
  EXPECT_EQ(dm().homeConf(d), &group);
  EXPECT_FALSE(group.contains("dyn"));
  EXPECT_EQ(dm().homeConf(Json(12345)), nullptr);
  EXPECT_EQ(dm().confForDid(Json(12345)), dm().getConf(1));

  dm().restoreToDefault(group);
  Json stored = fileBlob("dconf")[std::to_string(fast)];
  EXPECT_EQ(stored["name"], "Fast");
  EXPECT_EQ(stored["id"], fast);
  EXPECT_EQ(stored["new"]["perDay"], 20);
  EXPECT_EQ(stored["usn"], -1);

  int64_t scm = col->db()->scalarInt("select scm from col");
  EXPECT_THROW(dm().remConf(1), std::logic_error);
  dm().remConf(std::to_string(fast));
  EXPECT_EQ(fileBlob("dconf").size(), 1u);
  EXPECT_GT(col->db()->scalarInt("select scm from col"), scm);
  EXPECT_EQ(fileDecks()["d"]["conf"], 1);
}

TEST_F(DeckManagerTest, FilteredDeckOptionsAndTheTwoCollapseKeys) {
  Id f = dm().newDyn("Filtered Deck 1");
  EXPECT_EQ(dm().selected(), f);
  EXPECT_TRUE(dm().isDyn(f));
  EXPECT_EQ(dm().confForDid(f), &deck(f));
  EXPECT_FALSE(deck(f).contains("conf"));
  EXPECT_EQ(dm().allNames(false), Names{"Default"});
  EXPECT_EQ(dm().newDyn("::"), 0);
  EXPECT_EQ(dm().selected(), f);
  EXPECT_EQ(fileDecks()["Filtered Deck 1"]["terms"], Json::parse(R"([["", 100, 0]])"));

  // Collapsing reads one key and writes another.
  dm().collapse(1);
  dm().collapse(1);
  EXPECT_EQ(fileDecks()["Default"]["collapse"], 1);
  EXPECT_EQ(fileDecks()["Default"]["collapsed"], false);
}

TEST_F(DeckManagerTest, CardsMoveBetweenDecksAndListWithChildren) {
  Id p = dm().getID("p");
  Id c = dm().getID("p::c");
  Id one = addCard(1), two = addCard(c);
  dm().setDeckForCardIDs({one}, p);
  EXPECT_EQ(col->db()->scalarInt("select count() from cards where did = ? and usn = -1 and mod > ?",
                                 {p, int64_t{1000000000000}}),
            1);  // milliseconds here
  EXPECT_EQ(dm().cardIDs(p), std::vector<Id>{one});
  auto both = dm().cardIDs(p, true);
  std::sort(both.begin(), both.end());
  EXPECT_EQ(both, (std::vector<Id>{one, two}));
}

TEST_F(DeckManagerTest, UpdateKeepsStampsAndBeforeUploadClearsUsns) {
  Json d = DeckManager::getDefaultDeck();
  d["id"] = "77";
  d["name"] = "synced";
  d["conf"] = "1";
  d["mod"] = "5";
  d["usn"] = 3;
  dm().update(d);
  Json stored = fileDecks()["synced"];
  EXPECT_EQ(stored["id"], 77);
  EXPECT_EQ(stored["mod"], "5");
  EXPECT_EQ(stored["usn"], 3);
  EXPECT_EQ(dm().confForDid(77), dm().getConf(1));

  dm().beforeUpload();
  EXPECT_EQ(fileDecks()["synced"]["usn"], 0);
  EXPECT_EQ(fileDecks()["synced"]["mod"], "5");
  EXPECT_EQ(fileBlob("dconf")["1"]["usn"], 0);
}

TEST_F(DeckManagerTest, BlobsReadAtFirstUseAreRolledToTheDayOfTheOpenAndADamagedOneFailsIt) {
  Id did = dm().getID("old");
  deck(did)["newToday"] = Json::array({col->sched().today() - 1, 7});
  deck(did)["revToday"] = Json::array({col->sched().today(), 3});
  dm().save(&deck(did));
  col->save();
  reopen();
  EXPECT_EQ(deck(did)["newToday"], Json::array({col->sched().today(), 0}));
  EXPECT_EQ(deck(did)["revToday"], Json::array({col->sched().today(), 3}));
  EXPECT_FALSE(dm().changed());

  // A damaged blob opens (a search by note id needn't read it) but fails its first use and
  // the check, and nothing writes over it.
  col->db()->run("update col set decks = '{\"1\": {'");
  col->save();
  reopen();
  EXPECT_THROW(dm().all(), JsonError);
  EXPECT_THROW(col->fixIntegrity(), JsonError);
  col->save();
  EXPECT_EQ(toText(*col->db()->scalar("select decks from col")), "{\"1\": {");
}

}  // namespace
}  // namespace rivo
