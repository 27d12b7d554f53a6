#include "librivo/Col.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "librivo/Card.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/SaveError.h"
#include "librivo/Scheduler.h"
#include "librivo/TagManager.h"
#include "librivo/Value.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

class ColTest : public test::CollectionTest {
 protected:
  int64_t colMod() { return sqlInt("select mod from col"); }
  // A note with `n` cards; returns the card ids.
  std::vector<Id> addNote(int n) {
    const Id nid = insertNote("f");
    std::vector<Id> ids;
    for (int ord = 0; ord < n; ++ord) ids.push_back(insertCard(nid, ord));
    return ids;
  }
  Id nidOf(Id cid) { return sqlInt("select nid from cards where id = ?", {cid}); }
};

TEST_F(ColTest, SaveWithoutChangesWritesNothingAndLockLeavesTheFlagAlone) {
  col->db()->run("update cards set due = 1");  // a write, so the next save commits
  clock.advance(1);
  col->save();
  const int64_t mod = colMod();
  EXPECT_EQ(mod, col->mod());
  clock.advance(1);
  col->save();
  col->save();
  EXPECT_EQ(colMod(), mod);
  EXPECT_FALSE(col->db()->mod);
  EXPECT_TRUE(col->db()->inTransaction()) << "a save takes the lock again";
  col->db()->commit();
  col->lock();
  EXPECT_FALSE(col->db()->mod);
  EXPECT_TRUE(col->db()->inTransaction());
  EXPECT_EQ(colMod(), mod);
}

TEST_F(ColTest, OnlySavedWorkOutlivesClose) {
  addNote(2);
  col->save();
  addNote(1);
  col->closeAndSave(false);
  col->close();  // harmless
  EXPECT_EQ(col->db(), nullptr);
  EXPECT_EQ(DB(path()).scalarInt("select count() from cards"), 2);
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
  col->reopen();
  ASSERT_NE(col->db(), nullptr);
  EXPECT_EQ(col->cardCount(), 1);
  EXPECT_EQ(col->conf()["custom"], "kept");
}

TEST_F(ColTest, RollbackLosesWritesAndConfButKeepsUndo) {
  col->save();
  Card card(*col);
  col->markReview(card);
  addNote(1);
  col->conf()["lost"] = true;
  col->rollback();
  EXPECT_EQ(col->cardCount(), 0);
  EXPECT_FALSE(col->conf().contains("lost"));
  EXPECT_TRUE(col->canUndo());
  EXPECT_TRUE(col->db()->inTransaction()) << "rollback takes the lock again";
}

TEST_F(ColTest, PositionsSchemaAndUsn) {
  const int64_t pos = jsonInt(col->conf()["nextPos"]);
  EXPECT_EQ(col->nextID("pos"), pos);
  EXPECT_EQ(col->nextID("pos", false), pos + 1);
  EXPECT_EQ(col->conf()["nextPos"], pos + 1);

  const int64_t scm = col->scm();
  clock.advance(5);
  col->db()->mod = false;
  col->modSchema();
  EXPECT_EQ(col->scm(), intTime(1000));
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
  const std::vector<Id> a = addNote(2), b = addNote(1);
  const Id nid = nidOf(a[0]);
  col->remCards({a[0]});
  EXPECT_EQ(col->noteCount(), 2);
  col->remCards({a[1]});
  EXPECT_EQ(col->noteCount(), 1);
  EXPECT_EQ(rowText("select group_concat(oid || ':' || type || ':' || usn, ' ') from graves"),
            std::to_string(a[0]) + ":0:-1 " + std::to_string(a[1]) + ":0:-1 " +
                std::to_string(nid) + ":1:-1");

  col->remNotes({nidOf(b[0])});
  EXPECT_TRUE(col->isEmpty());
  col->remCards({});
  // A note that never had cards stays: removal goes through cards.
  col->remNotes({insertNote("no cards")});
  EXPECT_EQ(col->noteCount(), 1);
}

