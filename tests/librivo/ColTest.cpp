#include "librivo/Col.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "librivo/Card.h"
#include "librivo/Clock.h"
#include "librivo/DB.h"
#include "librivo/Scheduler.h"
#include "librivo/Storage.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

// 2026-03-10 12:00:00 UTC
constexpr double kNoon = 1773144000;

class ColTest : public ::testing::Test {
 protected:
  void SetUp() override {
    col = Storage::open(path(), true, false, true, dir.path());
    ASSERT_TRUE(col);
  }
  std::string path() const { return dir.file("collection.rivo2"); }
  int64_t colMod() { return col->db()->scalarInt("select mod from col"); }

  // A note with `n` cards, written with plain SQL so that these tests need no note types.
  Id addNote(int n, Id did = 1) {
    Id nid = nextId++;
    col->db()->run("insert into notes values (?, 'g', 1, 0, -1, '', 'f', 'f', 0, 0, '')", {nid});
    for (int ord = 0; ord < n; ++ord) {
      Card card(*col);
      card.id = nextId++;
      card.nid = nid;
      card.did = did;
      card.ord = ord;
      card.flush();
    }
    return nid;
  }
  std::vector<Id> cardsOf(Id nid) {
    std::vector<Id> ids;
    for (auto& v : col->db()->list("select id from cards where nid = ? order by ord", {nid}))
      ids.push_back(toInt(v));
    return ids;
  }

  test::TempDir dir;
  std::unique_ptr<Col> col;
  Id nextId = 1000;
};

TEST_F(ColTest, SaveWithoutChangesWritesNothing) {
  col->db()->run("update cards set due = 1");  // a write, so the next save commits
  col->save();
  int64_t mod = colMod();
  EXPECT_EQ(mod, col->mod());
  col->save();
  col->save();
  EXPECT_EQ(colMod(), mod);
  EXPECT_FALSE(col->db()->mod);
}

TEST_F(ColTest, LockLeavesFlagsAndModAlone) {
  int64_t mod = colMod();
  col->db()->commit();
  col->db()->mod = false;
  col->lock();
  EXPECT_FALSE(col->db()->mod);
  EXPECT_TRUE(col->db()->inTransaction());
  EXPECT_EQ(colMod(), mod);
  col->db()->mod = true;
  col->lock();
  EXPECT_TRUE(col->db()->mod);
}

TEST_F(ColTest, SaveCommitsSoAnotherConnectionSeesTheChangeAfterClose) {
  addNote(2);
  col->save();
  col->close();
  col->close();  // harmless
  DB db(path());
  EXPECT_EQ(db.scalarInt("select count() from cards"), 2);
}

TEST_F(ColTest, CloseWithoutSaveLosesUncommittedWork) {
  col->save();
  addNote(1);
  col->closeAndSave(false);
  DB db(path());
  EXPECT_EQ(db.scalarInt("select count() from cards"), 0);
}

TEST_F(ColTest, ReopenOnOpenDoesNothingAndAfterCloseReadsTheSameCollection) {
  DB* before = col->db();
  col->reopen();
  EXPECT_EQ(col->db(), before);
  addNote(1);
  col->conf()["custom"] = "kept";
  col->setMod();
  col->save();
  col->close();
  EXPECT_EQ(col->db(), nullptr);
  col->reopen();
  ASSERT_NE(col->db(), nullptr);
  EXPECT_EQ(col->cardCount(), 1);
  EXPECT_EQ(col->conf()["custom"], "kept");
}

TEST_F(ColTest, RollbackLosesWritesAndConfButKeepsUndo) {
  col->save();
  Card card(*col);
  card.nid = 1;
  col->markReview(card);
  addNote(1);
  col->conf()["lost"] = true;
  col->rollback();
  EXPECT_EQ(col->cardCount(), 0);
  EXPECT_FALSE(col->conf().contains("lost"));
  EXPECT_TRUE(col->canUndo());
  EXPECT_TRUE(col->db()->inTransaction()) << "rollback takes the lock again";
}

TEST_F(ColTest, NextIdReadsAndIncrementsConf) {
  EXPECT_EQ(col->nextID("pos"), 1);
  EXPECT_EQ(col->nextID("pos"), 2);
  EXPECT_EQ(col->nextID("pos", false), 3);
  EXPECT_EQ(col->conf()["nextPos"], 3);
}

TEST_F(ColTest, ModSchemaAndUsnRules) {
  int64_t scm = col->scm();
  Clock::Override clock(Clock::now() + 5);
  col->db()->mod = false;
  col->modSchema();
  EXPECT_GT(col->scm(), scm);
  EXPECT_TRUE(col->db()->mod);
  EXPECT_EQ(col->usn(), -1);
  col->setUsn(7);
  col->setServer(true);
  EXPECT_EQ(col->usn(), 7);
  col->setServer(false);
  EXPECT_EQ(col->usn(), -1);
}

