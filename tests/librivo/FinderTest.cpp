// Searches over a small fixed collection, checked by the cards and notes they find.
#include "librivo/Finder.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "librivo/DeckManager.h"
#include "librivo/FieldText.h"
#include "librivo/Scheduler.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

using Names = std::set<std::string>;

struct Case {
  std::string query;
  Names expected;
};

const Names kAll = {"a", "b", "c", "d", "e", "f", "g", "h"};

class FinderTest : public test::CollectionTest {
 protected:
  void SetUp() override {
    CollectionTest::SetUp();
    DeckManager& dm = col->decks();
    const Id lang = dm.getID("Lang"), french = dm.getID("Lang::French");
    const Id verbs = dm.getID("Lang::French::Verbs"), other = dm.getID("Other");
    const Id filt = dm.newDyn("Filt");
    dm.select(Json(1));
    const int64_t today = col->sched().today(), cutoff = col->sched().dayCutOff();

    n1 = note("Hello\037World", test::kBasicId, " greet en ");
    n2 = note("héllo ÉCOLE\037a.c", test::kBasicId, "  ");
    n3 = note("c++ 100%\037x_y", test::kBasicId, " en::sub ");
    n4 = note("abc\037don't", test::kBasicId, " Greet ");
    card("a", n1, 0, 1, 0, 0);
    card("b", n1, 1, lang, 2, today - 1, 10, 2500, 5, 1);
    card("c", n2, 0, french, 1, cutoff - 100);
    card("d", n3, 0, verbs, 2, today + 5, 30, 2000);
    card("e", n4, 0, other, 3, today);
    card("f", n4, 1, other, -1, 0);
    // Added an hour ago: the only cards `added:` reaches.
    nextId = (static_cast<Id>(test::kTestNow) - 3600) * 1000;
    n5 = note("{{c1::Paris}} is in France\037", test::kClozeId, " geo ");
    card("g", n5, 0, 1, -2, 0);
    card("h", n5, 1, filt, 0, 0);
    col->db()->run("update cards set odid = ? where id = ?", {other, ids["h"]});

    const Id now = static_cast<Id>(test::kTestNow);
    revlog((now - 3600) * 1000, "b", 3);
    revlog((now - 5 * 86400) * 1000, "d", 2);
    revlog((now - 40 * 86400) * 1000, "a", 1);
    col->db()->mod = false;
  }

  Id note(const std::string& flds, Id mid, const std::string& tags) {
    Id nid = insertNote(flds, mid, tags);
    col->db()->run("update notes set sfld = ? where id = ?", {splitFields(flds)[0], nid});
    return nid;
  }
  void card(const std::string& name, Id nid, int ord, Id did, int queue, int64_t due, int ivl = 0,
            int factor = 0, int reps = 0, int lapses = 0) {
    ids[name] = insertCard(nid, ord);
    col->db()->run(
        "update cards set did=?, queue=?, type=?, due=?, ivl=?, factor=?, reps=?, lapses=? "
        "where id=?",
        {did, int64_t{queue},
         int64_t{queue < 0    ? 0
                 : queue == 3 ? 1
                              : queue},
         due, int64_t{ivl}, int64_t{factor}, int64_t{reps}, int64_t{lapses}, ids[name]});
  }
  void revlog(Id id, const std::string& card, int ease) {
    col->db()->run("insert into revlog values (?, ?, 0, ?, 1, 0, 2500, 1000, 1)",
                   {id, ids[card], int64_t{ease}});
  }

  Names find(const std::string& query) {
    Names out;
    for (Id cid : col->findCards(query))
      for (const auto& [name, id] : ids)
        if (id == cid) out.insert(name);
    return out;
  }
  std::vector<std::string> ordered(const std::optional<std::string>& order) {
    std::vector<std::string> out;
    for (Id cid : col->findCards("", order))
      for (const auto& [name, id] : ids)
        if (id == cid) out.push_back(name);
    return out;
  }
  std::string sql(const std::string& query) {
    Finder f(*col);
    auto where = f._where(Finder::_tokenize(query));
    return where ? Finder::_query(where->sql, "") : "bad";
  }

