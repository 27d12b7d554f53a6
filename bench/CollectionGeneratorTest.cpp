#include "bench/CollectionGenerator.h"

#include <gtest/gtest.h>

#include <set>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Storage.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

TEST(CollectionGenerator, MakesExactCountsEveryQueueAndAWholeDeckTree) {
  test::TempDir dir;
  GeneratorOptions opt;
  opt.notes = 1000;
  opt.cards = 2300;
  opt.decks = 60;
  opt.revlog = 5000;
  GeneratorReport report = CollectionGenerator(opt).generate(dir.path(), "User 1");
  EXPECT_EQ(report.cards, 2300);

  auto col = Storage::open(dir.file("profiles/User 1/collection.rivo2"));
  ASSERT_TRUE(col);
  DB& db = *col->db();
  EXPECT_EQ(toText(*db.scalar("select (select count() from notes) || ' ' || (select count() from "
                              "cards) || ' ' || (select count() from revlog)")),
            "1000 2300 5000");
  // No card without its note, and no note without cards.
  EXPECT_EQ(db.scalarInt("select count() from cards where nid not in (select id from notes)") +
                db.scalarInt("select count() from notes where id not in (select nid from cards)"),
            0);
  std::set<int64_t> queues;
  for (auto& v : db.list("select distinct queue from cards")) queues.insert(toInt(v));
  EXPECT_EQ(queues, (std::set<int64_t>{-2, -1, 0, 1, 2, 3}));
  EXPECT_EQ(toText(*db.scalar("pragma integrity_check")), "ok");

  // 60 decks with Default; every "::" name has its parent.
  Json& decks = col->decks().decks();
  EXPECT_EQ(decks.size(), 60u);
  std::set<std::string> names;
  for (auto& [id, d] : decks.items()) names.insert(d["name"].get<std::string>());
  for (const std::string& name : names) {
    auto cut = name.rfind("::");
    if (cut != std::string::npos) {
      EXPECT_TRUE(names.count(name.substr(0, cut))) << name;
    }
  }
  // Every card's deck exists.
  for (auto& v : db.list("select distinct did from cards"))
    EXPECT_TRUE(decks.contains(std::to_string(toInt(v))));
}

}  // namespace
}  // namespace rivo