TEST_F(ColTest, RemovingCardsWritesGravesAndRemovesNotesLeftWithoutCards) {
  Id a = addNote(2);
  Id b = addNote(1);
  std::vector<Id> aCards = cardsOf(a);
  col->remCards({aCards[0]});
  EXPECT_EQ(col->db()->scalarInt("select count() from notes where id = ?", {a}), 1);
  col->remCards({aCards[1]});
  EXPECT_EQ(col->db()->scalarInt("select count() from notes where id = ?", {a}), 0);
  auto graves = col->db()->all("select usn, oid, type from graves order by rowid");
  ASSERT_EQ(graves.size(), 3u);
  EXPECT_EQ(toInt(graves[0][0]), -1);
  EXPECT_EQ(toInt(graves[0][1]), aCards[0]);
  EXPECT_EQ(toInt(graves[0][2]), 0);
  EXPECT_EQ(toInt(graves[1][1]), aCards[1]);
  EXPECT_EQ(toInt(graves[2][1]), a);
  EXPECT_EQ(toInt(graves[2][2]), 1);

  col->remNotes({b});
  EXPECT_EQ(col->noteCount(), 0);
  EXPECT_TRUE(col->isEmpty());
  col->remCards({});
  // A note that never had cards stays: removal goes through cards.
  col->db()->run("insert into notes values (5, 'g', 1, 0, -1, '', 'f', 'f', 0, 0, '')");
  col->remNotes({5});
  EXPECT_EQ(col->noteCount(), 1);
}

TEST_F(ColTest, UndoingReviewsRestoresCardsRevlogAndBuriedSiblings) {
  Id nid = addNote(3);
  std::vector<Id> ids = cardsOf(nid);
  // Ten answers in a row over the three cards.
  std::vector<Card> before;
  for (int i = 0; i < 10; ++i) {
    Card card(*col, ids[i % 3]);
    before.push_back(card);
    col->markReview(card);
    card.queue = 2;
    card.type = 2;
    card.ivl = i + 1;
    card.due = 100 + i;
    card.reps += 1;
    card.flushSched();
    col->db()->run("insert into revlog values (?, ?, -1, 3, ?, 0, 2500, 1000, 0)",
                   {int64_t{5000 + i}, card.id, int64_t{i + 1}});
    // Each answer buries a sibling.
    col->db()->run("update cards set queue = -2 where id = ?", {ids[(i + 1) % 3]});
  }
  EXPECT_EQ(col->undoName(), "Review");
  for (int i = 9; i >= 0; --i) {
    ASSERT_TRUE(col->canUndo());
    auto undone = col->undoSavingCurrentCard(nullptr);
    ASSERT_TRUE(undone);
    EXPECT_EQ(*undone, before[i].id);
    Card restored(*col, before[i].id);
    EXPECT_EQ(restored.ivl, before[i].ivl);
    EXPECT_EQ(restored.due, before[i].due);
    EXPECT_EQ(restored.reps, before[i].reps);
    EXPECT_EQ(col->db()->scalarInt("select count() from revlog"), i);
    EXPECT_EQ(col->db()->scalarInt("select count() from cards where queue = -2"), 0);
  }
  EXPECT_FALSE(col->canUndo());
  EXPECT_EQ(col->undoName(), "");
  EXPECT_EQ(col->sched().undoQueue().size(), 10u);
}

TEST_F(ColTest, UndoPushesTheCurrentCardThenTheRestoredOne) {
  Id nid = addNote(2);
  auto ids = cardsOf(nid);
  Card answered(*col, ids[0]);
  col->markReview(answered);
  Card current(*col, ids[1]);
  col->undoSavingCurrentCard(&current);
  auto& q = col->sched().undoQueue();
  ASSERT_EQ(q.size(), 2u);
  EXPECT_EQ(q[0].id, ids[1]);
  EXPECT_EQ(q[1].id, ids[0]) << "the restored card is served first";
}

TEST_F(ColTest, OperationUndoRollsBackAndNamedSavesReplaceReviewUndo) {
  col->save();
  Card card(*col);
  col->markReview(card);
  col->save();  // no name: review undo stays
  EXPECT_TRUE(col->canUndo());
  col->saveName("Edit", 0);
  EXPECT_EQ(col->undoName(), "Edit");
  EXPECT_FALSE(col->canUndo());
  col->save();  // an operation undo is cleared by the next plain save
  EXPECT_EQ(col->undoName(), "");
  addNote(1);
  EXPECT_FALSE(col->undoSavingCurrentCard(nullptr).has_value());
  EXPECT_EQ(col->cardCount(), 0) << "with no review undo, undo rolls back";
}

TEST_F(ColTest, BeforeUploadLeavesACleanClosedFile) {
  addNote(2);
  col->remCards({cardsOf(addNote(1))});
  col->save();
  col->beforeUpload();
  EXPECT_EQ(col->db(), nullptr);
  EXPECT_FALSE(col->schemaChanged());
  DB db(path());
  EXPECT_EQ(db.scalarInt("select count() from graves"), 0);
  EXPECT_EQ(db.scalarInt("select count() from cards where usn = -1"), 0);
  EXPECT_EQ(db.scalarInt("select count() from notes where usn = -1"), 0);
  auto row = db.first("select mod, scm, ls, usn from col");
  EXPECT_EQ(toInt((*row)[0]), toInt((*row)[1]));
  EXPECT_EQ(toInt((*row)[1]), toInt((*row)[2]));
  EXPECT_EQ(toInt((*row)[3]), 1);
  Json decks = decodeJson(toText(*db.scalar("select decks from col")));
  EXPECT_EQ(decks["1"]["usn"], 0);
  EXPECT_EQ(decks["1"]["id"], 1) << "flush repairs a deck id stored as text";
}

