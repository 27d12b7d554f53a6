#include "librivo/Note.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "librivo/Card.h"
#include "librivo/Checksum.h"
#include "librivo/TagManager.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

using test::kBasicId;
using test::kClozeId;
using Items = std::vector<std::pair<std::string, std::string>>;
using Strings = std::vector<std::string>;

class NoteTest : public test::CollectionTest {
 protected:
  std::string stored(Id nid, const std::string& columns) {
    return rowText("select " + columns + " from notes where id = ?", {nid});
  }
};

TEST_F(NoteTest, FlushWritesEveryColumnAndLoadReadsThemBackFromTheFile) {
  basic()["sortf"] = 1;
  Note note(*col, basic());
  EXPECT_EQ(note.fields, (Strings{"", ""}));
  EXPECT_EQ(note.tags, (Strings{"last", "used"}));  // last used with the type
  note.set("Front", "<b>dog</b>");
  note.set("Back", "<i>Hund</i>");
  note.addTag("Animal");
  note.flush();
  reopen();

  // The sort field without markup; the checksum is of the first field.
  EXPECT_EQ(
      stored(note.id, "guid, mid, mod, usn, tags, flds, sfld, flags, data"),
      note.guid +
          "|1600000000001|1773144000|-1| Animal last used |<b>dog</b>\037<i>Hund</i>|Hund|0|");
  EXPECT_EQ(sqlInt("select csum from notes"), fieldChecksum("dog"));
  Note loaded(*col, note.id);
  EXPECT_EQ(loaded.fields, note.fields);
  EXPECT_EQ(loaded.tags, (Strings{"Animal", "last", "used"}));
  EXPECT_EQ(loaded.model()["name"], "Two-sided");
  EXPECT_EQ(col->tags().allItems()["Animal"], -1);  // registered for the next sync

  // Columns this program never sets are carried through.
  col->db()->run("update notes set flags = 3, data = 'opaque' where id = ?", {note.id});
  loaded.load();
  loaded.set("Back", "c");
  loaded.flush();
  EXPECT_EQ(stored(note.id, "flags, data"), "3|opaque");
}

TEST_F(NoteTest, NotesShareTheirTypeUntilItChangesAndKeepTheTypeTheyWereMadeWith) {
  const Note a(*col, basic()), b(*col, basic());
  EXPECT_EQ(&a.model(), &b.model()) << "one copy of an unchanged type";
  basic()["css"] = "changed";
  const Note c(*col, basic());
  EXPECT_NE(&c.model(), &a.model());
  EXPECT_EQ(c.model()["css"], "changed");
  EXPECT_NE(a.model().value("css", std::string()), "changed")
      << "a note keeps the type as it was made with";

  Note d(*col, basic());
  d.model()["name"] = "mine";  // a note's own change stays with it
  EXPECT_EQ(c.model()["name"], "Two-sided");
  EXPECT_EQ(basic()["name"], "Two-sided");
}

TEST_F(NoteTest, OnlyARealChangeIsWrittenUnlessAModIsGiven) {
  Note note(*col, basic());
  note.set("Front", "a");
  note.flush();
  clock.advance(100);
  col->db()->run("update notes set usn = 12");
  Note again(*col, note.id);
  again.flush();
  EXPECT_EQ(debugLog().find("abort save, no changes"), debugLog().rfind("abort save"));
  ASSERT_NE(debugLog().find("abort save, no changes"), std::string::npos);

  // The tags in another order, one of them twice: the same stored string, so no write.
  std::reverse(again.tags.begin(), again.tags.end());
  again.addTag("used");
  again.flush();
  EXPECT_EQ(stored(note.id, "mod, usn"), "1773144000|12");

  again.flush(1234);
  EXPECT_EQ(stored(note.id, "mod, usn"), "1234|-1");
  again.addTag("new");
  again.flush();
  EXPECT_EQ(stored(note.id, "mod"), "1773144100");
}