  void expectAll(const std::vector<Case>& cases) {
    for (const Case& c : cases) EXPECT_EQ(find(c.query), c.expected) << "search: " << c.query;
  }

  std::map<std::string, Id> ids;
  Id n1 = 0, n2 = 0, n3 = 0, n4 = 0, n5 = 0;
};

TEST(FinderTokenize, QuotesNegationAndBrackets) {
  using V = std::vector<std::string>;
  EXPECT_EQ(Finder::_tokenize("  a  b "), (V{"a", "b"}));
  EXPECT_EQ(Finder::_tokenize("foo( bar)"), (V{"(", "foo", "bar", ")"}));
  EXPECT_EQ(Finder::_tokenize("--x - -y"), (V{"not", "x", "not", "y"}));
  EXPECT_EQ(Finder::_tokenize("\"a (b)\" x:'c d' '-e"), (V{"a (b)", "x:c d", "not", "e"}));
  EXPECT_EQ(Finder::_tokenize("\"it's\"x 'open ended"), (V{"it'sx", "open ended"}));
}

TEST_F(FinderTest, TextSearchFoldsAsciiCaseOnlyAndTakesWildcards) {
  expectAll({{"", kAll},
             {"hello", {"a", "b"}},
             {"HÉLLO", {}},  // like folds ASCII letters only
             {"École", {"c"}},
             {"h*o", {"a", "b", "c"}},
             {"100%", {"d"}},
             {"don't", {"e", "f"}},
             {"'is in'", {"g", "h"}}});
}

TEST_F(FinderTest, EveryKindOfKey) {
  const std::string nids = "nid:" + std::to_string(n1) + "," + std::to_string(n4);
  expectAll({{"tag:greet", {"a", "b", "e", "f"}},
             {"tag:en*", {"a", "b", "d"}},
             {"tag:none", {"c"}},
             {"-tag:greet", {"c", "d", "g", "h"}},
             {"is:new", {"a", "h"}},
             {"is:learn", {"c", "e"}},
             {"is:buried", {"g"}},
             {"IS:DUE", {"b", "c", "e"}},
             {"is:nonsense", {}},
             {nids, {"a", "b", "e", "f"}},
             {"nid:1;drop", {}},
             {"card:2", {"b", "f", "h"}},
             {"card:'Card 2'", {"b", "f"}},
             {"card:cloze", {"g", "h"}},
             {"note:GAPS", {"g", "h"}},
             {"deck:Lang", {"b", "c", "d"}},
             {"deck:lang::french", {"c", "d"}},
             {"deck:Other", {"e", "f", "h"}},
             {"deck:filtered", {"h"}},
             {"deck:current", {"a", "g"}},
             {"deck:missing", {}},
             {"deck:(*", {}},
             {"prop:ivl>=10", {"b", "d"}},
             {"prop:ease>2.2", {"b"}},
             {"prop:due<=0", {"b", "e"}},
             {"prop:LAPSES!=0", {"b"}},
             {"prop:ivl>x", {}},
             {"prop:ivl>1;delete from cards", {}},
             {"rated:1", {"b"}},
             {"rated:7", {"b", "d"}},
             {"rated:7:2", {"d"}},
             {"rated:3x", {}},
             {"added:1", {"g", "h"}},
             {"added:100000000000000000", kAll}});
}

TEST_F(FinderTest, FieldSearchesTakeTheValueAsARegularExpression) {
  expectAll({{"front:hello", {"a", "b"}},
             {"front:h_llo", {"a", "b"}},
             {"front:h_llo*", {"a", "b", "c"}},
             {"back:a.c", {"c"}},  // like narrows first, so "abc" never reaches the pattern
             {"back:x_y", {"d"}},
             {"front:h.llo", {}},  // like narrows first: no field holds "h.llo" as it stands
             {"front:c\\+\\+*", {"d"}},
             {"text:*paris*", {"g", "h"}},
             {"front:'c++ 100*'", {}},  // "c++" is a possessive "c", not two plus signs
             {"front:'c\\+\\+ 100*'", {"d"}},
             {"front:(a*)*b", {"e", "f"}},  // the bracket splits it: (front:a*) and *b
             {"front:'(x'", {}},
             {"nofield:x", {}}});
}

