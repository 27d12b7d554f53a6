#include <gtest/gtest.h>

#include "librivo/TagManager.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

class CheckDatabase : public test::CollectionTest {
 protected:
  int64_t scmInFile() { return col->db()->scalarInt("select scm from col"); }
  int64_t count(const std::string& sql, const Row& vars = {}) {
    return col->db()->scalarInt(sql, vars);
  }
};

TEST_F(CheckDatabase, AHealthyCollectionIsOnlyOptimized) {
  Id nid = insertNote(
      "front\x1f"
      "back");
  insertCard(nid, 0);
  insertCard(nid, 1);
  reopen();
  int64_t scm = scmInFile();
  EXPECT_TRUE(col->basicCheck());
  clock.advance(10);
  EXPECT_EQ(col->fixIntegrity(), "");
  EXPECT_EQ(col->scm(), scm);
  EXPECT_EQ(scmInFile(), scm);
  EXPECT_EQ(count("select count() from sqlite_stat1 where tbl = 'cards'"), 3)
      << "analyze ran over the cards' indices";
  EXPECT_EQ(count("pragma freelist_count"), 0) << "vacuumed";
  EXPECT_EQ(count("select count() from cards"), 2);
}

TEST_F(CheckDatabase, EachKindOfDamageGetsOneLineInOrderAndForcesAFullSync) {
  Id good = insertNote(
      "ok\x1f"
      "ok");
  insertCard(good, 0);
  Id noCards = insertNote("lonely\x1f");
  Id unknownType = insertNote(
      "x\x1f"
      "y",
      42);
  insertCard(unknownType, 0);
  Id badGuid1 = insertNote("b1\x1f"), badGuid2 = insertNote("b2\x1f");
  insertCard(badGuid1, 0);
  insertCard(badGuid2, 0);
  col->db()->run("update notes set guid = 'b' where id in (?, ?)", {badGuid1, badGuid2});
  Id orphan = insertCard(999999, 0);
  reopen();
  EXPECT_FALSE(col->basicCheck());
  int64_t scm = scmInFile();
  clock.advance(10);

  EXPECT_EQ(col->fixIntegrity(),
            "Deleted 2 notes with missing cards or note types.\n"
            "Fixed 2 notes with invalid ID.\n"
            "Deleted 1 cards with missing note.");
  EXPECT_GT(scmInFile(), scm) << "saved with a new schema time";
  EXPECT_FALSE(col->db()->mod);
  EXPECT_TRUE(col->basicCheck());

  EXPECT_EQ(count("select count() from notes where id in (?, ?)", {noCards, unknownType}), 0);
  EXPECT_EQ(count("select count() from cards where nid = ?", {unknownType}), 0);
  EXPECT_EQ(count("select count() from notes where guid = 'b'"), 0);
  EXPECT_EQ(count("select count() from notes where id = ?", {good}), 1);
  // Only the card removed through remCards leaves a grave; the notes go without.
  EXPECT_EQ(count("select count() from graves"), 1);
  EXPECT_EQ(count("select oid from graves where type = 0"), orphan);
}

TEST_F(CheckDatabase, ATypeWithoutTypeKeyLosesCardsWithoutTemplate) {
  Json& m = basic();
  m.erase("type");
  col->models().save();
  Id nid = insertNote(
      "a\x1f"
      "b");
  insertCard(nid, 0);
  Id stray = insertCard(nid, 5);
  // A cloze type keeps the key, so its high ordinals are left alone.
  Id cloze = insertNote("{{c1::a}} {{c9::b}}\x1f", test::kClozeId);
  insertCard(cloze, 8);
  reopen();
  EXPECT_FALSE(col->basicCheck());
  EXPECT_EQ(col->fixIntegrity(), "Deleted 1 cards with missing template.");
  EXPECT_EQ(count("select count() from cards where id = ?", {stray}), 0);
  EXPECT_EQ(count("select count() from cards"), 2);
}

TEST_F(CheckDatabase, RebuildsTheTagRegistryFromTheNotes) {
  Id nid = insertNote(
      "a\x1f"
      "b",
      test::kBasicId, " verb noun ");
  insertCard(nid, 0);
  col->tags().allItems()["stale"] = 3;
  col->tags().save();
  reopen();
  EXPECT_EQ(col->fixIntegrity(), "");
  EXPECT_TRUE(col->tags().allItems().contains("verb"));
  EXPECT_FALSE(col->tags().allItems().contains("stale"));
}

}  // namespace
}  // namespace rivo
