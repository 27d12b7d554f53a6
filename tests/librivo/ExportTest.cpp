// Packages written by the exporter are read back through the real importer into an empty
// collection, and compared with what was exported; failures must leave no file and the
// collection as it was.
#include "librivo/RivoPackageExporter.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "librivo/DeckManager.h"
#include "librivo/MediaManager.h"
#include "librivo/RivoPackageImporter.h"
#include "librivo/ZipReader.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

namespace fs = std::filesystem;
using test::kBasicId;
using Strings = std::vector<std::string>;

class Export : public test::CollectionTest {
 protected:
  void SetUp() override {
    CollectionTest::SetUp();
    fs::create_directories(dir.file("tmp"));
    col->setTmpDir(dir.file("tmp"));
    DeckManager& dm = col->decks();
    lang = dm.getID("Lang");
    french = dm.getID("Lang::French");
    other = dm.getID("Other");
    const Id group = dm.confIdForName("Slow");
    dm.getConf(Json(group))->at("new")["perDay"] = 3;
    dm.setConf(*dm.getDeck(Json(french)), group);
    dm.save(dm.getDeck(Json(french)));

    // A review card in French with its history, shown now in a filtered deck; a new card in
    // Lang; a suspended review card in Other; each note with a picture of its own.
    filtered = dm.newDyn("Cram");
    card(note("bonjour\037<img src=\"fr.jpg\">"), french, 2, 2, 40, filtered);
    card(note("lang\037[sound:la.mp3]"), lang, 0, 0, 1);
    card(note("other\037<img src=\"ot.jpg\">"), other, 2, -1, 50);
    col->db()->run("insert into revlog values (1, ?, 0, 3, 10, 4, 2500, 5000, 1)", {nextId - 1});
    for (const char* name : {"fr.jpg", "la.mp3", "ot.jpg", "unused.png"})
      test::writeFile(dir.file(std::string("media/") + name), std::string("bytes of ") + name);
    col->save();
  }

  Id note(const std::string& flds) {
    const Id nid = insertNote(flds, kBasicId, " t ");
    col->db()->run("update notes set guid = ? where id = ?", {"g" + std::to_string(nid), nid});
    return nid;
  }
  // A card at the due of its queue; one in a filtered deck keeps its home in odid.
  void card(Id nid, Id home, int type, int queue, int64_t due, Id shownIn = 0) {
    col->db()->run("insert into cards values (?,?,?,0,0,-1,?,?,?,?,2500,4,1,0,?,?,0,'')",
                   {nextId++, nid, shownIn ? shownIn : home, int64_t{type}, int64_t{queue},
                    shownIn ? int64_t{-100000} : due, int64_t{type == 2 ? 12 : 0},
                    shownIn ? due : int64_t{0}, shownIn ? home : Id{0}});
  }

  // "" on success, else the error.
  std::string exportTo(const std::string& path, std::optional<Id> did = {}, bool sched = true,
                       bool media = true) {
    RivoPackageExporter exporter(*col, did);
    exporter.includeSched = sched;
    exporter.includeMedia = media;
    std::string error;
    const bool ok = exporter.copyInto(path, &error);
    EXPECT_EQ(ok, error.empty());
    return error;
  }
  // An empty profile that imports the package.
  std::unique_ptr<Col> importIntoEmpty(const std::string& package) {
    fs::create_directories(dir.file("other"));
    auto target = Storage::open(dir.file("other/collection.rivo2"), true, false, true);
    std::string error;
    EXPECT_TRUE(RivoPackageImporter(*target, package).runAndReplaceCollection(false, &error))
        << error;
    return target;
  }
  static Strings column(Col& c, const std::string& sql) {
    Strings out;
    for (const Row& row : c.db()->all(sql)) {
      std::string line;
      for (const Value& v : row) line += (line.empty() ? "" : "|") + toText(v);
      out.push_back(line);
    }
    return out;
  }
  static Strings names(const std::string& mediaDir) {
    Strings out;
    for (const auto& e : fs::directory_iterator(mediaDir)) out.push_back(e.path().filename());
    std::sort(out.begin(), out.end());
    return out;
  }

  Id lang = 0, french = 0, other = 0, filtered = 0;
};

TEST_F(Export, TheWholeCollectionComesBackWithItsSchedulingDecksGroupsTypesAndMedia) {
  ASSERT_EQ(exportTo(dir.file("all.rpkg")), "");
  ZipReader zip(dir.file("all.rpkg"));
  EXPECT_EQ(zip.read("media"), R"({"0":"fr.jpg","1":"la.mp3","2":"ot.jpg","3":"unused.png"})");
  EXPECT_TRUE(zip.find("0")->stored);
  ASSERT_TRUE(col->db()) << "the collection is open again";

  auto target = importIntoEmpty(dir.file("all.rpkg"));
  EXPECT_EQ(
      column(*target,
             "select n.flds, c.type, c.queue, c.due, c.ivl, c.reps from cards c, "
             "notes n where c.nid = n.id order by n.sfld"),
      (Strings{"bonjour\037<img src=\"fr.jpg\">|2|2|40|12|4", "lang\037[sound:la.mp3]|0|0|1|0|4",
               "other\037<img src=\"ot.jpg\">|2|-1|50|12|4"}));
  EXPECT_EQ(target->db()->scalarInt("select count() from revlog"), 1);
  DeckManager& dm = target->decks();
  // The card shown in the filtered deck is back in French, with the group of French.
  EXPECT_EQ(dm.name(Json(target->db()->scalarInt("select did from cards where ivl = 12 and "
                                                 "queue = 2"))),
            "Lang::French");
  EXPECT_EQ(jsonInt(dm.confForDid(Json(dm.getID("Lang::French", false)))->at("new")["perDay"]), 3);
  EXPECT_EQ(target->models().get(kBasicId)->value("name", ""), "Two-sided");
  EXPECT_EQ(names(target->media().dir()), (Strings{"fr.jpg", "la.mp3", "ot.jpg"}));
  EXPECT_EQ(test::readFile(target->media().dir() + "/fr.jpg"), "bytes of fr.jpg");
  target->close();
}