TEST_F(FinderTest, NegationOrAndBracketsCombine) {
  expectAll({{"hello or paris", {"a", "b", "g", "h"}},
             {"-(hello or paris)", {"c", "d", "e", "f"}},
             {"(tag:greet or is:new) -deck:Other", {"a", "b"}},
             {"is:new OR is:buried deck:Default", {"a", "g", "h"}},
             {"(is:new or is:buried) deck:Default", {"a", "g"}},
             {"--hello", {"c", "d", "e", "f", "g", "h"}},
             {"-deck:* hello", {"c", "d", "e", "f", "g", "h"}}});  // "skip" leaves the not set
  EXPECT_EQ(sql("is:new or is:review"),
            "select c.id from cards c where ((queue = 0) or (queue = 2))");
  EXPECT_EQ(sql("a or b").rfind("select c.id from cards c, notes n where c.nid=n.id and ", 0), 0u);
  // Only conditions on notes bring in the join.
  EXPECT_EQ(sql("is:new deck:* prop:ivl>3"),
            "select c.id from cards c where ((queue = 0) and (ivl > 3))");
  EXPECT_EQ(sql("prop:ease>2.5"), "select c.id from cards c where ((factor > 2500.000000))");
}

TEST_F(FinderTest, BadInputFindsNothingOrWhatThePartSaysAndChangesNothing) {
  const int64_t cards = sqlInt("select count() from cards");
  std::string many;
  for (int i = 0; i < 300; ++i) many += "hello ";
  // Deeper than SQLite takes: the read fails, which finds nothing.
  std::string tooMany;
  for (int i = 0; i < 2000; ++i) tooMany += "-is:new ";
  expectAll({{"(hello", {}},
             {"()", {}},
             {"-(-deck:missing)", {}},
             {"\"", kAll},
             {"'", kAll},
             {"%", kAll},
             {";", {}},
             {"'; drop table cards; --", {}},
             {"tag:%' or '1'='1", {}},
             {"deck:\"; delete from cards", {}},
             {many, {"a", "b"}},
             {tooMany, {}},
             {std::string(100000, 'x'), {}},
             {std::string(1000, '"'), kAll}});
  EXPECT_TRUE(col->findNotes("(").empty());
  EXPECT_EQ(sqlInt("select count() from cards"), cards);
  EXPECT_FALSE(col->db()->mod);
}

TEST_F(FinderTest, FindNotesListsEachNoteOnce) {
  auto notes = [&](const std::string& q) {
    auto v = col->findNotes(q);
    return std::multiset<Id>(v.begin(), v.end());
  };
  EXPECT_EQ(notes(""), (std::multiset<Id>{n1, n2, n3, n4, n5}));
  EXPECT_EQ(notes("tag:greet"), (std::multiset<Id>{n1, n4}));
  EXPECT_EQ(notes("is:new or is:suspended"), (std::multiset<Id>{n1, n4, n5}));
  EXPECT_TRUE(notes("is:nonsense").empty());
}

TEST_F(FinderTest, BrowserOrderFollowsSortTypeAndReversesAfterTheQuery) {
  using V = std::vector<std::string>;
  col->conf()["sortType"] = "noteFld";
  EXPECT_EQ(ordered("True"), (V{"e", "f", "d", "a", "b", "c", "g", "h"}));
  col->conf()["sortBackwards"] = true;
  EXPECT_EQ(ordered("True"), (V{"h", "g", "c", "b", "a", "d", "f", "e"}));
  col->conf()["sortType"] = "cardIvl";
  EXPECT_EQ(ordered("True").front(), "d");
  EXPECT_EQ(ordered("c.ivl desc, c.id").front(), "d");
  EXPECT_EQ(ordered(std::nullopt).size(), 8u);
}

}  // namespace
}  // namespace rivo
