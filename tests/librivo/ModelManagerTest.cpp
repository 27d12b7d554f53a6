#include "librivo/ModelManager.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "librivo/Checksum.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Note.h"
#include "librivo/Storage.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

// 2026-03-10 12:00:00 UTC
constexpr double kNow = 1773144000;
constexpr int64_t kNowMs = 1773144000000;

class ModelManagerTest : public ::testing::Test {
 protected:
  ModelManagerTest() : clock(kNow) {}
  void SetUp() override {
    col = Storage::open(dir.file("collection.rivo2"), true, false, true, dir.path());
    ASSERT_TRUE(col);
  }
  ModelManager& mm() { return col->models(); }
  Json& byName(const std::string& name) {
    Json* m = mm().byName(name);
    EXPECT_TRUE(m) << name;
    return *m;
  }
  Id addNote(const std::string& type, const std::vector<std::string>& values) {
    Note note(*col, byName(type));
    note.fields = values;
    EXPECT_GT(col->addNote(note), 0);
    clock.advance(1);
    return note.id;
  }
  std::string flds(Id nid) {
    return toText(*col->db()->scalar("select flds from notes where id = ?", {nid}));
  }
  // (ord, id) of each of the note's cards.
  std::vector<std::pair<int64_t, Id>> cards(Id nid) {
    std::vector<std::pair<int64_t, Id>> out;
    for (const Row& r :
         col->db()->all("select ord, id from cards where nid = ? order by ord", {nid}))
      out.emplace_back(toInt(r[0]), toInt(r[1]));
    return out;
  }
  // Moves the clock on and reports whether `step` stamped the schema at the new time.
  template <class F>
  bool changesSchema(F step) {
    clock.advance(10);
    const int64_t before = col->scm();
    step();
    return col->scm() != before && col->scm() == intTime(1000);
  }

  Clock::Override clock;
  test::TempDir dir;
  std::unique_ptr<Col> col;
};

TEST_F(ModelManagerTest, NewTypesGetFreshIdsUniqueNamesAndCopies) {
  Json m = mm().new_("Basic");
  EXPECT_TRUE(m["id"].is_null());
  EXPECT_TRUE(m["flds"].empty());
  EXPECT_FALSE(m.contains("req"));
  m["id"] = "42";
  Json& stored = mm().update(m);
  // Same name, other id: one suffix of "-" and five hex digits, id kept.
  const std::string suffix = checksum(std::to_string(intTime(1))).substr(0, 5);
  EXPECT_EQ(stored["name"], "Basic-" + suffix);
  EXPECT_EQ(mm().get(Json("42")), &stored);
  // Updating a type under its own id leaves its name alone.
  Json& again = mm().update(stored);
  EXPECT_EQ(again["name"], "Basic-" + suffix);

  // A new id is the next free millisecond, even on a clock that stands still.
  Json& copy = mm().copy(byName("Basic"));
  EXPECT_EQ(copy["name"], "Basic copy");
  EXPECT_EQ(copy["id"], std::to_string(kNowMs + 4));
  EXPECT_EQ(copy["req"], byName("Basic")["req"]);
  EXPECT_EQ(mm().current(), &copy);
  // The schema hash covers field and template names only.
  EXPECT_EQ(ModelManager::scmhash(copy), checksum("FrontBackCard 1"));
}

TEST_F(ModelManagerTest, RemovingATypeRemovesItsCardsAndNotesAndMovesCurrent) {
  const Id keep = addNote("Cloze", {"{{c1::x}}", ""});
  const Id gone = addNote("Basic", {"a", "b"});
  EXPECT_EQ(mm().useCount(byName("Basic")), 1);
  EXPECT_EQ(mm().nids(byName("Basic")), std::vector<Id>{gone});
  const Json basic = byName("Basic");
  mm().setCurrent(basic);
  EXPECT_TRUE(changesSchema([&] { mm().rem(basic); }));
  EXPECT_EQ(mm().byName("Basic"), nullptr);
  EXPECT_EQ(col->db()->scalarInt("select group_concat(id) from notes"), keep);
  EXPECT_EQ(col->db()->scalarInt("select count() from cards"), 1);
  EXPECT_EQ(col->db()->scalarInt("select oid from graves where type = 1"), gone);
  Json* cur = mm().current();
  ASSERT_TRUE(cur);
  EXPECT_EQ(col->conf()["curModel"], (*cur)["id"]);
}