TEST_F(Export, ADeckHoldsItsChildrenAndOnlyTheMediaItsNotesUse) {
  ASSERT_EQ(exportTo(dir.file("lang.rpkg"), lang), "");
  ZipReader zip(dir.file("lang.rpkg"));
  EXPECT_EQ(zip.read("media"), R"({"0":"fr.jpg","1":"la.mp3"})");

  auto target = importIntoEmpty(dir.file("lang.rpkg"));
  EXPECT_EQ(column(*target,
                   "select n.sfld, c.queue, c.due from cards c, notes n "
                   "where c.nid = n.id order by n.sfld"),
            (Strings{"bonjour|2|40", "lang|0|1"}));
  Strings decks = target->decks().allNames();
  std::sort(decks.begin(), decks.end());
  EXPECT_EQ(decks, (Strings{"Default", "Lang", "Lang::French"}));
  EXPECT_EQ(target->models().get(kBasicId)->value("name", ""), "Two-sided");
  EXPECT_EQ(names(target->media().dir()), (Strings{"fr.jpg", "la.mp3"}));
  target->close();
}

TEST_F(Export, WithoutSchedulingEveryCardIsNewAndNoHistoryGoesAlong) {
  ASSERT_EQ(exportTo(dir.file("new.rpkg"), std::nullopt, false, false), "");
  ZipReader zip(dir.file("new.rpkg"));
  EXPECT_EQ(zip.read("media"), "{}");
  auto target = importIntoEmpty(dir.file("new.rpkg"));
  EXPECT_EQ(column(*target, "select type, queue, ivl, reps, lapses, odid from cards"),
            (Strings{"0|0|0|0|0|0", "0|0|0|0|0|0", "0|0|0|0|0|0"}));
  EXPECT_EQ(target->db()->scalarInt("select count() from revlog"), 0);
  EXPECT_FALSE(target->decks().byName("Cram")) << "a filtered deck is scheduling";
  EXPECT_TRUE(names(target->media().dir()).empty());
  target->close();
  // The collection itself keeps its scheduling.
  EXPECT_EQ(sqlInt("select count() from cards where type = 2"), 2);
}

TEST_F(Export, BadTargetsAndAVanishedDeckSayWhyAndLeaveNothing) {
  const std::string before = rowText("select count(), sum(due), sum(queue) from cards");
  EXPECT_EQ(exportTo(dir.file("nowhere/x.rpkg")),
            "The folder " + dir.file("nowhere") + " doesn't exist.");
  fs::create_directories(dir.file("folder.rpkg"));
  EXPECT_EQ(exportTo(dir.file("folder.rpkg")), dir.file("folder.rpkg") + " is a folder.");
  // A place no file can be made in, whatever the permissions say.
  EXPECT_NE(exportTo("/proc/x.rpkg"), "");
  EXPECT_FALSE(fs::exists("/proc/x.rpkg"));
  col->decks().removeDeck(Json(other));
  EXPECT_EQ(exportTo(dir.file("other.rpkg"), other), "The deck to export no longer exists.");
  EXPECT_FALSE(fs::exists(dir.file("other.rpkg")));
  EXPECT_TRUE(fs::is_empty(dir.file("tmp")));
  ASSERT_TRUE(col->db());
  EXPECT_EQ(rowText("select count(), sum(due), sum(queue) from cards"), before);
}

// Runs an export of the collection at `colPath` in a child process, which opens it itself (the
// parent has it closed) and ends with 0 on success, 3 on a failure that left the collection open,
// 1 on any other; `inChild` prepares the child's limits.
int exportInChild(const std::string& colPath, const std::string& target,
                  const std::function<void(Col&)>& inChild) {
  const pid_t child = fork();
  if (child == 0) {
    auto c = Storage::open(colPath, true, false, true);
    if (!c) _exit(2);
    inChild(*c);
    std::string error;
    const bool ok = RivoPackageExporter(*c).copyInto(target, &error);
    _exit(ok ? 0 : c->db() ? 3 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST_F(Export, AFullDiskOrAKilledProcessLeaveNoFileAndTheCollectionAsItWas) {
  test::writeFile(dir.file("media/big.bin"), std::string(300000, 'x'));
  col->close();
  const std::string before = test::readFile(path());
  test::writeFile(dir.file("old.rpkg"), "an older export");

  // Files may grow to 200 KB only, so the write of the big media file fails as on a full disk;
  // the older file stays.
  EXPECT_EQ(exportInChild(path(), dir.file("old.rpkg"),
                          [](Col&) {
                            signal(SIGXFSZ, SIG_IGN);
                            rlimit small{200000, 200000};
                            setrlimit(RLIMIT_FSIZE, &small);
                          }),
            3);
  EXPECT_EQ(test::readFile(dir.file("old.rpkg")), "an older export");

  // Killed while the collection is being copied.
  EXPECT_EQ(
      exportInChild(path(), dir.file("new.rpkg"),
                    [](Col& c) { c.setProgressSink([](const std::string&) { raise(SIGKILL); }); }),
      -SIGKILL);
  EXPECT_FALSE(fs::exists(dir.file("new.rpkg")));
  EXPECT_EQ(test::readFile(path()), before);
  open();
}

}  // namespace
}  // namespace rivo
