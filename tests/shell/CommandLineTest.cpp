// Runs the real `rivo` binary the way a user does and checks what it prints and returns.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Note.h"
#include "librivo/Storage.h"
#include "librivo/ZipWriter.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

struct Result {
  int status = -1;
  std::string out, err;
};

std::string quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

// Standard input comes from `input`: nothing by default, or a file of keys.
Result rivo(const std::string& args, const test::TempDir& scratch,
            const std::string& input = "/dev/null") {
  std::string errPath = scratch.file("stderr.txt");
  std::string cmd =
      std::string(RIVO_BINARY) + " " + args + " 2>" + quote(errPath) + " <" + quote(input);
  Result r;
  FILE* p = popen(cmd.c_str(), "r");
  std::array<char, 4096> buf{};
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) r.out.append(buf.data(), n);
  int status = pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.err = test::readFile(errPath);
  return r;
}

class CommandLine : public ::testing::Test {
 protected:
  std::string data() const { return quote(dir.file("data")); }
  std::string collection(const std::string& profile = "User 1") const {
    return dir.file("data/profiles/" + profile + "/collection.rivo2");
  }
  test::TempDir dir;
  test::TempDir scratch;
};

TEST_F(CommandLine, InitCreatesWhatIsMissingAndPrintsTheCollection) {
  Result r = rivo("--data " + data() + " init", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, collection() + "\n");
  EXPECT_TRUE(std::filesystem::exists(collection()));
  EXPECT_TRUE(std::filesystem::is_directory(dir.file("data/Documents")));
  EXPECT_TRUE(std::filesystem::is_directory(dir.file("data/tmp")));
  EXPECT_TRUE(std::filesystem::exists(dir.file("data/Preferences.json")));

  r = rivo("--data " + data() + " --profile Work init", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, collection("Work") + "\n");
}

TEST_F(CommandLine, CheckRepairsAndReportsOrSaysAllIsWell) {
  ASSERT_EQ(rivo("--data " + data() + " init", scratch).status, 0);
  Result r = rivo("--data " + data() + " check", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Database rebuilt and optimized.\n");
  {
    DB db(collection());
    db.run("insert into cards values (1, 999, 1, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '')");
    db.commit();
  }
  r = rivo("--data " + data() + " check", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Deleted 1 cards with missing note.\n");
}

TEST_F(CommandLine, BadUsageExitsTwoAndHelpZero) {
  EXPECT_EQ(rivo("--nonsense", scratch).status, 2);
  EXPECT_EQ(rivo("frobnicate", scratch).status, 2);
  Result r = rivo("init --help", scratch);
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Usage:"), std::string::npos);
  EXPECT_EQ(rivo("--help", scratch).status, 0);
}

// Every command would pay for loading the HTTP client and server and the TLS libraries under
// them: rivo links none of them, opens libcurl for a sync, and hands serving to rivo-web.
TEST(Binary, LinksNoHttpOrTlsLibraryAndHandsServingToRivoWeb) {
  std::string cmd = std::string("readelf -d ") + quote(RIVO_BINARY);
  std::unique_ptr<FILE, int (*)(FILE*)> p(popen(cmd.c_str(), "r"), pclose);
  ASSERT_TRUE(p);
  std::string out;
  std::array<char, 4096> buf{};
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), p.get())) > 0) out.append(buf.data(), n);
  ASSERT_NE(out.find("NEEDED"), std::string::npos);
  for (const char* library : {"libcurl", "httplib", "libssl", "libcrypto"})
    EXPECT_EQ(out.find(library), std::string::npos) << out;

  // Without rivo-web beside it, serving fails with the one line that names it.
  test::TempDir alone;
  std::filesystem::copy_file(RIVO_BINARY, alone.file("rivo"));
  const std::string err = alone.file("err");
  const int status =
      std::system((quote(alone.file("rivo")) + " --data " + quote(alone.file("data")) +
                   " serve --no-browser >/dev/null 2>" + quote(err))
                      .c_str());
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_NE(test::readFile(err).find("needs the program rivo-web"), std::string::npos)
      << test::readFile(err);
}

