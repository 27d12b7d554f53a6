// Packages are built here from a collection written with plain SQL and a zip written entry by
// entry, then merged into or replacing the fixture's collection; results are checked row by row.
#include "librivo/RivoPackageImporter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>

#include "librivo/Checksum.h"
#include "librivo/DeckManager.h"
#include "librivo/MediaManager.h"
#include "librivo/Scheduler.h"
#include "librivo/TagManager.h"
#include "librivo/ZipWriter.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

namespace fs = std::filesystem;
using test::kBasicId;
using test::kClozeId;

using Entries = std::vector<std::pair<std::string, std::string>>;

class PackageImport : public test::CollectionTest {
 protected:
  void SetUp() override {
    CollectionTest::SetUp();
    fs::create_directories(dir.file("tmp"));
    col->setTmpDir(dir.file("tmp"));
    fs::create_directories(dir.file("src"));
    src = Storage::open(dir.file("src/collection.rivo2"), true, false, true);
    src->models().models() = col->models().models();
    src->models().save();
    col->save();
  }

  // Source rows, written as plain SQL.
  Id srcNote(const std::string& guid, const std::string& flds, int64_t mod, Id mid = kBasicId,
             const std::string& tags = " from-src ") {
    const Id id = srcId++;
    src->db()->run("insert into notes values (?,?,?,?,5,?,?,'',0,0,'')",
                   {id, guid, mid, mod, tags, flds});
    return id;
  }
  Id srcCard(Id nid, int ord, Id did, int type, int queue, int64_t due, int64_t odue = 0,
             Id odid = 0) {
    const Id id = srcId++;
    src->db()->run("insert into cards values (?,?,?,?,1,5,?,?,?,10,2500,3,1,0,?,?,0,'')",
                   {id, nid, did, int64_t{ord}, int64_t{type}, int64_t{queue}, due, odue, odid});
    return id;
  }

  static void writeZip(const std::string& path, const Entries& entries) {
    ZipWriter zip(path);
    for (const auto& [name, bytes] : entries) zip.add(name, bytes, name == "media" ? -1 : 0);
    ASSERT_TRUE(zip.close());
  }
  // The source collection, its media list and files, as the package format lays them out.
  Entries entries(const std::map<std::string, std::string>& media = {}) {
    if (src) {
      src->close();
      src.reset();
    }
    Entries out = {{"collection.rivo2", test::readFile(dir.file("src/collection.rivo2"))}};
    Json map = Json::object();
    for (const auto& [name, bytes] : media) {
      const std::string num = std::to_string(map.size());
      map[num] = name;
      out.emplace_back(num, bytes);
    }
    out.emplace_back("media", map.dump());
    return out;
  }
  std::string package(const std::map<std::string, std::string>& media = {}) {
    writeZip(pkg(), entries(media));
    return pkg();
  }
  std::string pkg() const { return dir.file("in.rpkg"); }

  // "" on success, else the error.
  std::string import(bool replace = false, const std::string& path = {}) {
    RivoPackageImporter importer(*col, path.empty() ? pkg() : path);
    std::string error;
    bool ok = importer.runAndReplaceCollection(replace, &error);
    log = importer.log();
    EXPECT_EQ(ok, error.empty());
    return error;
  }

  // Every file under the fixture's folder, but the log and the open transaction's journal.
  std::map<std::string, std::string> snapshot() const {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(dir.path())) {
      const std::string p = e.path().string();
      if (e.is_regular_file() && !p.ends_with("-journal") && !p.ends_with("debug.log") &&
          p != pkg())
        files[p] = test::readFile(p);
    }
    return files;
  }
  std::string media(const std::string& name) const {
    return test::readFile(dir.file("media/" + name));
  }

  std::unique_ptr<Col> src;
  Id srcId = 5000;
  std::vector<std::string> log;
};

