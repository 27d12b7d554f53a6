#include "librivo/Storage.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

TEST(Storage, NewFileHasTheExactSchemaPragmasAndRows) {
  test::TempDir dir;
  std::string path = dir.file("collection.rivo2");
  int64_t before = intTime(1000);
  {
    auto col = Storage::open(path);
    ASSERT_TRUE(col);
    col->close();
  }
  DB db(path);
  // Other devices read these tables by position: the columns, in order, are the format.
  EXPECT_EQ(db.scalarInt("select count() from pragma_table_info('col')"), 13);
  EXPECT_EQ(db.scalarInt("select count() from pragma_table_info('notes')"), 11);
  EXPECT_EQ(db.scalarInt("select count() from pragma_table_info('cards')"), 18);
  EXPECT_EQ(db.scalarInt("select count() from pragma_table_info('revlog')"), 9);
  EXPECT_EQ(db.scalarInt("select count() from pragma_table_info('graves')"), 3);
  EXPECT_EQ(db.scalarInt("select count() from sqlite_master where type = 'index' and name "
                         "not like 'sqlite_%'"),
            7);
  EXPECT_EQ(db.scalarInt("pragma page_size"), 4096);
  EXPECT_EQ(toText(*db.scalar("pragma journal_mode")), "delete");
  EXPECT_EQ(toText(*db.scalar("pragma integrity_check")), "ok");
  EXPECT_EQ(db.scalarInt("select count() from sqlite_master where name = 'sqlite_stat1'"), 1)
      << "analyze ran";

  auto row = db.first("select crt, scm, id || ver || dty || usn || ls || tags, models from col");
  ASSERT_TRUE(row);
  EXPECT_GT(toInt((*row)[0]), 0) << "crt is set by the first save";
  EXPECT_GE(toInt((*row)[1]), before);
  EXPECT_LE(toInt((*row)[1]), intTime(1000));
  EXPECT_EQ(toText((*row)[2]), "111000{}");  // id 1, version 11, the rest zero or empty
  EXPECT_EQ(db.scalarInt("select count() from col"), 1);

  Json conf = decodeJson(toText(*db.scalar("select conf from col")));
  EXPECT_EQ(conf["lastUnburied"], 0) << "cards are unburied at open";
  conf.erase("lastUnburied");
  // The standard note types came last with Basic, which is current.
  Json models = decodeJson(toText((*row)[3]));
  ASSERT_EQ(models.size(), 4u);
  ASSERT_TRUE(conf["curModel"].is_string());
  EXPECT_EQ(models[conf["curModel"].get<std::string>()]["name"], "Basic");
  conf.erase("curModel");
  Json defaults = Col::getDefaultConf();
  defaults.erase("curModel");
  EXPECT_EQ(conf, defaults);
  Json decks = decodeJson(toText(*db.scalar("select decks from col")));
  ASSERT_EQ(decks.size(), 1u);
  EXPECT_EQ(decks["1"]["name"], "Default");
  EXPECT_EQ(decks["1"]["id"], "1");  // text, as first written
  Json dconf = decodeJson(toText(*db.scalar("select dconf from col")));
  ASSERT_EQ(dconf.size(), 1u);
  EXPECT_EQ(dconf["1"]["id"], 1);
}

TEST(Storage, WhatIsNotACollectionOpensToNothingAndIsLeftInPlace) {
  test::TempDir dir;
  std::string path = dir.file("collection.rivo2");
  std::string junk = "this is not a database, just some text the user put here\n";
  test::writeFile(path, junk);
  EXPECT_EQ(Storage::open(path), nullptr);
  EXPECT_EQ(test::readFile(path), junk);

  std::filesystem::remove(path);
  DB(path).executeScript("create table other (a)");
  EXPECT_EQ(Storage::open(path), nullptr);
}

TEST(Storage, ReopeningKeepsTheFileAndTakesTheLock) {
  test::TempDir dir;
  std::string path = dir.file("collection.rivo2");
  auto first = Storage::open(path);
  const int64_t scm = first->scm();
  first->close();
  auto col = Storage::open(path);
  ASSERT_TRUE(col);
  EXPECT_EQ(col->scm(), scm);
  EXPECT_TRUE(col->db()->inTransaction()) << "an open collection holds the exclusive lock";
  EXPECT_FALSE(col->db()->mod);
}

}  // namespace
}  // namespace rivo