TEST_F(ModelManagerTest, FieldAddAndMoveRewriteEveryNote) {
  Json& m = byName("Basic");
  const Id n1 = addNote("Basic", {"f1", "b1"});
  const Id n2 = addNote("Basic", {"f2", "b2"});
  EXPECT_TRUE(changesSchema([&] { mm().addField(m, mm().newField("Extra")); }));
  EXPECT_EQ(flds(n1), "f1\037b1\037");
  EXPECT_EQ(m["flds"][2]["ord"], 2);
  EXPECT_EQ(m["req"], Json::parse(R"([[0, "all", [0]]])"));

  col->db()->run("update notes set flds = 'f2\037b2\037e2' where id = ?", {n2});
  // To the same place: schema marked, nothing moved.
  EXPECT_TRUE(changesSchema([&] { mm().moveField(m, m["flds"][1], 1); }));
  EXPECT_EQ(flds(n2), "f2\037b2\037e2");
  EXPECT_EQ(ModelManager::sortIdx(m), 0);

  EXPECT_TRUE(changesSchema([&] { mm().moveField(m, m["flds"][2], 0); }));
  EXPECT_EQ(ModelManager::fieldNames(m), (std::vector<std::string>{"Extra", "Front", "Back"}));
  EXPECT_EQ(flds(n2), "e2\037f2\037b2");
  EXPECT_EQ(flds(n1), "\037f1\037b1");
  // The moved field is now the sort field, and the front moved to 1 in the req.
  EXPECT_EQ(ModelManager::sortIdx(m), 0);
  EXPECT_EQ(m["req"], Json::parse(R"([[0, "all", [1]]])"));
  mm().moveField(m, m["flds"][0], 2);
  EXPECT_EQ(ModelManager::sortIdx(m), 2);
  EXPECT_EQ(flds(n2), "f2\037b2\037e2");
}

TEST_F(ModelManagerTest, UnregisteredTypesSkipSchemaAndNotes) {
  Json m = mm().new_("Loose");
  EXPECT_FALSE(changesSchema([&] {
    mm().addField(m, mm().newField("A"));
    mm().addTemplate(m, mm().newTemplate("T"));
  }));
  EXPECT_FALSE(m.contains("req"));
  EXPECT_EQ(m["mod"], static_cast<int64_t>(kNow));
}

TEST_F(ModelManagerTest, RenamingAFieldRewritesReferencesWithTheirPrefixes) {
  Json& m = byName("Basic");
  m["tmpls"][0]["qfmt"] = "{{Front}} {{#Front}}x{{/Front}} {{^Front}}y{{/Front}} {{text:Front}}";
  m["tmpls"][0]["bqfmt"] = "{{Front}}";
  const Id nid = addNote("Basic", {"a", "b"});
  EXPECT_TRUE(changesSchema([&] { mm().renameField(m, m["flds"][0], "Word"); }));
  EXPECT_EQ(m["tmpls"][0]["qfmt"],
            "{{Word}} {{#Word}}x{{/Word}} {{^Word}}y{{/Word}} {{text:Word}}");
  EXPECT_EQ(m["tmpls"][0]["bqfmt"], "{{Front}}");
  EXPECT_EQ(m["flds"][0]["name"], "Word");
  EXPECT_EQ(flds(nid), "a\037b");

  // No new name: the references go.
  mm().renameField(m, m["flds"][0], std::nullopt);
  EXPECT_EQ(m["tmpls"][0]["qfmt"], " x y ");
  EXPECT_EQ(m["tmpls"][0]["afmt"], "{{FrontSide}}\n\n<hr id=answer>\n\n{{Back}}");

  // Names with regular-expression characters, and a replacement with "$".
  m["flds"][1]["name"] = "a.b(c)?";
  m["tmpls"][0]["afmt"] = "{{a.b(c)?}} {{aXb(c)}}";
  mm().renameField(m, m["flds"][1], "$1 cost");
  EXPECT_EQ(m["tmpls"][0]["afmt"], "{{$1 cost}} {{aXb(c)}}");
  m["flds"][1]["name"] = "x[1]\\";
  m["tmpls"][0]["afmt"] = "{{#x[1]\\}}{{x[1]\\}}{{/x[1]\\}}";
  mm().renameField(m, m["flds"][1], "y");
  EXPECT_EQ(m["tmpls"][0]["afmt"], "{{#y}}{{y}}{{/y}}");
}