TEST_F(CommandLine, ProblemsGiveOneLineAndExitOne) {
  // A data folder that isn't there (for anything but init and the application).
  Result r = rivo("--data " + data() + " check", scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  EXPECT_EQ(r.err.rfind("rivo: ", 0), 0u);
  EXPECT_FALSE(std::filesystem::exists(dir.file("data")));

  // A data folder that is a file.
  test::writeFile(dir.file("file"), "x");
  r = rivo("--data " + quote(dir.file("file")) + " init", scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(test::readFile(dir.file("file")), "x");

  // Profile names that can't be used.
  for (const char* name : {"a_b", "../up", "a/b", "", "  "}) {
    r = rivo("--data " + data() + " --profile " + quote(name) + " init", scratch);
    EXPECT_EQ(r.status, 1) << name << ": " << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("up")));

  // A profile that doesn't exist isn't made by a plain start.
  ASSERT_EQ(rivo("--data " + data() + " init", scratch).status, 0);
  r = rivo("--data " + data() + " --profile Nobody serve --no-browser", scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(std::filesystem::exists(dir.file("data/profiles/Nobody")));
}

TEST_F(CommandLine, ADamagedCollectionIsMovedAsideAndAFreshOneOpens) {
  ASSERT_EQ(rivo("--data " + data() + " init", scratch).status, 0);
  std::string junk = "not a collection at all\n";
  test::writeFile(collection(), junk);
  Result r = rivo("--data " + data() + " check", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("Your collection couldn't be loaded."), std::string::npos) << r.err;
  EXPECT_EQ(test::readFile(dir.file("data/Documents/corrupt.rivo2")), junk);
  DB db(collection());
  EXPECT_EQ(toText(*db.scalar("pragma integrity_check")), "ok");
}

// Notes of the default two-field type, each with its card moved into the named deck.
void addNotes(const std::string& path, const std::vector<std::array<std::string, 3>>& notes) {
  std::unique_ptr<Col> col = Storage::open(path);
  ASSERT_TRUE(col);
  for (const auto& [front, back, deck] : notes) {
    std::unique_ptr<Note> note = col->newNote();
    note->set("Front", front);
    note->set("Back", back);
    ASSERT_EQ(col->addNote(*note), 1);
    col->db()->run("update cards set did = ? where nid = ?", {col->decks().getID(deck), note->id});
  }
  col->close();
}

size_t occurrences(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

class Study : public CommandLine {
 protected:
  void SetUp() override {
    ASSERT_EQ(rivo("--data " + data() + " init", scratch).status, 0);
    addNotes(collection(),
             {{"<div>Capital of <b>France</b>?</div>", "Paris<br>on the Seine", "Default"},
              {"Capital of Peru?", "Lima &amp; nowhere else", "Default"},
              {"¿Cómo estás?", "<i>Bien</i>", "Spanish"}});
  }
  // Runs `rivo study ARGS` with these keys on standard input.
  Result study(const std::string& keys, const std::string& args = "") {
    test::writeFile(scratch.file("keys"), keys);
    return rivo("--data " + data() + " study " + args, scratch, scratch.file("keys"));
  }
  int64_t count(const std::string& sql) { return DB(collection()).scalarInt(sql); }
};

TEST_F(Study, ShowsEachSideAsPlainTextAndRecordsTheAnswers) {
  // Reveal, Easy, reveal, Easy, quit: both new cards graduate.
  Result r = study(" 3 3q");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.find('<'), std::string::npos) << r.out;
  // The answer side leaves out the question it repeats.
  EXPECT_EQ(occurrences(r.out, "Capital of France?"), 1u) << r.out;
  EXPECT_NE(r.out.find("\nParis\non the Seine\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Lima & nowhere else"), std::string::npos);
  EXPECT_NE(r.out.find("3: Easy ("), std::string::npos);
  // The card on the screen counts, and its queue is marked.
  EXPECT_NE(r.out.find("[2] + 0 + 0"), std::string::npos);
  EXPECT_NE(r.out.find("[1] + 0 + 0"), std::string::npos);
  EXPECT_EQ(r.out.find("Cómo"), std::string::npos) << "another deck's card";
  EXPECT_EQ(count("select count() from revlog where ease = 3"), 2);
  EXPECT_EQ(count("select count() from cards where queue = 2 and did = 1"), 2);

  // Nothing is due any more; the end of input quits without a word.
  r = study("");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Congratulations! You have finished this deck for now."), std::string::npos)
      << r.out;
}

TEST_F(Study, UndoTakesBackTheAnswerAndServesThatCardAgain) {
  // Undo with nothing done; reveal, Again; undo on the next question; reveal, quit.
  Result r = study("u 1u q");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Nothing to undo."), std::string::npos);
  size_t undone = r.out.find("Undone.");
  ASSERT_NE(undone, std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Capital of France?", undone), std::string::npos) << r.out;
  EXPECT_EQ(count("select count() from revlog"), 0);
  EXPECT_EQ(count("select count() from cards where queue = 0 and type = 0 and reps = 0"), 3);
}

TEST_F(Study, DeckPicksTheDeckByNameAndAnUnknownNameChangesNothing) {
  const int64_t mod = count("select mod from col");
  Result r = study(" 3q", "--deck Nowhere");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("rivo: ", 0), 0u) << r.err;
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(count("select mod from col"), mod);
  EXPECT_EQ(count("select count() from revlog"), 0);

  r = study(" 3q", "--deck spanish");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("¿Cómo estás?"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\nBien\n"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("France"), std::string::npos) << r.out;
  EXPECT_EQ(count("select count() from revlog where cid in (select id from cards where did != 1)"),
            1);
}

TEST_F(CommandLine, MediaCheckPrintsTheReport) {
  ASSERT_EQ(rivo("--data " + data() + " init", scratch).status, 0);
  {
    DB db(collection());
    db.run(
        "insert into notes values (1, 'g', 1, 0, 0, '', '<img src=\"gone.png\">', '', 0, 0, '')");
    db.commit();
  }
  test::writeFile(dir.file("data/profiles/User 1/media/spare.png"), "x");
  Result r = rivo("--data " + data() + " media-check", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "1 file(s) referenced in notes but missing file:\ngone.png\n\n"
            "1 file(s) present but not used by any notes:\nspare.png\n");

  // Deleting needs a terminal's yes or --yes: a script never deletes by accident.
  r = rivo("--data " + data() + " media-check --delete-unused < /dev/null", scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(std::filesystem::exists(dir.file("data/profiles/User 1/media/spare.png")));
  r = rivo("--data " + data() + " media-check --delete-unused --yes", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Unused files removed.\n"), std::string::npos) << r.out;
  EXPECT_FALSE(std::filesystem::exists(dir.file("data/profiles/User 1/media/spare.png")));
}

TEST_F(Study, SearchPrintsIdsWithSortFieldsAndTakesNoSqlFromTheCommandLine) {
  auto search = [&](const std::string& args) {
    return rivo("--data " + data() + " search " + args, scratch);
  };
  std::string expected;
  for (const Row& row :
       DB(collection())
           .all("select c.id, n.sfld from cards c, notes n where c.nid = n.id and n.sfld like "
                "'capital%' order by n.sfld"))
    expected += toText(row[0]) + "\t" + toText(row[1]) + "\n";
  Result r = search("--order browser capital");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, expected);
  EXPECT_NE(r.out.find("\tCapital of France?\n"), std::string::npos) << r.out;

  r = search("--notes -- -deck:default");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            std::to_string(count("select nid from cards where did != 1")) + "\t¿Cómo estás?\n");

  const int64_t cards = count("select count() from cards");
  EXPECT_EQ(search(quote("'; drop table cards; --")).out, "");
  r = search("--order " + quote("c.id; delete from cards") + " capital");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(count("select count() from cards"), cards);
}

TEST_F(Study, FilterBuildsRebuildsAndRefusesANormalDeck) {
  auto filter = [&](const std::string& args) {
    return rivo("--data " + data() + " filter " + args, scratch);
  };
  Result r = filter("Drill --search deck:Default --order due --limit 5");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "2 card(s) gathered in 'Drill'.\n");
  EXPECT_EQ(count("select count() from cards where odid != 0 and due < 0"), 2);

  // A rebuild sends those home and gathers by the new search.
  r = filter("Drill --search deck:Spanish --order 1");
  EXPECT_EQ(r.out, "1 card(s) gathered in 'Drill'.\n") << r.err;
  EXPECT_EQ(count("select count() from cards where odid != 0"), 1);
  EXPECT_EQ(count("select count() from cards where did = 1 and odid = 0 and due > 0"), 2);

  // The named deck is rebuilt, not the one selected.
  EXPECT_EQ(filter("Other --search deck:Default").out, "2 card(s) gathered in 'Other'.\n");
  EXPECT_EQ(filter("Drill --search deck:Spanish").out, "1 card(s) gathered in 'Drill'.\n");

  // No match is not an error, and a deck made for it leaves no trace.
  r = filter("Empty --search 'deck:Nowhere'");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "No cards: The provided search did not match any cards.\n");
  EXPECT_EQ(count("select instr(decks, '\"Empty\"') from col"), 0);

  const int64_t mod = count("select mod from col");
  for (const char* bad : {"Spanish --search deck:Default", "Drill --search x --order sideways",
                          "\"$(printf 'Dr\\377ill')\" --search deck:Default",
                          "Drill --search \"$(printf 'x\\377')\""}) {
    r = filter(bad);
    EXPECT_EQ(r.status, 1) << bad;
    EXPECT_EQ(r.err.rfind("rivo: ", 0), 0u) << r.err;
  }
  EXPECT_EQ(count("select mod from col"), mod);
  EXPECT_EQ(filter("Drill").status, 2) << "the search is required";
}

TEST_F(Study, ImportMergesOrReplacesAndRefusesABadPackageInOneLine) {
  const std::string source = dir.file("src/collection.rivo2");
  std::filesystem::create_directories(dir.file("src"));
  addNotes(source, {{"Hola", "Hello", "Spanish::Greetings"}});
  const std::string package = dir.file("shared deck.rpkg");
  ZipWriter zip(package);
  zip.add("collection.rivo2", test::readFile(source));
  zip.add("media", "{}");
  ASSERT_TRUE(zip.close());

  Result r = rivo("--data " + data() + " import " + quote(package), scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "1 cards imported.\nImport complete.\n");
  EXPECT_EQ(count("select count() from notes"), 4);
  EXPECT_EQ(rivo("--data " + data() + " import " + quote(package), scratch).out,
            "0 cards imported.\nImport complete.\n");

  // Without a terminal to ask on, a replace goes ahead.
  r = rivo("--data " + data() + " import --replace " + quote(package), scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(count("select count() from notes"), 1);

  test::writeFile(dir.file("bad.rpkg"), "not a zip");
  r = rivo("--data " + data() + " import " + quote(dir.file("bad.rpkg")), scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err,
            "rivo: Error importing: The file is not a Rivo package: it can't be read as a zip "
            "file.\n");
  EXPECT_EQ(count("select count() from notes"), 1);
}

TEST_F(Study, ExportBackupListAndRestoreEachSayWhatTheyDid) {
  const std::string rivoData = "--data " + data() + " ";
  Result r = rivo(rivoData + "export " + quote(dir.file("es.rpkg")) + " --deck Spanish --no-sched",
                  scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Exported 1 cards and 0 media files to " + dir.file("es.rpkg") + ".\n");
  for (const std::string& bad : {"export " + quote(dir.file("none/x.rpkg")),
                                 "export " + quote(dir.file("x.rpkg")) + " --deck Nope"}) {
    r = rivo(rivoData + bad, scratch);
    EXPECT_EQ(r.status, 1) << bad;
    EXPECT_EQ(r.err.rfind("rivo: Error in export: ", 0), 0u) << r.err;
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("x.rpkg")));

  const std::string backups = dir.file("data/Documents/");
  r = rivo(rivoData + "backup", scratch);
  EXPECT_EQ(r.out, "Backup written: " + backups + "backup-User 1-1.rpkg\n") << r.err;
  EXPECT_EQ(rivo(rivoData + "backup", scratch).out.rfind("No backup was needed", 0), 0u);
  EXPECT_EQ(rivo(rivoData + "backup --force", scratch).status, 0);
  r = rivo(rivoData + "backups", scratch);
  EXPECT_EQ(occurrences(r.out, "backup-User 1-"), 2u) << r.out;

  // The restore backs up the state it replaces first (number 3), then reverts to number 1.
  addNotes(collection(), {{"Added later", "", "Default"}});
  r = rivo(rivoData + "restore 1", scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Reverted to backup. The collection as it was is kept in " + backups +
                       "backup-User 1-3.rpkg.\n");
  EXPECT_EQ(count("select count() from notes"), 3);
  r = rivo(rivoData + "restore 42", scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "rivo: There is no backup 42 in " + dir.file("data/Documents") +
                       " (rivo backups lists them).\n");
}

TEST_F(Study, StatsWriteAPageThatNeedsNothingElse) {
  const std::string rivoData = "--data " + data() + " ";
  Result r =
      rivo(rivoData + "stats --period life --whole --out " + quote(dir.file("s.html")), scratch);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Wrote " + dir.file("s.html") + "\n");
  const std::string page = test::readFile(dir.file("s.html"));
  EXPECT_EQ(page.rfind("<meta charset=\"utf-8\"><title>Statistics: Collection</title>", 0), 0u);
  EXPECT_EQ(occurrences(page, "<script src="), 0u);
  EXPECT_EQ(occurrences(page, "jQuery v3"), 1u);
  EXPECT_EQ(occurrences(page, "$.plot($(\"#"), 3u);  // no reviews: forecast, buttons, types
  // The current deck to standard output; bad usage.
  r = rivo(rivoData + "stats", scratch);
  EXPECT_NE(r.out.find("<title>Statistics: Default</title>"), std::string::npos);
  EXPECT_NE(r.out.find("Total cards:</td><td><b>2</b>"), std::string::npos);
  EXPECT_EQ(rivo(rivoData + "stats --period week", scratch).status, 2);
  r = rivo(rivoData + "stats --out " + quote(dir.file("none/s.html")), scratch);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "rivo: can't write " + dir.file("none/s.html") + "\n");
}

}  // namespace
}  // namespace rivo

