#include "app/DecksViewController.h"

#include <filesystem>

#include "app/Preferences.h"
#include "app/ProfileManager.h"
#include "app/StudyViewController.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Storage.h"
#include "librivo/ZipWriter.h"
#include "tests/app/ScreenFixture.h"

namespace rivo {
namespace {

using Strings = std::vector<std::string>;

class DecksViewControllerTest : public test::ScreenFixture {
 protected:
  DeckManager& decks() { return app->col()->decks(); }
  Id make(const std::string& name) { return decks().getID(name); }
  // A new card in the deck, enough for the counts and the default deck's rule.
  void addCard(Id did, int64_t id) {
    app->col()->db()->execute(
        "insert into cards values (?, 1, ?, 0, 0, -1, 0, 0, ?, 0, 0, 0, 0, 0, 0, 0, 0, '')",
        {id, did, id});
  }
  void reload() {
    app->dvc()->loadDecks();
    settle();
  }
  // The alerts and questions shown, in order, without the spinners between them.
  Strings said() const {
    Strings out;
    for (const std::string& e : ui.events)
      if (e.rfind("alert:", 0) == 0 || e.rfind("ask:", 0) == 0) out.push_back(e);
    return out;
  }
};

TEST_F(DecksViewControllerTest, TheDefaultDeckHidesOnlyWhenUnusedBesideOthers) {
  EXPECT_EQ(rowIds(), Strings{"Default"});
  EXPECT_EQ(ui.screen["title"], "Decks");

  make("Spanish");
  reload();
  EXPECT_EQ(rowIds(), Strings{"Spanish"});

  addCard(1, 100);
  reload();
  EXPECT_EQ(rowIds(), (Strings{"Default", "Spanish"}));

  app->col()->db()->execute("delete from cards");
  make("Default::Verbs");
  reload();
  EXPECT_EQ(rowIds(), (Strings{"Default", "Spanish"}));
}

TEST_F(DecksViewControllerTest, ExpansionIsKeptAcrossRestartsAndByProfile) {
  make("A::B::C");
  make("A::Bee");
  make("X");
  reload();
  EXPECT_EQ(rowIds(), (Strings{"A", "X"}));
  EXPECT_EQ(row("A")["accessory"], "collapsed");
  EXPECT_FALSE(row("X").contains("accessory"));

  EXPECT_TRUE(send("row", "A", "toggle"));
  EXPECT_TRUE(send("row", "A::B", "toggle"));
  EXPECT_EQ(rowIds(), (Strings{"A", "A::B", "A::B::C", "A::Bee", "X"}));
  EXPECT_EQ(row("A::B::C")["indent"], 2);
  EXPECT_EQ(row("A::B::C")["text"], "C");
  EXPECT_TRUE(send("row", "A", "toggle"));
  EXPECT_EQ(rowIds(), (Strings{"A", "X"}));
  EXPECT_TRUE(send("row", "A", "toggle"));
  launch();
  EXPECT_EQ(rowIds(), (Strings{"A", "A::B", "A::B::C", "A::Bee", "X"}));
  app->pm().create("Other");
  Preferences stored(dir.file("data/Preferences.json"));
  EXPECT_TRUE(stored.boolForKey("User 1_expandedStateForA::B"));
  EXPECT_FALSE(stored.hasKey("Other_expandedStateForA"));

  // Events for rows that are gone, or that can't toggle, change nothing.
  EXPECT_FALSE(send("row", "Gone", "select"));
  EXPECT_FALSE(send("row", "X", "toggle"));
  EXPECT_FALSE(
      app->nc()->dispatch(ui.screen["id"].get<uint64_t>() + 100, {"row", "A", "toggle", {}}));
}

TEST_F(DecksViewControllerTest, CountsAndFilteredDecks) {
  Id did = make("Big");
  for (int i = 0; i < 1200; ++i) addCard(did, 1000 + i);
  Json* conf = decks().confForDid(Json(did));
  (*conf)["new"]["perDay"] = 999;
  decks().save(conf);
  decks().newDyn("Cram");
  reload();
  Json counts = row("Big")["counts"];
  EXPECT_EQ(counts[0]["text"], "0");
  EXPECT_EQ(counts[1]["text"], "999");
  EXPECT_EQ(row("Cram")["tone"], "filtered");
  EXPECT_EQ(DecksViewController::_thousandPlus(1000), "1000+");
  EXPECT_EQ(DecksViewController::_thousandPlus(5000), "1000+");
}

TEST_F(DecksViewControllerTest, RenameAndAddRefuseWithTheirMessages) {
  make("Spanish");
  make("French");
  reload();
  auto rename = [&](const std::string& from, const std::string& to) {
    ui.events.clear();
    send("row", from, "menu");
    EXPECT_EQ(ui.events.at(0),
              "text:Rename Deck|Enter new deck name:|[" + from + "]|Cancel|Rename");
    ui.type(to);
    settle();
    return ui.events.size() > 1 ? ui.events.at(1) : "";
  };
  EXPECT_EQ(rename("Spanish", ""), "alert:Need Deck Name|Cannot rename a deck without a name.");
  EXPECT_EQ(rename("Spanish", "French"), "alert:Deck Exists|A deck with that name already exists.");
  EXPECT_EQ(rename("Spanish", "A::"), "alert:|Invalid deck name.");
  EXPECT_EQ(rename("Spanish", "Languages::Spanish"), "spinner:Checking...");
  EXPECT_EQ(rowIds(), (Strings{"French", "Languages"}));
  // Below itself: the registry refuses, and the user is told, not the program ended.
  EXPECT_EQ(rename("Languages", "Languages::Spanish::Old").rfind("alert:", 0), 0u);

  auto add = [&](const std::string& name) {
    ui.events.clear();
    send("button", "addExport");
    EXPECT_EQ(ui.events.at(0),
              "sheet:Add/Export|Import File...|Export File...|Backups...|Add Empty Deck|Create "
              "Filtered Deck|Cancel");
    ui.sheetAnswers.back()(3);
    ui.type(name);
    settle();
    return ui.events.size() > 2 ? ui.events.at(2) : "";
  };
  EXPECT_EQ(add(""), "alert:Need Deck Name|Cannot create a deck without a name.");
  EXPECT_EQ(add("French"), "alert:Deck Exists|A deck with that name already exists.");
  EXPECT_EQ(add("::"), "alert:|Invalid deck name.");
  add("German");
  EXPECT_EQ(rowIds(), (Strings{"French", "German", "Languages"}));
  EXPECT_EQ(decks().current()->value("name", ""), "German");
}

TEST_F(DecksViewControllerTest, DeleteRules) {
  Id spanish = make("Spanish");
  addCard(spanish, 100);
  addCard(1, 101);
  decks().newDyn("Cram");
  reload();
  send("row", "Default", "delete");
  EXPECT_EQ(ui.events.back(), "alert:Cannot delete|The default deck cannot be deleted.");

  send("row", "Cram", "delete");  // filtered: at once
  EXPECT_EQ(rowIds(), (Strings{"Default", "Spanish"}));

  ui.events.clear();
  send("row", "Spanish", "delete");
  EXPECT_EQ(ui.events.back(), "ask:Confirm|Are you sure you wish to delete this deck?|No|Yes");
  ui.answers.back()(1);
  settle();
  EXPECT_EQ(rowIds(), Strings{"Default"});
  EXPECT_EQ(app->col()->db()->scalarInt("select count() from cards"), 1);
}

TEST_F(DecksViewControllerTest, SelectingOpensTheDeckAndReloadsAfterAnHourOnResume) {
  make("Spanish");
  reload();
  EXPECT_TRUE(send("row", "Spanish", "select"));
  EXPECT_EQ(app->nc()->depth(), 2u);
  EXPECT_EQ(app->nc()->top(), app->svc());
  EXPECT_EQ(ui.screen["back"], "Decks");
  EXPECT_EQ(decks().current()->value("name", ""), "Spanish");
  EXPECT_TRUE(send("back"));

  // On resume, a load only when the last is more than an hour old.
  Clock::Override clock(2e9);
  reload();
  ui.events.clear();
  clock.advance(3600);
  app->onResume();
  settle();
  EXPECT_TRUE(ui.events.empty());
  clock.advance(1);
  app->onResume();
  settle();
  EXPECT_EQ(ui.events, (Strings{"spinner:Checking...", "hide"}));
}

// A package of one note in the deck "Imported", written at `path`.
void writePackage(const std::string& path, const std::string& scratch) {
  std::filesystem::create_directories(scratch);
  const std::string file = scratch + "/collection.rivo2";
  {
    auto col = Storage::open(file);
    const Id did = col->decks().getID("Imported");
    const Id mid = jsonInt((*col->models().current())["id"]);
    col->db()->run("insert into notes values (1, 'g', ?, 1, 0, '', 'a\037b', '', 0, 0, '')", {mid});
    col->db()->run("insert into cards values (2,1,?,0,1,0,0,0,1,0,0,0,0,0,0,0,0,'')", {did});
    col->close();
  }
  ZipWriter zip(path);
  zip.add("collection.rivo2", test::readFile(file));
  zip.add("media", "{}");
  ASSERT_TRUE(zip.close());
}

TEST_F(DecksViewControllerTest, ImportFromDocumentsConfirmsTheReplaceAndOffersToDeleteTheFile) {
  send("button", "addExport");
  ui.sheetAnswers.back()(0);
  const std::string documents = app->pm().backupFolder();
  EXPECT_EQ(ui.events.back(),
            "alert:Cannot Import|No file found to import. Make sure you have placed the "
            "collection.rpkg file in the Documents folder (" +
                documents + ").");

  writePackage(documents + "/collection.rpkg", dir.file("src"));
  ui.events.clear();
  send("button", "addExport");
  ui.sheetAnswers.back()(0);
  ASSERT_TRUE(app->dispatch().main().runUntil([&] { return !ui.answers.empty(); },
                                              std::chrono::seconds(5)));
  EXPECT_EQ(ui.events.back(),
            "ask:Confirm Replace|Are you sure you want to replace your collection with the "
            "imported file? This action cannot be undone.|Cancel|Replace");
  ui.answers.back()(1);
  settle();
  EXPECT_EQ(ui.events.at(2), "spinner:Importing...");
  EXPECT_EQ(said().back(), "alert:|Import complete.");
  EXPECT_EQ(said().at(1),
            "ask:Delete Import File|Delete the collection.rpkg file after import?|No|Yes");
  EXPECT_EQ(rowIds(), Strings{"Imported"});
  ASSERT_EQ(ui.answers.size(), 2u);
  ui.answers.back()(1);  // "Delete the collection.rpkg file after import?"
  EXPECT_FALSE(std::filesystem::exists(documents + "/collection.rpkg"));
}

TEST_F(DecksViewControllerTest, AnUploadMergesAndAFailureStillEndsWithImportComplete) {
  const std::string folder = dir.file("data/tmp/upload-1");
  std::filesystem::create_directories(folder);
  writePackage(folder + "/shared.rpkg", dir.file("src"));
  EXPECT_EQ(ui.screen["toolbar"][1]["accept"], ".rpkg");
  EXPECT_TRUE(send("button", "import", "upload",
                   {{"name", "shared.rpkg"}, {"path", folder + "/shared.rpkg"}}));
  EXPECT_EQ(said(), Strings{"alert:|Import complete."});
  EXPECT_EQ(rowIds(), (Strings{"Imported"}));
  EXPECT_FALSE(std::filesystem::exists(folder)) << "the upload is removed";

  std::filesystem::create_directories(folder);
  test::writeFile(folder + "/bad.rpkg", "junk");
  ui.events.clear();
  send("button", "import", "upload", {{"name", "bad.rpkg"}, {"path", folder + "/bad.rpkg"}});
  EXPECT_EQ(said(), (Strings{"alert:|Error importing: The file is not a Rivo package: it can't "
                             "be read as a zip file.",
                             "alert:|Import complete."}));
  EXPECT_FALSE(send("button", "import", "upload", "no object"));
}

}  // namespace
}  // namespace rivo