TEST_F(PackageImport, MergeBringsNotesCardsHistoryDecksAndOptions) {
  const Id did = src->decks().getID("Lang::French");
  Json* deck = src->decks().getDeck(Json(did));
  (*deck)["desc"] = "Bonjour";
  const Id conf = src->decks().confIdForName("Slow");
  src->decks().setConf(*deck, conf);
  src->setCrt(src->crt() - 10 * 86400);  // the source's day 0 lies ten days earlier
  const int64_t srcToday = (intTime() - src->crt()) / 86400, today = col->sched().today();
  src->save();
  const Id nid = srcNote("g1", "<b>Front</b>\037Back", 1700000000);
  const Id review = srcCard(nid, 0, did, 2, 2, srcToday + 3);
  const Id learning = srcCard(nid, 1, did, 1, 1, 1773150000);
  src->db()->run("insert into revlog values (1, ?, 7, 3, 4, 1, 2500, 6000, 1)", {review});
  insertNote("x\037y");  // the target has notes of its own
  col->save();
  package();

  ASSERT_EQ(import(), "");
  EXPECT_EQ(log, std::vector<std::string>{"2 cards imported."});
  EXPECT_EQ(rowText("select * from notes where guid = 'g1'"),
            std::to_string(nid) + "|g1|" + std::to_string(kBasicId) +
                "|1700000000|-1| from-src |<b>Front</b>\037Back|Front|" +
                std::to_string(fieldChecksum("<b>Front</b>")) + "|0|");
  const Id newDid = col->decks().getID("Lang::French", false);
  ASSERT_NE(newDid, 0);
  EXPECT_EQ(col->decks().getDeck(Json(newDid))->value("desc", ""), "Bonjour");
  EXPECT_EQ(jsonInt((*col->decks().getDeck(Json(newDid)))["conf"]), conf);
  EXPECT_EQ(col->decks().getConf(Json(conf))->value("name", ""), "Slow");
  EXPECT_NE(col->decks().getID("Lang", false), 0) << "the parent comes too";
  const std::string common = std::to_string(nid) + "|" + std::to_string(newDid);
  EXPECT_EQ(
      rowText("select nid, did, mod, usn, type, queue, due from cards where id = ?", {review}),
      common + "|" + std::to_string(intTime()) + "|-1|2|2|" + std::to_string(today + 3))
      << "a review day keeps its distance from today";
  EXPECT_EQ(rowText("select queue, due from cards where id = ?", {learning}), "1|1773150000");
  EXPECT_EQ(rowText("select * from revlog"),
            "1|" + std::to_string(review) + "|-1|3|4|1|2500|6000|1");
  EXPECT_EQ(col->tags().all(), std::vector<std::string>{"from-src"});
  EXPECT_EQ(jsonInt(col->conf()["nextPos"]), sqlInt("select max(due)+1 from cards where type=0"));
}

TEST_F(PackageImport, NotesMatchByGuidAndTheNewerIsKept) {
  const Id newer = insertNote("old\037old");
  const Id tied = insertNote("mine\037mine");
  const Id older = insertNote("mine\037mine");
  const Id otherType = insertNote("cloze\037", kClozeId);
  for (Id n : {newer, tied, older, otherType}) insertCard(n, 0);  // guids are the ids, mod 100
  col->save();
  srcNote(std::to_string(newer), "new\037new", 101, kBasicId, " fresh ");
  srcNote(std::to_string(tied), "theirs\037theirs", 100);
  srcNote(std::to_string(older), "theirs\037theirs", 99);
  const Id n4 = srcNote(std::to_string(otherType), "f\037b", 500);
  srcCard(n4, 1, 1, 0, 0, 1);  // a template the target's note doesn't have
  package();

  ASSERT_EQ(import(), "");
  EXPECT_EQ(rowText("select id, mod, usn, tags, flds from notes where id = ?", {newer}),
            std::to_string(newer) + "|101|-1| fresh |new\037new");
  EXPECT_EQ(rowText("select flds from notes where id = ?", {tied}), "mine\037mine");
  EXPECT_EQ(rowText("select flds from notes where id = ?", {older}), "mine\037mine");
  EXPECT_EQ(rowText("select mid, flds from notes where id = ?", {otherType}),
            std::to_string(kClozeId) + "|cloze\037");
  EXPECT_EQ(sqlInt("select count() from notes"), 4);
  EXPECT_EQ(sqlInt("select count() from cards where nid = ? and ord = 1", {otherType}), 1)
      << "the missing card joins the target's note";
}