TEST_F(ModelManagerTest, SortFieldAndFieldRemovalGuards) {
  Json& m = byName("Basic");
  const Id nid = addNote("Basic", {"<b>front</b>", "<i>back</i>"});
  EXPECT_THROW(mm().setSortIdx(m, 2), std::logic_error);
  EXPECT_THROW(mm().setSortIdx(m, -1), std::logic_error);
  EXPECT_TRUE(changesSchema([&] { mm().setSortIdx(m, 1); }));
  EXPECT_EQ(toText(*col->db()->scalar("select sfld from notes where id = ?", {nid})), "back");
  EXPECT_THROW(mm().remField(m, m["flds"][0]), std::logic_error);
}

TEST_F(ModelManagerTest, AddingATemplateAndSavingWithTemplatesMakesTheCards) {
  Json& m = byName("Basic");
  const Id nid = addNote("Basic", {"front", "back"});
  const Id empty = addNote("Basic", {"front", ""});
  Json t = mm().newTemplate("Reverse");
  t["qfmt"] = "{{Back}}";
  EXPECT_TRUE(changesSchema([&] { mm().addTemplate(m, t); }));
  EXPECT_EQ(cards(nid).size(), 1u);  // no generation on add
  EXPECT_EQ(m["req"][1], Json::parse(R"([1, "all", [1]])"));
  mm().save(&m, true);
  ASSERT_EQ(cards(nid).size(), 2u);
  EXPECT_EQ(cards(nid)[1].first, 1);
  EXPECT_EQ(cards(empty).size(), 1u);
}

TEST_F(ModelManagerTest, RemovingATemplateClosesTheGapOrRefuses) {
  Json& m = byName("Basic (and reversed card)");
  Json t = mm().newTemplate("Third");
  t["qfmt"] = "{{Front}}{{Back}}";
  mm().addTemplate(m, t);
  const Id both = addNote("Basic (and reversed card)", {"f", "b"});
  const Id backOnly = addNote("Basic (and reversed card)", {"", "b"});
  ASSERT_EQ(cards(both).size(), 3u);
  ASSERT_EQ(cards(backOnly).size(), 2u);  // ords 1 and 2

  // Card 2 is one of two for backOnly: fine. Card 1 would be the last for nobody.
  const auto old = cards(both);
  EXPECT_TRUE(changesSchema([&] { EXPECT_TRUE(mm().remTemplate(m, m["tmpls"][1])); }));
  ASSERT_EQ(m["tmpls"].size(), 2u);
  EXPECT_EQ(m["tmpls"][1]["name"], "Third");
  EXPECT_EQ(m["tmpls"][1]["ord"], 1);
  EXPECT_EQ(cards(both), (std::vector<std::pair<int64_t, Id>>{old[0], {1, old[2].second}}));

  // Now backOnly's one card is the "Third" one: removing it would orphan the note.
  ASSERT_EQ(cards(backOnly).size(), 1u);
  const Json before = m;
  EXPECT_FALSE(changesSchema([&] { EXPECT_FALSE(mm().remTemplate(m, m["tmpls"][1])); }));
  EXPECT_EQ(m, before);
  EXPECT_EQ(cards(backOnly).size(), 1u);

  Json& basic = byName("Basic");
  EXPECT_THROW(mm().remTemplate(basic, basic["tmpls"][0]), std::logic_error);
}

TEST_F(ModelManagerTest, MovingATemplateRenumbersCardsWithoutASchemaChange) {
  Json& m = byName("Basic (and reversed card)");
  Json t = mm().newTemplate("Third");
  t["qfmt"] = "{{Front}}";
  mm().addTemplate(m, t);
  const Id nid = addNote("Basic (and reversed card)", {"f", "b"});
  const auto old = cards(nid);
  ASSERT_EQ(old.size(), 3u);
  EXPECT_FALSE(changesSchema([&] { mm().moveTemplate(m, m["tmpls"][2], 0); }));
  EXPECT_EQ(m["tmpls"][0]["name"], "Third");
  EXPECT_EQ(m["tmpls"][1]["name"], "Card 1");
  EXPECT_EQ(m["tmpls"][2]["ord"], 2);
  EXPECT_EQ(cards(nid), (std::vector<std::pair<int64_t, Id>>{
                            {0, old[2].second}, {1, old[0].second}, {2, old[1].second}}));
  EXPECT_EQ(m["req"][0], Json::parse(R"([0, "all", [0]])"));
  EXPECT_EQ(m["req"][2], Json::parse(R"([2, "all", [1]])"));
}

