#include <gtest/gtest.h>

#include "librivo/TagManager.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

using test::kBasicId;
using test::kClozeId;

class CheckDatabase : public test::CollectionTest {
 protected:
  int64_t scmInFile() { return sqlInt("select scm from col"); }
};

TEST_F(CheckDatabase, AHealthyCollectionIsOnlyOptimized) {
  const Id nid = insertNote("front\037back", kBasicId, " verb noun ");
  insertCard(nid, 0);
  insertCard(nid, 1);
  col->tags().allItems()["stale"] = 3;
  col->tags().save();
  reopen();
  const int64_t scm = scmInFile();
  EXPECT_TRUE(col->basicCheck());
  clock.advance(10);
  EXPECT_EQ(col->fixIntegrity(), "");
  EXPECT_EQ(col->scm(), scm);
  EXPECT_EQ(scmInFile(), scm);
  EXPECT_EQ(sqlInt("select count() from sqlite_stat1 where tbl = 'cards'"), 3)
      << "analyze ran over the cards' indices";
  EXPECT_EQ(sqlInt("pragma freelist_count"), 0) << "vacuumed";
  EXPECT_EQ(sqlInt("select count() from cards"), 2);
  // The tag registry is rebuilt from the notes.
  EXPECT_TRUE(col->tags().allItems().contains("verb"));
  EXPECT_FALSE(col->tags().allItems().contains("stale"));
}

TEST_F(CheckDatabase, EachKindOfDamageGetsOneLineInOrderAndForcesAFullSync) {
  const Id good = insertNote("ok\037ok");
  insertCard(good, 0);
  const Id noCards = insertNote("lonely\037");
  const Id unknownType = insertNote("x\037y", 42);
  insertCard(unknownType, 0);
  const Id badGuid1 = insertNote("b1\037"), badGuid2 = insertNote("b2\037");
  insertCard(badGuid1, 0);
  insertCard(badGuid2, 0);
  col->db()->run("update notes set guid = 'b' where id in (?, ?)", {badGuid1, badGuid2});
  const Id orphan = insertCard(999999, 0);
  reopen();
  EXPECT_FALSE(col->basicCheck());
  const int64_t scm = scmInFile();
  clock.advance(10);

  EXPECT_EQ(col->fixIntegrity(),
            "Deleted 2 notes with missing cards or note types.\n"
            "Fixed 2 notes with invalid ID.\n"
            "Deleted 1 cards with missing note.");
  EXPECT_GT(scmInFile(), scm) << "saved with a new schema time";
  EXPECT_FALSE(col->db()->mod);
  EXPECT_TRUE(col->basicCheck());

  EXPECT_EQ(sqlInt("select count() from notes where id in (?, ?)", {noCards, unknownType}), 0);
  EXPECT_EQ(sqlInt("select count() from cards where nid = ?", {unknownType}), 0);
  EXPECT_EQ(sqlInt("select count() from notes where guid = 'b'"), 0);
  EXPECT_EQ(sqlInt("select count() from notes where id = ?", {good}), 1);
  // Only the card removed through remCards leaves a grave; the notes go without.
  EXPECT_EQ(rowText("select group_concat(oid || ':' || type) from graves"),
            std::to_string(orphan) + ":0");
}

TEST_F(CheckDatabase, ATypeWithoutTypeKeyLosesCardsWithoutTemplate) {
  basic().erase("type");
  col->models().save();
  const Id nid = insertNote("a\037b");
  insertCard(nid, 0);
  const Id stray = insertCard(nid, 5);
  // A cloze type keeps the key, so its high ordinals are left alone.
  insertCard(insertNote("{{c1::a}} {{c9::b}}\037", kClozeId), 8);
  reopen();
  EXPECT_FALSE(col->basicCheck());
  EXPECT_EQ(col->fixIntegrity(), "Deleted 1 cards with missing template.");
  EXPECT_EQ(sqlInt("select count() from cards where id = ?", {stray}), 0);
  EXPECT_EQ(sqlInt("select count() from cards"), 2);
}

}  // namespace
}  // namespace rivo