TEST_F(PackageImport, TakenIdsMoveUpBy999) {
  const Id taken = insertNote("a\037b");
  col->db()->run(
      "insert into notes select id + 999, 'x', mid, mod, usn, tags, flds, sfld, "
      "csum, flags, data from notes where id = ?",
      {taken});
  const Id cardTaken = insertCard(taken, 0);
  col->save();
  srcId = taken;
  const Id nid = srcNote("new", "c\037d", 1);
  srcId = cardTaken;
  srcCard(nid, 0, 1, 0, 0, 1);
  srcId = cardTaken + 999;  // would collide with the first card's new id
  srcCard(nid, 1, 1, 0, 0, 1);
  package();

  ASSERT_EQ(import(), "");
  EXPECT_EQ(sqlInt("select id from notes where guid = 'new'"), taken + 2 * 999);
  EXPECT_EQ(col->db()->list("select id from cards where nid = ? order by ord", {taken + 2 * 999}),
            (std::vector<Value>{cardTaken + 999, cardTaken + 2 * 999}));
}

TEST_F(PackageImport, NoteTypesMatchByStructureAndAClashGetsTheNextIdAndAUniqueName) {
  Json changed = src->models().models()[std::to_string(kBasicId)];
  changed["flds"][1]["name"] = "Verso";
  src->models().models()[std::to_string(kBasicId)] = changed;
  src->models().save();
  srcNote("g", "a\037b", 1);
  srcNote("h", "{{c1::x}}\037", 1, kClozeId);
  package();
  const size_t types = col->models().models().size();

  ASSERT_EQ(import(), "");
  // The next id holds the cloze type, another structure: the one after it is free.
  const Json* added = col->models().get(kBasicId + 2);
  ASSERT_TRUE(added);
  EXPECT_EQ((*added)["flds"][1]["name"], "Verso");
  EXPECT_NE((*added)["name"], "Two-sided") << "renamed beside the target's own";
  EXPECT_EQ((*col->models().get(kBasicId))["flds"][1]["name"], "Back");
  EXPECT_EQ(sqlInt("select mid from notes where guid = 'g'"), kBasicId + 2);
  EXPECT_EQ(sqlInt("select mid from notes where guid = 'h'"), kClozeId) << "same structure";
  EXPECT_EQ(col->models().models().size(), types + 1);
}

TEST_F(PackageImport, FilteredCardsComeHomeSuspendedStaySoAndBuriedAreAsTheSourceOpensThem) {
  const Id home = src->decks().getID("Home");
  const Id dyn = src->decks().newDyn("Cram");
  const int64_t srcToday = src->sched().today();
  src->save();
  const Id nid = srcNote("g", "a\037b", 1);
  const Id filtered = srcCard(nid, 0, dyn, 2, 2, -100000, srcToday + 4, home);
  const Id suspended = srcCard(nid, 1, home, 2, -1, srcToday + 9);
  const Id n2 = srcNote("h", "c\037d", 1);
  const Id buried = srcCard(n2, 0, home, 2, -2, srcToday + 2);
  const Id learnt = srcCard(n2, 1, dyn, 1, 1, 1773150000, 77, home);
  package();

  ASSERT_EQ(import(), "");
  const std::string target = std::to_string(col->decks().getID("Home", false));
  EXPECT_EQ(col->decks().getID("Cram", false), 0) << "no filtered deck is made";
  const std::string sql = "select did, type, queue, due, odue, odid from cards where id = ?";
  const std::string today = std::to_string(col->sched().today());
  EXPECT_EQ(rowText(sql, {filtered}), target + "|2|2|" + std::to_string(srcToday + 4) + "|0|0");
  EXPECT_EQ(rowText(sql, {suspended}), target + "|2|-1|" + std::to_string(srcToday + 9) + "|0|0");
  EXPECT_EQ(rowText(sql, {buried}), target + "|2|2|" + std::to_string(srcToday + 2) + "|0|0");
  EXPECT_EQ(rowText(sql, {learnt}), target + "|0|0|77|0|0") << "as emptying the deck does";
  EXPECT_EQ(today, std::to_string(srcToday)) << "one day zero: days aren't shifted here";
}