TEST_F(NoteTest, DupeOrEmptyLooksAtTheFirstFieldWithinOneType) {
  Note note(*col, basic());
  for (const char* blank : {"", " \t\n", "\xc2\xa0"}) {  // the last is a no-break space
    note.fields[0] = blank;
    EXPECT_EQ(note.dupeOrEmpty(), 1) << '"' << blank << '"';
  }
  note.fields[0] = "<img src=\"cat.jpg\">";  // the raw text is tested, so not empty
  EXPECT_EQ(note.dupeOrEmpty(), 0);

  insertNote("<b>dog</b>\037one");
  insertNote("mouse\037two", kClozeId);
  const std::pair<const char*, int> cases[] = {
      {"<i>dog</i>", 2},  // equal once the markup is gone
      {"Dog", 0},
      {"mouse", 0},  // the same text in another type is no duplicate
  };
  for (const auto& [first, result] : cases) {
    note.fields[0] = first;
    EXPECT_EQ(note.dupeOrEmpty(), result) << first;
  }
  note.fields[0] = "unique";
  note.flush();
  EXPECT_EQ(Note(*col, note.id).dupeOrEmpty(), 0);  // never its own duplicate
}

TEST_F(NoteTest, FieldCountsThatDifferFromTheTypeAreTolerated) {
  const Id fewer = insertNote("only front");
  Note note(*col, fewer);
  EXPECT_EQ(note.items(), (Items{{"Front", "only front"}, {"Back", ""}}));
  EXPECT_TRUE(Card(*col, insertCard(fewer, 1)).isEmpty());
  note.set("Back", "now filled");
  note.flush();
  EXPECT_EQ(stored(fewer, "flds"), "only front\037now filled");

  const Id more = insertNote("a\037b\037c");
  Note extra(*col, more);
  EXPECT_EQ(extra.items(), (Items{{"Front", "a"}, {"Back", "b"}}));
  EXPECT_FALSE(Card(*col, insertCard(more, 1)).isEmpty());
  extra.set("Back", "B");
  extra.flush();
  EXPECT_EQ(stored(more, "flds"), "a\037B\037c");

  Note orphan(*col, insertNote("x\037y", 999));  // its type is gone
  EXPECT_TRUE(orphan.keys().empty());
  EXPECT_EQ(orphan.get("Front"), "");
  EXPECT_THROW(orphan.set("Front", "z"), std::invalid_argument);
  orphan.fields[0] = "z";
  orphan.flush();
  EXPECT_EQ(stored(orphan.id, "flds, sfld"), "z\037y|z");
}

TEST_F(NoteTest, TagEditing) {
  Note note(*col, basic());
  note.setTagsFromStr(" verb  Grammar ");
  EXPECT_TRUE(note.hasTag("grammar"));
  EXPECT_FALSE(note.hasTag("ver"));
  note.addTag("verb");
  note.addTag("Verb");
  // Duplicates go; two spellings of one name stay side by side.
  EXPECT_EQ(note.stringTags(), " Grammar verb Verb ");
  note.delTag("verb");  // the exact text only
  EXPECT_EQ(note.tags, (Strings{"Grammar", "Verb"}));
  note.tags.clear();
  EXPECT_EQ(note.stringTags(), "  ");
}

TEST_F(NoteTest, CardsComeInTemplateOrder) {
  const Id nid = insertNote("a\037b");
  const Id second = insertCard(nid, 1);
  const Id first = insertCard(nid, 0);
  insertCard(insertNote("other"), 0);
  std::vector<Card> cards = Note(*col, nid).cards();
  ASSERT_EQ(cards.size(), 2u);
  EXPECT_EQ(cards[0].id, first);
  EXPECT_EQ(cards[1].id, second);
}

TEST_F(NoteTest, ColNewNoteUsesTheCurrentTypeWhicheverWayItIsWritten) {
  col->conf()["curModel"] = std::to_string(kClozeId);
  EXPECT_EQ(col->newNote()->mid, kClozeId);
  col->conf()["curModel"] = kBasicId;
  EXPECT_EQ(col->newNote()->mid, kBasicId);
  col->conf()["curModel"] = 12345;  // a removed type: any other will do
  ASSERT_TRUE(col->newNote());

  col->models().models() = Json::object();
  EXPECT_EQ(col->newNote(), nullptr);
  EXPECT_NE(debugLog().find("no note type"), std::string::npos);
}

}  // namespace
}  // namespace rivo
