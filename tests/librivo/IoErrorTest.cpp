// A save, a database check and adding a note, with the Nth write, sync or lock failing
// (once, or from then on) with an I/O error or a full disk, for every N the work reaches.
// Each run must end either in success or in SaveError naming the reason, and the file must
// then open whole with the state before the work (or, on success, after it).

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "librivo/DeckManager.h"
#include "librivo/Note.h"
#include "librivo/SaveError.h"
#include "tests/librivo/NoteTypeFixture.h"
#include "tests/support/CollectionDump.h"
#include "tests/support/FailingVfs.h"

namespace rivo {
namespace {

using test::FailingVfs;

class IoErrorTest : public test::CollectionTest {
 protected:
  using Work = std::function<void(Col&)>;
  // Reads the file after a run that succeeded: whether the work is all there.
  using Done = std::function<void(DB&)>;

  void SetUp() override {
    CollectionTest::SetUp();
    for (int i = 0; i < 3; ++i) {
      const Id nid = insertNote("q" + std::to_string(i) + "\037a");
      insertCard(nid, 0);
      insertCard(nid, 1);
    }
  }

  // Keeps what the collection holds now as the state every run starts from.
  void keepBase() {
    col->save();
    col->close();
    col.reset();
    std::filesystem::copy_file(path(), base(), std::filesystem::copy_options::overwrite_existing);
    clock.advance(10);
  }
  std::string base() const { return dir.file("base.rivo2"); }

  static void expectWhole(const std::string& path) {
    DB db(path);
    ASSERT_TRUE(db.isOpen());
    EXPECT_EQ(toText(db.scalar("pragma integrity_check").value_or(Value())), "ok");
  }

  // One run: the work with the nth `op` failing. False once n is past every such op.
  bool runOnce(const Work& work, const Done& done, FailingVfs::Op op, int n, int code,
               bool persist) {
    SCOPED_TRACE(testing::Message() << "op " << static_cast<int>(op) << " n " << n << " code "
                                    << code << (persist ? " persistent" : " once"));
    std::filesystem::copy_file(base(), path(), std::filesystem::copy_options::overwrite_existing);
    open();
    _vfs.failAt(op, n, code, persist);
    std::string error;
    try {
      work(*col);
    } catch (const SaveError& e) {
      error = e.what();
      if (error.empty()) error = "(empty)";
    } catch (const std::exception& e) {
      ADD_FAILURE() << "not a SaveError: " << e.what();
      error = e.what();
    }
    const bool fired = _vfs.fired();
    // The disk is well again: what the program does next must find a sound file.
    _vfs.disarm();
    col->closeAndSave(false);
    col.reset();
    expectWhole(path());
    if (error.empty()) {
      DB db(path());
      done(db);
    } else {
      ++failures;
      EXPECT_THAT(error, testing::StartsWith("The collection couldn't be "));
      if (code == SQLITE_FULL && op == FailingVfs::Op::Write) {
        EXPECT_EQ(error, "The collection couldn't be saved: database or disk is full.");
      }
      if (_doneBeforeTheEnd && test::dumpCollection(path(), true) != _before) {
        // The work was committed whole before a last step (which optimises) failed.
        DB db(path());
        done(db);
        ++runs;
        return fired;
      }
      EXPECT_EQ(test::dumpCollection(path(), true), _before) << "the last committed state";
      // And the same work then succeeds on it.
      open();
      work(*col);
      col->closeAndSave(false);
      col.reset();
      DB db(path());
      done(db);
    }
    ++runs;
    return fired;
  }

  void sweep(const Work& work, const Done& done) {
    keepBase();
    _before = test::dumpCollection(base(), true);
    for (FailingVfs::Op op : {FailingVfs::Op::Write, FailingVfs::Op::Sync, FailingVfs::Op::Lock})
      for (int code : {SQLITE_IOERR, SQLITE_FULL})
        for (bool persist : {false, true})
          for (int n = 1; runOnce(work, done, op, n, code, persist); ++n) {
            if (HasFailure()) return;
          }
    // Every kind of op was reached, and some failures surfaced.
    EXPECT_GT(failures, 10);
    RecordProperty("runs", runs);
    RecordProperty("failures", failures);
  }

  FailingVfs _vfs;
  std::string _before;
  // The work commits all it changes before a last step that may still fail.
  bool _doneBeforeTheEnd = false;
  int runs = 0, failures = 0;
};

TEST_F(IoErrorTest, ASave) {
  sweep(
      [](Col& c) {
        c.decks().getID("Added");
        c.db()->run("update cards set due = 7");
        c.save();
      },
      [](DB& db) {
        EXPECT_NE(toText(*db.scalar("select decks from col")).find("\"Added\""), std::string::npos);
        EXPECT_EQ(db.scalarInt("select count() from cards where due != 7"), 0);
      });
}

TEST_F(IoErrorTest, ADatabaseCheck) {
  insertNote("lonely\037");
  const int64_t scm = sqlInt("select scm from col");
  _doneBeforeTheEnd = true;  // vacuum and analyze follow the commit
  sweep(
      [](Col& c) {
        EXPECT_EQ(c.fixIntegrity(), "Deleted 1 notes with missing cards or note types.");
      },
      [scm](DB& db) {
        EXPECT_EQ(db.scalarInt("select count() from notes"), 3);
        EXPECT_GT(db.scalarInt("select scm from col"), scm);
      });
}

TEST_F(IoErrorTest, AddingANote) {
  sweep(
      [](Col& c) {
        auto note = c.newNote();
        note->fields = {"new", "note"};
        ASSERT_EQ(c.addNote(*note), 2);
        c.save();
      },
      [](DB& db) {
        EXPECT_EQ(db.scalarInt("select count() from notes"), 4);
        EXPECT_EQ(db.scalarInt("select count() from cards where nid = (select max(id) from notes)"),
                  2);
      });
}

}  // namespace
}  // namespace rivo