TEST_F(PackageImport, MediaComeWhenUsedAndOtherBytesTakeANameOfTheirOwn) {
  const std::string mid = std::to_string(kBasicId);
  const std::string cafe = "caf\xC3\xA9.jpg";
  test::writeFile(dir.file("media/same.jpg"), "same");
  test::writeFile(dir.file("media/clash.jpg"), "mine");
  test::writeFile(dir.file("media/_kept.css"), "mine");
  srcNote("g", "<img src=\"new.jpg\">[sound:" + cafe + "]\037<img src='clash.jpg'>", 1);
  srcNote("h", "<img src=\"same.jpg\"><img src=\"http://x.org/a.png\">\037[sound:gone.mp3]", 1);
  package({{"new.jpg", "new"},
           {cafe, "cafe"},
           {"same.jpg", "same"},
           {"clash.jpg", "theirs"},
           {"unused.jpg", "u"},
           {"_style.css", "css"},
           {"_kept.css", "theirs"},
           {"latex-1.png", "tex"}});

  ASSERT_EQ(import(), "");
  EXPECT_EQ(rowText("select flds from notes where guid = 'g'"),
            "<img src=\"new.jpg\">[sound:" + cafe + "]\037<img src='clash_" + mid + ".jpg'>");
  EXPECT_EQ(rowText("select flds from notes where guid = 'h'"),
            "<img src=\"same.jpg\"><img src=\"http://x.org/a.png\">\037[sound:gone.mp3]");
  const std::map<std::string, std::string> expected = {{"new.jpg", "new"},
                                                       {cafe, "cafe"},
                                                       {"same.jpg", "same"},
                                                       {"clash.jpg", "mine"},
                                                       {"clash_" + mid + ".jpg", "theirs"},
                                                       {"_style.css", "css"},
                                                       {"_kept.css", "mine"},
                                                       {"latex-1.png", "tex"}};
  std::map<std::string, std::string> folder;
  for (const auto& e : fs::directory_iterator(dir.file("media")))
    folder[e.path().filename().string()] = test::readFile(e.path().string());
  EXPECT_EQ(folder, expected);

  // Again, from a package whose note changed: the alternative name is used, nothing written.
  src = Storage::open(dir.file("src/collection.rivo2"), true, false, true);
  src->db()->run("update notes set mod = 2, flds = '<img src=\"clash.jpg\">' || flds");
  package({{"clash.jpg", "other again"}});
  ASSERT_EQ(import(), "");
  EXPECT_EQ(rowText("select flds from notes where guid = 'g'")
                .rfind("<img src=\"clash_" + mid + ".jpg\"><img src=\"new.jpg\">", 0),
            0u);
  EXPECT_EQ(media("clash_" + mid + ".jpg"), "theirs");
}

TEST_F(PackageImport, ImportingTheSamePackageAgainChangesNothing) {
  const Id nid = srcNote("g", "<img src=\"a.jpg\">\037b", 1);
  srcCard(nid, 0, src->decks().getID("D"), 2, 2, 5);
  src->db()->run("insert into revlog values (1, ?, 7, 3, 4, 1, 2500, 6000, 1)", {nid + 1});
  package({{"a.jpg", "a"}});
  ASSERT_EQ(import(), "");
  const auto before = snapshot();
  const int64_t mod = col->mod();

  ASSERT_EQ(import(), "");
  EXPECT_EQ(log, std::vector<std::string>{"0 cards imported."});
  EXPECT_EQ(col->mod(), mod);
  EXPECT_EQ(snapshot(), before);
}

TEST_F(PackageImport, AnImportOfManyNotesLeavesStatisticsThatSpareTheUnburyingAScan) {
  const std::string unbury = "explain query plan update cards set queue=type where queue=-2";
  const Id did = src->decks().getID("D");
  srcCard(srcNote("first", "a\037b", 1), 0, did, 0, 0, 1);
  package();
  ASSERT_EQ(import(), "");
  EXPECT_THAT(rowText(unbury), ::testing::EndsWith("|SCAN cards")) << "one note is no reason";

  src = Storage::open(dir.file("src/collection.rivo2"), true, false, true);
  for (int i = 0; i < 1000; ++i)
    srcCard(srcNote("g" + std::to_string(i), "a\037b", 1), 0, did, 0, 0, i);
  package();
  ASSERT_EQ(import(), "");
  EXPECT_THAT(rowText(unbury), ::testing::HasSubstr("USING INDEX ix_cards_sched (ANY(did)"));
}