TEST_F(ColTest, ProgressIsThrottledToFourASecond) {
  Clock::Override clock(kNoon);
  std::vector<std::string> shown;
  col->setProgressSink([&](const std::string& s) { shown.push_back(s); });
  int asked = 0;
  auto block = [&] { return "step " + std::to_string(++asked); };
  for (int i = 0; i < 100; ++i) {
    col->updateProgressWithBlock(block);
    clock.advance(0.01);
  }
  EXPECT_EQ(shown.size(), 4u);
  EXPECT_EQ(asked, 4) << "the block isn't even asked when the update is dropped";
}

TEST_F(ColTest, DebugLogLinesAndRotation) {
  Clock::Override clock(kNoon);
  std::string logPath = dir.file("debug.log");
  std::string oldPath = dir.file("debug.log.old");
  col->close();
  std::filesystem::remove(logPath);
  col->log({"hello\nworld", "a    b"});
  EXPECT_EQ(test::readFile(logPath), "[1773144000]: hello world a b\n");

  // Exactly at the limit the file is appended to; one byte above, the next line rotates it.
  std::filesystem::resize_file(logPath, 10485760);
  col->log({"at limit"});
  auto size = std::filesystem::file_size(logPath);
  EXPECT_EQ(size, 10485760u + std::string("[1773144000]: at limit\n").size());
  EXPECT_FALSE(std::filesystem::exists(oldPath));
  col->log({"rotated"});
  EXPECT_EQ(std::filesystem::file_size(oldPath), size);
  EXPECT_EQ(test::readFile(logPath), "[1773144000]: rotated\n");
}

struct CrtCase {
  const char* tz;
  double now;
  int64_t crt;
};

class CrtTest : public ::testing::TestWithParam<CrtCase> {};

TEST_P(CrtTest, DayZeroStartsAtFourGmtOfTheLocalDate) {
  const char* old = std::getenv("TZ");
  std::string saved = old ? old : "";
  setenv("TZ", GetParam().tz, 1);
  tzset();
  {
    test::TempDir dir;
    Clock::Override clock(GetParam().now);
    auto col = Storage::open(dir.file("c.rivo2"));
    ASSERT_TRUE(col);
    EXPECT_EQ(col->crt(), GetParam().crt);
  }
  if (old)
    setenv("TZ", saved.c_str(), 1);
  else
    unsetenv("TZ");
  tzset();
}

// 2026-03-10 00:00:00 UTC is 1773100800.
INSTANTIATE_TEST_SUITE_P(
    Zones, CrtTest,
    ::testing::Values(
        // 03:00 local belongs to the previous day, 05:00 to the same day.
        CrtCase{"UTC", 1773100800 + 3 * 3600, 1773100800 - 86400 + 4 * 3600},
        CrtCase{"UTC", 1773100800 + 5 * 3600, 1773100800 + 4 * 3600},
        // Two hours east: 05:00 local is 03:00 GMT; day zero still begins 04:00 GMT.
        CrtCase{"Etc/GMT-2", 1773100800 + 3 * 3600, 1773100800 + 4 * 3600},
        // Five hours west: 23:00 local on the 9th is 04:00 GMT on the 10th.
        CrtCase{"Etc/GMT+5", 1773100800 + 4 * 3600, 1773100800 - 86400 + 4 * 3600}));

// A process killed in the middle of writes comes back at its last save.
TEST(ColCrash, SigkillReopensAtTheLastSave) {
  test::TempDir dir;
  std::string path = dir.file("collection.rivo2");
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    close(ready[0]);
    auto col = Storage::open(path);
    for (int i = 0; i < 50; ++i)
      col->db()->run("insert into revlog values (?, 1, -1, 3, 1, 0, 2500, 1000, 0)",
                     {int64_t{i + 1}});
    col->save();
    (void)!write(ready[1], "x", 1);
    for (int64_t i = 1000;; ++i) {
      col->db()->run("insert into revlog values (?, 1, -1, 3, 1, 0, 2500, 1000, 0)", {i});
      if (i % 500 == 0) col->db()->run("delete from revlog where id > 999");
    }
  }
  close(ready[1]);
  char c;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  usleep(100 * 1000);
  kill(pid, SIGKILL);
  int status = 0;
  waitpid(pid, &status, 0);
  close(ready[0]);
  auto col = Storage::open(path);
  ASSERT_TRUE(col);
  EXPECT_EQ(col->db()->scalarInt("select count() from revlog"), 50);
  EXPECT_EQ(toText(*col->db()->scalar("pragma integrity_check")), "ok");
}

}  // namespace
}  // namespace rivo