namespace rivo {
namespace {

std::string text(const std::string& path, const std::string& sql) {
  return toText(*DB(path).scalar(sql));
}

TEST_F(Study, AddWritesOneNoteWithItsCardsAndRefusesWhatCantBeAdded) {
  auto add = [&](const std::string& args, const std::string& input = "/dev/null") {
    return rivo("--data " + data() + " add " + args, scratch, input);
  };
  const int64_t notesBefore = count("select count() from notes");
  Result r =
      add("--deck Spanish --tags 'verb irregular' --type 'Basic (and reversed card)' "
          "ser 'to be'");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string nid = r.out.substr(0, r.out.find('\t'));
  EXPECT_EQ(r.out, nid + "\t2\n");
  EXPECT_EQ(count("select count() from cards where nid = " + nid +
                  " and did = (select did from cards c, notes n where c.nid = n.id and "
                  "n.sfld = '¿Cómo estás?')"),
            2);
  EXPECT_EQ(text(collection(), "select tags from notes where id = " + nid), " irregular verb ");

  // Long HTML from a script; the current deck when none is named.
  test::writeFile(scratch.file("back"), "<ul>\n<li>a</li>\n</ul>\n");
  r = add("'Front from a script' -", scratch.file("back"));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(text(collection(), "select flds from notes where sfld = 'Front from a script'"),
            "Front from a script\x1f<ul>\n<li>a</li>\n</ul>");

  // A duplicate is added, with a word on standard error.
  r = add("'Capital of Peru?' Lima");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("same first field"), std::string::npos) << r.err;

  const int64_t notes = count("select count() from notes");
  EXPECT_EQ(notes, notesBefore + 3);
  for (const auto& [args, message] : std::vector<std::pair<std::string, std::string>>{
           {"--type Nope a b", "rivo: there is no note type named 'Nope'\n"},
           {"--deck Nope a b", "rivo: there is no deck named 'Nope'\n"},
           {"only-one", "rivo: 'Basic' has 2 fields (Front, Back), but 1 were given\n"},
           {"'' back", "rivo: This note would not generate any cards.\n"},
           {"- -", "rivo: only one field can be read from standard input (-)\n"},
           {"a \"$(printf 'b\\377')\"", "rivo: field 2 isn't valid UTF-8 text\n"},
           {"--tags \"$(printf 'x\\376')\" a b", "rivo: the tags aren't valid UTF-8 text\n"}}) {
    r = add(args);
    EXPECT_EQ(r.status, 1) << args;
    EXPECT_EQ(r.err, message) << args;
    EXPECT_EQ(r.out, "") << args;
  }
  EXPECT_EQ(count("select count() from notes"), notes);
}

}  // namespace
}  // namespace rivo