TEST_F(PackageImport, ReplaceSwapsTheCollectionAndTrustsSameNameSameSize) {
  srcNote("g", "a\037b", 1);
  test::writeFile(dir.file("media/same-size.jpg"), "AAAA");
  test::writeFile(dir.file("media/other-size.jpg"), "A");
  test::writeFile(dir.file("media/local-only.jpg"), "L");
  insertNote("gone\037gone");
  col->save();
  std::vector<std::string> progress;
  col->setProgressSink([&](const std::string& text) { progress.push_back(text); });
  package({{"same-size.jpg", "BBBB"}, {"other-size.jpg", "BBBB"}, {"new.jpg", "N"}});

  ASSERT_EQ(import(true), "");
  ASSERT_TRUE(col->ok());
  EXPECT_EQ(col->db()->list("select guid from notes"), std::vector<Value>{std::string("g")});
  EXPECT_EQ(media("same-size.jpg"), "AAAA") << "taken as the same file unread";
  EXPECT_EQ(media("other-size.jpg"), "BBBB");
  EXPECT_EQ(media("new.jpg"), "N");
  EXPECT_EQ(media("local-only.jpg"), "L");
  EXPECT_EQ(progress.front(), "Processed 1 media files...");
  EXPECT_FALSE(fs::exists(path() + ".replaced"));
  EXPECT_TRUE(fs::is_empty(dir.file("tmp")));
  reopen();
  EXPECT_EQ(sqlInt("select count() from notes"), 1);
}

TEST_F(PackageImport, ACollectionFileMergesWithItsMediaFolderAndStaysUntouched) {
  srcNote("g", "<img src=\"pic.jpg\">\037b", 1);
  src->close();
  src.reset();
  test::writeFile(dir.file("src/media/pic.jpg"), "pic");
  const std::string before = test::readFile(dir.file("src/collection.rivo2"));
  Rivo2Importer importer(*col, dir.file("src/collection.rivo2"));
  importer.runWithMedia(dir.file("src/media"));
  EXPECT_EQ(media("pic.jpg"), "pic");
  EXPECT_EQ(sqlInt("select count() from notes"), 1);
  EXPECT_EQ(test::readFile(dir.file("src/collection.rivo2")), before);
  EXPECT_THROW(Rivo2Importer(*col, path()).run(), ImportError);
}

// The zip with the claimed uncompressed size of `name` raised in its directory.
std::string claiming(std::string zip, const std::string& name, uint32_t size) {
  for (size_t at = 0; (at = zip.find("PK\x01\x02", at)) != std::string::npos; ++at) {
    const auto u16 = [&](size_t i) { return uint8_t(zip[i]) | uint8_t(zip[i + 1]) << 8; };
    if (zip.compare(at + 46, u16(at + 28), name) != 0) continue;
    for (int i = 0; i < 4; ++i) zip[at + 24 + i] = static_cast<char>(size >> (8 * i));
  }
  return zip;
}

TEST_F(PackageImport, HostilePackagesAreRefusedWholeAndChangeNothing) {
  const Id nid = srcNote("g", "<img src=\"bad.jpg\">\037b", 1);
  srcCard(nid, 0, 1, 0, 0, 1);
  const Entries good = entries();
  const std::string goodZip = dir.file("good.zip");
  writeZip(goodZip, good);
  writeZip(dir.file("notsql.zip"), {{"collection.rivo2", "hello"}, {"media", "{}"}});
  {
    DB db(dir.file("nocol.rivo2"));
    db.run("create table notes (id integer)");
    db.commit();
  }
  const auto withMap = [&](const std::string& map, Entries extra = {}) {
    Entries e = {good.front(), {"media", map}};
    e.insert(e.end(), extra.begin(), extra.end());
    return e;
  };
  Entries damaged = withMap(R"({"0": "bad.jpg"})", {{"0", "0123456789"}});
  const std::string zipped = dir.file("damaged.zip");
  writeZip(zipped, damaged);
  std::string flipped = test::readFile(zipped);
  flipped[flipped.find("0123456789") + 3] = 'X';
  const std::string whole = test::readFile(goodZip);

  struct Case {
    const char* what;
    std::function<void(const std::string&)> make;
    const char* error;
  };
  const auto zip = [&](Entries e) { return [this, e](const std::string& p) { writeZip(p, e); }; };
  const auto bytes = [](std::string b) {
    return [b](const std::string& p) { test::writeFile(p, b); };
  };
  const Case cases[] = {
      {"no collection", zip({{"media", "{}"}}), "has no collection.rivo2 entry"},
      {"map not JSON", zip(withMap("{\"0\": ")), "media list is not a JSON object"},
      {"map an array", zip(withMap("[]")), "media list is not a JSON object"},
      {"no map", zip({good.front()}), "has no media list"},
      {"path component", zip(withMap(R"({"0": "a/b.jpg"})", {{"0", "x"}})), "can't be stored"},
      {"parent", zip(withMap(R"({"0": "../evil.jpg"})", {{"0", "x"}})), "can't be stored"},
      {"absolute", zip(withMap(R"({"0": "/tmp/evil"})", {{"0", "x"}})), "can't be stored"},
      {"backslash", zip(withMap(R"({"0": "..\\evil"})", {{"0", "x"}})), "can't be stored"},
      {"control", zip(withMap(R"({"0": "a\u0001"})", {{"0", "x"}})), "can't be stored"},
      {"entry missing", zip(withMap(R"({"7": "x.jpg"})")), "is missing from it"},
      {"not a zip", bytes("just text"), "can't be read as a zip file"},
      {"truncated", bytes(whole.substr(0, whole.size() / 2)), "can't be read as a zip file"},
      {"not SQLite", bytes(test::readFile(dir.file("notsql.zip"))), "not a Rivo collection"},
      {"no col table",
       zip({{"collection.rivo2", test::readFile(dir.file("nocol.rivo2"))}, {"media", "{}"}}),
       "not a Rivo collection"},
      {"a billion bytes", bytes(claiming(whole, "collection.rivo2", 1000000000)),
       "claims 1000000000 bytes"},
      {"damaged media", bytes(flipped), "\"bad.jpg\" can't be read"},
  };
  const auto before = snapshot();
  for (const Case& c : cases) {
    for (bool replace : {false, true}) {
      SCOPED_TRACE(std::string(c.what) + (replace ? " (replace)" : " (merge)"));
      c.make(pkg());
      EXPECT_NE(import(replace).find(c.error), std::string::npos) << import(replace);
      EXPECT_EQ(snapshot(), before);
      EXPECT_TRUE(col->ok());
    }
  }
  EXPECT_EQ(sqlInt("select count() from notes"), 0);
}

