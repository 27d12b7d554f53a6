// Backups as the application makes them, through the backups screen and on their own: their
// numbers, pruning and limits, that each imports anywhere, that a revert brings back exactly the
// backed-up collection, and that nothing but this profile's backups is ever removed. Also the
// export screen, and the upgrade of an older install at launch.
#include "app/BackupFolder.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "app/BackupManager.h"
#include "app/ExportViewController.h"
#include "app/ProfileManager.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/RivoPackageImporter.h"
#include "librivo/Storage.h"
#include "librivo/ZipReader.h"
#include "tests/app/ScreenFixture.h"

namespace rivo {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

class BackupTest : public test::ScreenFixture {
 protected:
  Col& col() { return *app->col(); }
  std::string docs() { return app->pm().backupFolder(); }
  std::string file(const std::string& name) { return docs() + "/" + name; }
  BackupFolder folder() { return BackupFolder(docs()); }
  BackupFolder::Result backup(bool force) {
    return folder().backup(col(), app->pm().currentProfile(), force);
  }
  // Files of the backup folder named like backups.
  Strings names() {
    Strings out;
    for (const auto& e : fs::directory_iterator(docs()))
      if (e.path().filename().string().starts_with("backup-")) out.push_back(e.path().filename());
    std::sort(out.begin(), out.end());
    return out;
  }
  // A copy of the newest backup made `minutes` ago.
  void age(const std::string& name, int minutes) {
    fs::last_write_time(file(name),
                        fs::file_time_type::clock::now() - std::chrono::minutes(minutes));
  }
  // Saved, as each backup closes and reopens the collection.
  void setConf(const char* key, int value) {
    col().conf()[key] = value;
    col().setMod();
    col().save();
  }
  bool shown(const std::string& event) {
    return std::find(ui.events.begin(), ui.events.end(), event) != ui.events.end();
  }
  void addDeck(const std::string& name) {
    col().decks().getID(name);
    col().setMod();
    col().save();
  }
  Strings deckNames(Col& c) {
    Strings out = c.decks().allNames();
    std::sort(out.begin(), out.end());
    return out;
  }
};

TEST_F(BackupTest, NumbersRiseAsIntegersAndPruningKeepsTheLimit) {
  // With none there, the first is made even when not forced; a second within the hour isn't.
  EXPECT_EQ(backup(false).outcome, BackupFolder::Result::Outcome::written);
  EXPECT_EQ(backup(false).outcome, BackupFolder::Result::Outcome::notRequired);
  age("backup-User 1-1.rpkg", 61);
  EXPECT_EQ(backup(false).outcome, BackupFolder::Result::Outcome::written);
  EXPECT_EQ(names(), (Strings{"backup-User 1-1.rpkg", "backup-User 1-2.rpkg"}));

  // "rmBackupFreq" in minutes; "rmBackups" 3 with 5, 6 and 7 there leaves 6, 7 and 8. Numbers
  // compare as integers, and another profile's "User 10" is not ours.
  setConf("rmBackupFreq", 5);
  setConf("rmBackups", 3);
  fs::rename(file("backup-User 1-1.rpkg"), file("backup-User 1-5.rpkg"));
  fs::rename(file("backup-User 1-2.rpkg"), file("backup-User 1-6.rpkg"));
  fs::copy_file(file("backup-User 1-6.rpkg"), file("backup-User 1-7.rpkg"));
  test::writeFile(file("backup-User 10-99.rpkg"), "another profile's");
  age("backup-User 1-7.rpkg", 6);
  EXPECT_EQ(backup(false).outcome, BackupFolder::Result::Outcome::written);
  EXPECT_EQ(names(), (Strings{"backup-User 1-6.rpkg", "backup-User 1-7.rpkg",
                              "backup-User 1-8.rpkg", "backup-User 10-99.rpkg"}));
  for (int n = 9; n <= 10; ++n) {
    age("backup-User 1-" + std::to_string(n - 1) + ".rpkg", 6);
    EXPECT_EQ(backup(false).outcome, BackupFolder::Result::Outcome::written);
  }
  EXPECT_EQ(names(), (Strings{"backup-User 1-10.rpkg", "backup-User 1-8.rpkg",
                              "backup-User 1-9.rpkg", "backup-User 10-99.rpkg"}));

  // 0 turns automatic backups off; a forced one is still made, and prunes nothing.
  setConf("rmBackups", 0);
  age("backup-User 1-10.rpkg", 600);
  EXPECT_EQ(backup(false).outcome, BackupFolder::Result::Outcome::disabled);
  EXPECT_EQ(backup(true).outcome, BackupFolder::Result::Outcome::written);
  EXPECT_EQ(names().size(), 5u);

  // A backup holds the collection stored, and an empty media list.
  ZipReader zip(file("backup-User 1-11.rpkg"));
  EXPECT_TRUE(zip.find("collection.rivo2")->stored);
  EXPECT_EQ(zip.read("media"), "{}");
}

TEST_F(BackupTest, FilesNamedLikeBackupsThatAreNotAreNeitherPrunedNorOverwritten) {
  setConf("rmBackups", 1);
  test::writeFile(file("backup-User 1-1.rpkg"), "the user's own notes");
  fs::create_directories(file("backup-User 1-2.rpkg"));
  test::writeFile(file("backup-User 1-x.rpkg"), "not numbered");
  const BackupFolder::Result r = backup(true);
  ASSERT_EQ(r.outcome, BackupFolder::Result::Outcome::written);
  EXPECT_EQ(r.path, file("backup-User 1-3.rpkg"));
  EXPECT_EQ(r.foreign, (Strings{"backup-User 1-1.rpkg", "backup-User 1-2.rpkg"}));
  EXPECT_EQ(test::readFile(file("backup-User 1-1.rpkg")), "the user's own notes");
  EXPECT_NE(folder().foreignMessage(r.foreign).find("left as they are"), std::string::npos);
  // The real backup 3 is pruned by the next, the others stay.
  backup(true);
  EXPECT_FALSE(fs::exists(file("backup-User 1-3.rpkg")));
  EXPECT_TRUE(fs::exists(file("backup-User 1-1.rpkg")));
  EXPECT_TRUE(fs::is_directory(file("backup-User 1-2.rpkg")));
}

TEST_F(BackupTest, ABackupImportsAnywhereAndRevertingBringsItBackAfterASafetyCopy) {
  addDeck("Before");
  const std::string saved = backup(true).path;
  addDeck("After");

  // Into an empty collection elsewhere, through the importer.
  fs::create_directories(dir.file("elsewhere"));
  auto other = Storage::open(dir.file("elsewhere/collection.rivo2"), true, false, true);
  std::string error;
  ASSERT_TRUE(RivoPackageImporter(*other, saved).runAndReplaceCollection(true, &error)) << error;
  EXPECT_EQ(deckNames(*other), (Strings{"Before", "Default"}));
  other->close();

  // Through the screen: the question, a copy of the state now, the revert.
  app->nc()->push(std::make_shared<BackupManager>(*app));
  settle();
  EXPECT_EQ(ui.screen["title"], "Backups");
  ui.events.clear();
  send("row", "backup-User 1-1.rpkg", "select");
  ASSERT_EQ(ui.events.at(0),
            "ask:Revert to backup|Revert to backup-User 1-1.rpkg? Any changes made since the "
            "backup will be lost.|No|Yes");
  ui.answers.back()(1);
  settle();
  EXPECT_TRUE(shown("alert:|Reverted to backup."));
  EXPECT_EQ(app->nc()->depth(), 1u);
  EXPECT_EQ(deckNames(col()), (Strings{"Before", "Default"}));
  ZipReader safety(file("backup-User 1-2.rpkg"));
  ASSERT_TRUE(safety.ok());

  // Something that isn't a backup is refused before anything changes.
  test::writeFile(file("backup-User 1-9.rpkg"), "junk");
  EXPECT_FALSE(folder().restore(col(), "User 1", file("backup-User 1-9.rpkg"), nullptr, &error));
  EXPECT_EQ(error, "backup-User 1-9.rpkg is not a Rivo backup.");
  EXPECT_EQ(deckNames(col()), (Strings{"Before", "Default"}));
}

TEST_F(BackupTest, TheScreenHoldsItsLimitsToTheirRangesAndCreatesAndDeletes) {
  app->nc()->push(std::make_shared<BackupManager>(*app));
  settle();
  EXPECT_EQ(row("max")["field"], "15");
  EXPECT_EQ(row("freq")["field"], "60");
  send("row", "max", "change", "250");
  send("row", "freq", "change", "0");
  send("row", "max", "change", "lots");
  EXPECT_EQ(col().conf()["rmBackups"], 100);
  EXPECT_EQ(col().conf()["rmBackupFreq"], 1);

  send("button", "create");
  EXPECT_EQ(rowIds(), (Strings{"max", "freq", "backup-User 1-1.rpkg"}));
  send("row", "backup-User 1-1.rpkg", "delete");
  EXPECT_EQ(rowIds(), (Strings{"max", "freq"}));
  EXPECT_FALSE(fs::exists(file("backup-User 1-1.rpkg")));
}

TEST_F(BackupTest, AKilledBackupLeavesNoFileAndTheCollectionAsItWas) {
  addDeck("Kept");
  const std::string colPath = col().path();
  app->unloadCollection();
  settle();
  for (const std::string& name : names()) fs::remove(file(name));
  const std::string before = test::readFile(colPath);
  const pid_t child = fork();
  if (child == 0) {
    auto c = Storage::open(colPath, true, false, true);
    BackupFolder(docs()).backup(*c, "User 1", true, true,
                                [](uint64_t, uint64_t) { raise(SIGKILL); });
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(names().empty());
  EXPECT_EQ(test::readFile(colPath), before);

  // A backup folder that can't be written to says so.
  auto c = Storage::open(colPath, true, false, true);
  BackupFolder::Result r = BackupFolder(dir.file("missing")).backup(*c, "User 1", true);
  EXPECT_EQ(r.outcome, BackupFolder::Result::Outcome::failed);
  EXPECT_EQ(r.error, "The folder " + dir.file("missing") + " doesn't exist.");
  EXPECT_TRUE(c->db());
  c->close();
}

TEST_F(BackupTest, TheExportScreenSavesTheDeckAndOffersItForDownload) {
  addDeck("Lang::French");
  auto screen = std::make_shared<ExportViewController>(*app);
  app->nc()->push(screen);
  settle();
  EXPECT_EQ(rowIds(), (Strings{"media", "sched", "collection", "deck:Default", "deck:Lang",
                               "deck:Lang::French"}));
  EXPECT_EQ(row("media")["switch"], true);
  send("row", "sched", "change", false);
  EXPECT_EQ(row("sched")["switch"], false);
  ui.events.clear();
  send("row", "deck:Lang", "select");
  EXPECT_TRUE(shown("download:Lang.rpkg|" + file("Lang.rpkg")));
  EXPECT_TRUE(ZipReader(file("Lang.rpkg")).find("collection.rivo2"));
  EXPECT_EQ(app->nc()->depth(), 1u);

  EXPECT_EQ(ExportViewController::fileNameFor("", true), "collection.rpkg");
  EXPECT_EQ(ExportViewController::fileNameFor("A::B/C", true), "A - BC.rpkg");
  EXPECT_EQ(ExportViewController::fileNameFor("collection", true), "deck collection.rpkg");
}

TEST_F(BackupTest, AnOlderSingleCollectionInstallMovesIntoTheProfileAtLaunch) {
  addDeck("Old");
  const std::string colPath = col().path();
  app.reset();
  const std::string data = dir.file("data");
  fs::rename(colPath, data + "/collection.rivo2");
  test::writeFile(data + "/collection.rivo2-journal", "");
  fs::create_directories(data + "/media");
  test::writeFile(data + "/media/a.jpg", "a");
  launch();
  EXPECT_FALSE(fs::exists(data + "/collection.rivo2"));
  EXPECT_FALSE(fs::exists(data + "/collection.rivo2-journal"));
  EXPECT_EQ(test::readFile(data + "/profiles/User 1/media/a.jpg"), "a");
  EXPECT_EQ(deckNames(col()), (Strings{"Default", "Old"}));

  // The first generation: deck files go to Documents, media into the profile, the index goes.
  app.reset();
  fs::create_directories(data + "/database");
  {
    DB index(data + "/database/decks.db.sql");
    index.run("create table decks (name text, file text)");
    index.run("insert into decks values ('Spanish verbs.deck', 'd1')");
    index.commit();
    index.close();
  }
  test::writeFile(data + "/database/d1.sql", "deck bytes");
  fs::create_directories(data + "/media/d1");
  test::writeFile(data + "/media/d1/b.mp3", "b");
  launch();
  EXPECT_FALSE(fs::exists(data + "/database/decks.db.sql"));
  EXPECT_EQ(test::readFile(file("Spanish verbs.rivo")), "deck bytes");
  EXPECT_EQ(test::readFile(data + "/profiles/User 1/media/b.mp3"), "b");
}

}  // namespace
}  // namespace rivo
