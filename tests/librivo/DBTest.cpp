#include "librivo/DB.h"

#include <gtest/gtest.h>

#include "librivo/SqlError.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

class DBTest : public ::testing::Test {
 protected:
  void SetUp() override {
    db = std::make_unique<DB>(dir.file("t.db"));
    db->executeScript("create table t (id integer primary key, v text not null)");
    db->mod = false;
  }
  test::TempDir dir;
  std::unique_ptr<DB> db;
};

TEST(DBQueryType, ClassifiesByTrimmedLowercasePrefix) {
  using Q = DB::QueryType;
  for (const char* q : {"select 1", "  \n\tSELECT 1", "Pragma page_size"})
    EXPECT_EQ(DB::_queryType(q), Q::Read) << q;
  for (const char* q : {" UPDATE t set v=1", "insert into t", "delete from t", "replace into t"})
    EXPECT_EQ(DB::_queryType(q), Q::Write) << q;
  for (const char* q :
       {"create table x (a)", "vacuum", "analyze", "with x as (select 1) select 1", ""})
    EXPECT_EQ(DB::_queryType(q), Q::Other) << q;
}

TEST_F(DBTest, WritesSetModAndOpenATransactionOthersDoNot) {
  db->scalar("select count() from t");
  EXPECT_FALSE(db->mod);
  EXPECT_FALSE(db->inTransaction());
  db->run("update t set v='x' where id = 42");  // changes no row
  EXPECT_TRUE(db->mod);
  EXPECT_TRUE(db->inTransaction());
  db->commit();
  EXPECT_FALSE(db->inTransaction());
  EXPECT_TRUE(db->mod) << "commit leaves the flag to the caller";

  // Vacuum and analyze neither set the flag nor begin, and fail inside a transaction.
  db->mod = false;
  EXPECT_TRUE(db->runWithResult("vacuum"));
  EXPECT_TRUE(db->runWithResult("analyze"));
  EXPECT_FALSE(db->mod);
  EXPECT_FALSE(db->inTransaction());
  db->run("insert into t values (1, 'a')");
  EXPECT_FALSE(db->runWithResult("vacuum"));
  EXPECT_THROW(db->run("vacuum"), SqlError);
}

TEST_F(DBTest, RunRaisesOnConstraintViolationWithTheQueryInTheMessage) {
  db->run("insert into t values (1, 'a')");
  try {
    db->run("insert into t values (1, 'b')");
    FAIL() << "expected SqlError";
  } catch (const SqlError& e) {
    EXPECT_EQ(e.query(), "insert into t values (1, 'b')");
    EXPECT_NE(std::string(e.what()).find("Query was 'insert into t values (1, 'b')'"),
              std::string::npos);
  }
  EXPECT_THROW(db->run("insert into t values (2, null)"), SqlError);
}

TEST_F(DBTest, ExecuteScriptCommitsFirstAndSplitsEvenInsideLiterals) {
  db->run("insert into t values (1, 'a')");
  ASSERT_TRUE(db->inTransaction());
  // The literal holds the separator, so the script is cut there and both halves fail;
  // the statement after it still runs.
  db->executeScript("insert into t values (2, 'x; y'); insert into t values (3, 'c')");
  db->rollback();
  // Row 1 was committed by the script before it ran; row 3 went in its own transaction and
  // was rolled back with it.
  EXPECT_EQ(db->scalarInt("select count() from t where id = 1"), 1);
  EXPECT_EQ(db->scalarInt("select count() from t where id = 2"), 0);
  EXPECT_EQ(db->scalarInt("select count() from t"), 1);
}

TEST_F(DBTest, ScalarTellsNoRowFromNullAndRollbackWithoutTransactionIsHarmless) {
  db->rollback();
  db->run("insert into t values (1, 'a')");
  db->rollback();
  EXPECT_FALSE(db->scalar("select v from t where id = 7").has_value());
  auto v = db->scalar("select max(id) from t");
  ASSERT_TRUE(v.has_value());
  EXPECT_TRUE(isNull(*v));
  EXPECT_FALSE(db->first("select * from t").has_value());
  EXPECT_TRUE(db->all("select * from t").empty());
}