TEST_F(PackageImport, ANoteWhoseTextIsNotUtf8IsRefusedAndChangesNothing) {
  srcNote("g1", "fine\037b", 1);
  srcNote("g2", "fine\037b", 1, kBasicId, " bad\xfe ");
  package();
  const auto before = snapshot();
  for (bool replace : {false, true}) {
    EXPECT_NE(import(replace).find("isn't valid UTF-8"), std::string::npos) << replace;
    EXPECT_EQ(snapshot(), before);
  }
  EXPECT_EQ(sqlInt("select count() from notes"), 0);
}

class FullDisk : public RivoPackageImporter {
 public:
  using RivoPackageImporter::RivoPackageImporter;

 protected:
  uint64_t _freeBytes(const std::string&) override { return 20 << 20; }
};

TEST_F(PackageImport, APackageLargerThanTheFreeSpaceIsRefused) {
  srcNote("g", "a\037b", 1);
  package({{"big.bin", std::string(5 << 20, 'x')}});
  const auto before = snapshot();
  FullDisk importer(*col, pkg());
  std::string error;
  EXPECT_FALSE(importer.runAndReplaceCollection(false, &error));
  EXPECT_EQ(error.rfind("There isn't enough free disk space to import this package", 0), 0u)
      << error;
  EXPECT_EQ(snapshot(), before);
}

TEST_F(PackageImport, AProcessKilledInTheMiddleOfAMergeLeavesTheCollectionAsItWas) {
  // 1,500 notes, the last ones with a picture: the first thousand are written when the first
  // picture is fetched, and the process dies there.
  for (int i = 0; i < 1500; ++i)
    srcCard(srcNote("g" + std::to_string(i), i < 1200 ? "a\037b" : "<img src=\"p.jpg\">\037", 1), 0,
            1, 0, 0, i);
  package({{"p.jpg", "p"}});
  insertNote("mine\037mine");
  col->save();
  col->close();
  const std::string before = test::readFile(path());

  const pid_t child = fork();
  if (child == 0) {
    auto target = Storage::open(path(), true, false, true);
    target->setProgressSink([](const std::string&) { raise(SIGKILL); });
    std::string error;
    RivoPackageImporter(*target, pkg()).runAndReplaceCollection(false, &error);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  open();
  EXPECT_EQ(col->db()->list("select flds from notes"),
            std::vector<Value>{std::string("mine\037mine")});
  col->close();
  EXPECT_EQ(test::readFile(path()), before);
  open();
}

}  // namespace
}  // namespace rivo