TEST_F(ModelManagerTest, RowsRewrittenByATypeChangeCarryTheStampOfNow) {
  Json& m = byName("Basic (and reversed card)");
  Json t = mm().newTemplate("Third");
  t["qfmt"] = "{{Front}}";
  mm().addTemplate(m, t);
  addNote("Basic (and reversed card)", {"f", "b"});
  // Rows that look synced long ago: whatever a change rewrites must go up at the next sync.
  auto age = [&] {
    col->db()->run("update notes set mod = 1, usn = 7");
    col->db()->run("update cards set mod = 1, usn = 7");
  };
  auto stamped = [&](const std::string& table) {
    return col->db()->scalarInt("select count() from " + table + " where mod = ? and usn = ?",
                                {static_cast<int64_t>(intTime()), int64_t{col->usn()}});
  };
  age();
  mm().moveField(m, m["flds"][1], 0);
  EXPECT_EQ(stamped("notes"), 1);
  age();
  mm().moveTemplate(m, m["tmpls"][2], 0);
  EXPECT_EQ(stamped("cards"), 3);
  age();
  ASSERT_TRUE(mm().remTemplate(m, m["tmpls"][0]));
  EXPECT_EQ(stamped("cards"), 2) << "both cards behind the removed one moved down";
}

TEST_F(ModelManagerTest, TheCurrentTypeAndTheUploadUsnReachTheFile) {
  col->save();
  const int64_t mod = col->db()->scalarInt("select mod from col");
  clock.advance(5);
  mm().setCurrent(byName("Cloze"));
  col->save();
  EXPECT_GT(col->db()->scalarInt("select mod from col"), mod) << "the choice counts as a change";

  mm().beforeUpload();
  col->save();
  const Json stored = Json::parse(toText(*col->db()->scalar("select models from col")));
  for (const auto& [id, type] : stored.items()) EXPECT_EQ(type["usn"], 0) << id;
}

TEST_F(ModelManagerTest, RequirementsComeFromRenderingTheQuestion) {
  Json& m = byName("Basic");
  auto reqOf = [&](const std::string& qfmt) {
    m["tmpls"][0]["qfmt"] = qfmt;
    mm().save(&m);
    return Json::array({m["req"][0][1], m["req"][0][2]});
  };
  EXPECT_EQ(reqOf("static text"), Json::parse(R"(["none", []])"));
  EXPECT_EQ(reqOf("{{Front}} {{Back}}"), Json::parse(R"(["any", [0, 1]])"));
  EXPECT_EQ(reqOf("{{#Front}}{{Back}}{{/Front}}"), Json::parse(R"(["all", [0, 1]])"));
  // The question is empty with every field filled and with none.
  EXPECT_EQ(reqOf("{{^Back}}{{Front}}{{/Back}}"), Json::parse(R"(["none", []])"));
  EXPECT_EQ(reqOf("{{#c1}}{{Front}}{{/c1}}"), Json::parse(R"(["all", [0]])"));
  EXPECT_EQ(reqOf("{{#c2}}{{Front}}{{/c2}}"), Json::parse(R"(["none", []])"));
  // A cloze type never gets one.
  Json& cloze = byName("Cloze");
  mm().save(&cloze);
  EXPECT_FALSE(cloze.contains("req"));
}

TEST_F(ModelManagerTest, FlushWritesTheBlobOnlyWhenChanged) {
  col->save();
  EXPECT_FALSE(mm().changed());
  col->db()->run("update col set models = '{}'");
  mm().flush();
  EXPECT_EQ(toText(*col->db()->scalar("select models from col")), "{}");
  byName("Basic")["name"] = "Renamed";
  mm().save();
  mm().flush();
  EXPECT_NE(toText(*col->db()->scalar("select models from col")).find("Renamed"),
            std::string::npos);
}

}  // namespace
}  // namespace rivo
