#include "librivo/TagManager.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "librivo/Grouping.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

using Names = std::vector<std::string>;
using T = TagManager;

TEST(TagStrings, SplitJoinSortAndMatchIgnoringCaseButNotAccents) {
  EXPECT_EQ(T::split("    "), Names{});
  EXPECT_EQ(T::split(" verb  a\tb\nc "), (Names{"verb", "a\tb\nc"}));  // other space stays
  EXPECT_EQ(T::join({}), "  ");
  EXPECT_EQ(T::join({"verb", "grammar"}), " verb grammar ");
  EXPECT_EQ(T::canonify({"zebra", "Éclair", "apple", "eagle", "Banana"}),
            (Names{"apple", "Banana", "eagle", "Éclair", "zebra"}));
  // Names that differ in case only are equal to the sort and keep their order.
  EXPECT_EQ(T::canonify({"b", "Tag", "a", "tag", "b"}), (Names{"a", "b", "b", "Tag", "tag"}));
  EXPECT_EQ(T::canonify({"tag", "Tag"}), (Names{"tag", "Tag"}));
  // Matching ignores case.
  EXPECT_TRUE(T::isTagInList("Ärger", {"x", "ärger"}));
  EXPECT_FALSE(T::isTagInList("verbs", {"verb"}));
  EXPECT_EQ(T::remFromStr("VERB", " zoo verb grammar Verb "), " zoo grammar ");
  EXPECT_EQ(T::remFromStr("zoo grammar", " zoo grammar "), "  ");
  EXPECT_EQ(T::remFromStr("", " b a "), " b a ");  // not re-sorted
  EXPECT_EQ(T::addToStr("Zoo new", " zoo apple "), " apple new zoo ");
}

class TagManagerTest : public test::CollectionTest {
 protected:
  TagManager& tags() { return col->tags(); }
  Json storedTags() { return Json::parse(toText(*col->db()->scalar("select tags from col"))); }
};

TEST_F(TagManagerTest, RegisterKeepsTheFirstUsnAndWritesOnlyWhenSomethingChanged) {
  tags().load(R"({"synced": 7})");
  tags().register_({"", "synced"});
  EXPECT_FALSE(tags().changed());
  tags().register_({"fresh", "fresh", "Fresh"});  // the registry is case-sensitive
  tags().register_({"zero"}, 0);
  EXPECT_EQ(tags().allItems(),
            Json::parse(R"({"synced": 7, "fresh": -1, "Fresh": -1, "zero": 0})"));
  const Names all = tags().all();  // "fresh" and "Fresh" tie, in either order
  EXPECT_EQ(all.size(), 4u);
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end(), caseInsensitiveLess));

  col->save();
  EXPECT_EQ(storedTags(), tags().allItems());
  tags().register_({"fresh"});
  tags().flush();
  EXPECT_FALSE(col->db()->mod);  // no statement ran
}

TEST_F(TagManagerTest, RegisterNotesRebuildsFromTheNotesOrAddsFromSome) {
  tags().load(R"({"old": 3, "kept": 4})");
  tags().registerNotes();
  tags().flush();
  EXPECT_EQ(storedTags(), Json::object());

  tags().load(R"({"old": 3, "kept": 4})");
  const Id first = insertNote("a", test::kBasicId, " kept  one ");
  insertNote("b", test::kBasicId, " two ");
  tags().registerNotes(std::vector<Id>{first});
  EXPECT_EQ(tags().allItems(), Json::parse(R"({"old": 3, "kept": 4, "one": -1})"));
  tags().registerNotes();
  EXPECT_EQ(tags().allItems(), Json::parse(R"({"kept": -1, "one": -1, "two": -1})"));
}

TEST_F(TagManagerTest, SelectionByTagsAndMovingTheirCards) {
  const Id verb = insertNote("1", test::kBasicId, " verb irregular ");
  const Id noun = insertNote("2", test::kBasicId, " Noun ");
  const Id none = insertNote("3");
  const Id odd = insertNote("4", test::kBasicId, " 100%_sure ");
  auto sel = [&](const Names& wanted, const Names& unwanted) {
    std::vector<Id> ids = tags().selTagNidsMatching(wanted, unwanted);
    std::sort(ids.begin(), ids.end());
    return ids;
  };
  using Ids = std::vector<Id>;
  EXPECT_EQ(sel({}, {}), (Ids{verb, noun, none, odd}));
  EXPECT_EQ(sel({"verb", "noun"}, {}), (Ids{verb, noun}));  // like ignores ASCII case
  EXPECT_EQ(sel({}, {"verb", "noun"}), (Ids{none, odd}));
  EXPECT_EQ(sel({"verb", "noun"}, {"irregular"}), (Ids{noun}));
  EXPECT_EQ(sel({"ver"}, {}), Ids{});         // whole names only
  EXPECT_EQ(sel({"v_rb"}, {}), (Ids{verb}));  // tags are patterns as they stand
  EXPECT_EQ(sel({"100%"}, {}), (Ids{odd}));

  const Id moved = insertCard(verb, 0);
  const Id stays = insertCard(noun, 0);
  clock.advance(60);
  tags().setDeckForTagsMatching({"irregular"}, {}, 1500000000000);
  auto row = [&](Id cid) { return rowText("select did, mod, usn from cards where id = ?", {cid}); };
  EXPECT_EQ(row(moved), "1500000000000|1773144060|-1");
  EXPECT_EQ(row(stays), "1|0|0");
}

}  // namespace
}  // namespace rivo