TEST_F(ColTest, UndoingReviewsRestoresCardsRevlogAndBuriedSiblings) {
  const std::vector<Id> ids = addNote(3);
  // Ten answers in a row over the three cards.
  std::vector<Card> before;
  for (int i = 0; i < 10; ++i) {
    Card card(*col, ids[i % 3]);
    before.push_back(card);
    col->markReview(card);
    card.queue = card.type = 2;
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
    EXPECT_EQ(col->undoSavingCurrentCard(nullptr), before[i].id);
    Card restored(*col, before[i].id);
    EXPECT_EQ(restored.ivl, before[i].ivl);
    EXPECT_EQ(restored.due, before[i].due);
    EXPECT_EQ(restored.reps, before[i].reps);
    EXPECT_EQ(sqlInt("select count() from revlog"), i);
    EXPECT_EQ(sqlInt("select count() from cards where queue = -2"), 0);
  }
  EXPECT_FALSE(col->canUndo());
  EXPECT_EQ(col->undoName(), "");
  EXPECT_EQ(col->sched().undoQueue().size(), 10u);
}

TEST_F(ColTest, UndoPushesTheCurrentCardThenTheRestoredOne) {
  const std::vector<Id> ids = addNote(2);
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
  col->remCards(addNote(1));
  col->db()->executeScript("update cards set usn = -1; update notes set usn = -1");
  col->beforeUpload();
  EXPECT_EQ(col->db(), nullptr);
  EXPECT_FALSE(col->schemaChanged());
  DB db(path());
  EXPECT_EQ(db.scalarInt("select count() from graves"), 0);
  EXPECT_EQ(db.scalarInt("select count() from cards where usn = -1"), 0);
  EXPECT_EQ(db.scalarInt("select count() from notes where usn = -1"), 0);
  EXPECT_EQ(db.scalarInt("select count() from col where mod = scm and scm = ls and usn = 1"), 1);
  Json decks = decodeJson(toText(*db.scalar("select decks from col")));
  EXPECT_EQ(decks["1"]["usn"], 0);
  EXPECT_EQ(decks["1"]["id"], 1) << "flush repairs a deck id stored as text";
}

TEST_F(ColTest, ABlobThatCantBeEncodedFailsTheSaveAndKeepsTheFile) {
  col->decks().getID("Kept");
  col->save();
  auto decksBlob = [&] { return toText(*col->db()->scalar("select decks from col")); };
  const std::string decks = decksBlob();
  col->decks().getID("Dr\xffill");
  col->db()->run("update cards set due = 7");
  EXPECT_THROW(col->save(), SaveError);
  // The failed save reached nothing, and memory went back to what the file holds.
  EXPECT_EQ(col->decks().getID("Dr\xffill", false), 0);
  EXPECT_EQ(decksBlob(), decks);
  col->tags().register_({"bad\xfe"});
  EXPECT_THROW(col->save(), SaveError);
  reopen();
  EXPECT_NE(col->decks().getID("Kept", false), 0);
  EXPECT_EQ(col->tags().all().size(), 0u);
}

TEST_F(ColTest, DebugLogLinesAndRotation) {
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

TEST(ColCrt, DayZeroStartsAtFourGmtOfTheLocalDate) {
  constexpr int64_t kMidnight = 1773100800;  // 2026-03-10 00:00:00 UTC
  const struct {
    const char* tz;
    int64_t now, crt;
  } cases[] = {// 03:00 local belongs to the previous day, 05:00 to the same day.
               {"UTC", kMidnight + 3 * 3600, kMidnight - 86400 + 4 * 3600},
               {"UTC", kMidnight + 5 * 3600, kMidnight + 4 * 3600},
               // Two hours east: 05:00 local is 03:00 GMT; day zero still begins 04:00 GMT.
               {"Etc/GMT-2", kMidnight + 3 * 3600, kMidnight + 4 * 3600},
               // Five hours west: 23:00 local on the 9th is 04:00 GMT on the 10th.
               {"Etc/GMT+5", kMidnight + 4 * 3600, kMidnight - 86400 + 4 * 3600}};
  test::SavedEnv tz("TZ");
  for (const auto& c : cases) {
    setenv("TZ", c.tz, 1);
    tzset();
    test::TempDir dir;
    Clock::Override clock(c.now);
    auto col = Storage::open(dir.file("c.rivo2"));
    EXPECT_EQ(col ? col->crt() : 0, c.crt) << c.tz << " " << c.now;
  }
}

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