TEST_F(DBTest, ValuesRoundTripByType) {
  db->executeScript("create table v (a, b, c, d, e, f)");
  Blob bytes{0, 1, 2, 255};
  db->run("insert into v values (?, ?, ?, ?, ?, ?)",
          {int64_t{1} << 40, 2.5, std::string("t\xc3\xa9"), bytes, Blob{}, Null{}});
  auto row = db->first("select a, b, c, d, e, f from v");
  ASSERT_TRUE(row);
  EXPECT_EQ(std::get<int64_t>((*row)[0]), int64_t{1} << 40);
  EXPECT_DOUBLE_EQ(std::get<double>((*row)[1]), 2.5);
  EXPECT_EQ(std::get<std::string>((*row)[2]), "t\xc3\xa9");
  EXPECT_EQ(std::get<Blob>((*row)[3]), bytes);
  EXPECT_EQ(std::get<Blob>((*row)[4]), Blob{}) << "an empty blob, not NULL";
  EXPECT_TRUE(isNull((*row)[5]));
  // Text ids reach integer columns through affinity.
  db->run("insert into t values (?, 'z')", {std::string("99")});
  EXPECT_EQ(db->scalarInt("select id from t where v = 'z'"), 99);
}

TEST_F(DBTest, WrongBindCountRunsNothingAndExecuteManyGoesOnAfterAFailingRow) {
  EXPECT_FALSE(db->runWithResult("insert into t values (?, ?)", {int64_t{1}}));
  EXPECT_FALSE(db->scalar("select v from t where id = ?").has_value());
  EXPECT_TRUE(db->list("select v from t where id = ?", {int64_t{1}, int64_t{2}}).empty());
  EXPECT_EQ(db->scalarInt("select count() from t"), 0);
  db->commit();
  db->mod = false;
  EXPECT_TRUE(db->executeMany("insert into t values (?, ?)", {}).empty());
  EXPECT_FALSE(db->mod);
  EXPECT_FALSE(db->inTransaction());
  auto results = db->executeMany("insert into t values (?, ?)", {{int64_t{1}, std::string("a")},
                                                                 {int64_t{1}, std::string("dup")},
                                                                 {int64_t{2}},
                                                                 {int64_t{3}, std::string("c")}});
  EXPECT_EQ(results, (std::vector<bool>{true, false, false, true}));
  EXPECT_EQ(db->list("select v from t order by id").size(), 2u);
}

TEST_F(DBTest, FailuresGiveEmptyResultsAndClosedOrForeignFilesRefuseWork) {
  EXPECT_TRUE(db->all("select nope from t").empty());
  db->close();
  EXPECT_FALSE(db->isOpen());
  EXPECT_FALSE(db->runWithResult("insert into t values (1, 'a')"));
  db->close();

  test::writeFile(dir.file("junk"), std::string(4096, 'x'));
  DB junk(dir.file("junk"));
  EXPECT_FALSE(junk.first("select crt from col").has_value());
  EXPECT_EQ(test::readFile(dir.file("junk")), std::string(4096, 'x'));
}

TEST_F(DBTest, KeptStatementsGiveTheSameAnswersAsFreshOnes) {
  db->run("insert into t values (1, 'a')");
  db->run("insert into t values (2, 'b')");
  const size_t kept = db->cachedStatements();
  EXPECT_EQ(db->scalarInt("select count() from t where id > ?", {int64_t{0}}), 2);
  EXPECT_EQ(db->scalarInt("select count() from t where id > ?", {int64_t{1}}), 1);
  EXPECT_EQ(db->cachedStatements(), kept + 1) << "one statement for both calls";

  // The same text again inside its own row callback: the inner call gets a statement of its own.
  std::vector<std::string> pairs;
  const std::string sql = "select v from t where id >= ? order by id";
  db->execute(sql, {int64_t{1}}, [&](sqlite3_stmt* st) {
    const std::string outer = toText(columnValue(st, 0));
    for (const Value& inner : db->list(sql, {int64_t{2}})) pairs.push_back(outer + toText(inner));
  });
  EXPECT_EQ(pairs, (std::vector<std::string>{"ab", "bb"}));

  // A kept statement follows a change of the schema; one that fails to prepare isn't kept.
  EXPECT_EQ(db->first("select * from t where id = 1")->size(), 2u);
  db->executeScript("alter table t add column w default 7");
  EXPECT_EQ(db->first("select * from t where id = 1")->size(), 3u);
  const size_t before = db->cachedStatements();
  EXPECT_FALSE(db->scalar("select nope from t").has_value());
  EXPECT_EQ(db->cachedStatements(), before);

  // Bounded, and emptied by close: a closed database runs nothing, kept or not.
  for (int i = 0; i < 300; ++i) db->scalar("select " + std::to_string(i));
  EXPECT_LE(db->cachedStatements(), 100u);
  db->close();
  EXPECT_EQ(db->cachedStatements(), 0u);
  EXPECT_FALSE(db->scalar("select count() from t where id > ?", {int64_t{0}}).has_value());
}

}  // namespace
}  // namespace rivo
