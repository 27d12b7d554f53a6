// The editor and the search screen over fakes: the page's reports as fragments, the rules of
// saving, and the paging of search results.
#include "app/EditViewController.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "app/HTMLAudioPlayer.h"
#include "app/SearchViewController.h"
#include "librivo/MediaManager.h"
#include "librivo/ModelManager.h"
#include "tests/app/StudyFixture.h"

namespace rivo::test {
namespace {

class EditFixture : public StudyFixture {
 protected:
  EditViewController& editor() { return *dynamic_cast<EditViewController*>(app->nc()->top()); }
  // Opens the editor as the "add" action does and lets its page load.
  void openAdd() {
    app->acts().add();
    settle();
    ui.webView->finishLoad();
    settle();
  }
  // The page's report `command` numbered `seq`.
  void report(const std::string& command, int seq, const std::string& data) {
    ui.webView->navigate(
        "http://x/m/t/?page=w1#" + command + ":" + std::to_string(seq) + ":" + data,
        WebView::NavigationType::other);
    settle();
  }
  // From now on the page answers removeFocus() with these fields.
  void pageHolds(int seq, const std::vector<std::string>& fields,
                 const std::vector<std::string>& tags = {}) {
    Json answer{{"seq", seq}, {"fields", fields}, {"tags", tags}};
    ui.webView->answer = [answer](const std::string& script) {
      return script.find("rivo.removeFocus") != std::string::npos ? answer.dump() : "";
    };
  }
  bool saveShown() { return !ui.screen["right"].empty(); }
  int64_t notes() { return col().db()->scalarInt("select count() from notes"); }
};

TEST_F(EditFixture, ReportsSaveFieldsAndTagsOnceAndOldOrBrokenOnesChangeNothing) {
  openAdd();
  EXPECT_EQ(ui.screen["title"], "Add");
  EXPECT_FALSE(ui.screen.contains("back"));
  EXPECT_NE(shown().find("rivo.setFields([[\"Front\",\"\"],[\"Back\",\"\"]]);"), std::string::npos);
  EXPECT_NE(shown().find("rivo.setDeckAndNoteType(\"Default\",\"Basic\")"), std::string::npos);
  EXPECT_FALSE(saveShown());

  report("field", 3, "%7B%22idx%22%3A0%2C%22data%22%3A%22a%3Ab%22%7D");
  EXPECT_EQ(editor().note()->fields[0], "a:b");
  EXPECT_TRUE(saveShown());
  // Older than one applied: dropped. A browser's emptied field counts as empty.
  report("field", 2, R"({"idx":0,"data":"stale"})");
  EXPECT_EQ(editor().note()->fields[0], "a:b");
  report("field", 4, R"({"idx":0,"data":"<br>"})");
  EXPECT_EQ(editor().note()->fields[0], "");
  report("tags", 5, R"(["x","y"])");
  EXPECT_EQ(editor().note()->tags, (std::vector<std::string>{"x", "y"}));
  report("state", 6, R"({"focused":true,"bold":true})");
  EXPECT_EQ(ui.screen["toolbar"][0]["on"], true);
  EXPECT_FALSE(ui.screen["toolbar"][0].contains("enabled"));

  // Out of shape, unsplittable or unknown: logged or ignored, the note untouched.
  report("field", 7, R"({"idx":9,"data":"x"})");
  report("field", 8, R"({"idx":"0","data":1})");
  report("nonsense", 9, "{}");
  EXPECT_TRUE(ui.webView->navigate("http://x/#nocolons", WebView::NavigationType::other) == false);
  EXPECT_TRUE(ui.webView->navigate("http://x/page", WebView::NavigationType::other));
  EXPECT_EQ(editor().note()->fields, (std::vector<std::string>{"", ""}));
}

TEST_F(EditFixture, AddingRefusesANoteWithoutCardsKeepsTagsAndTypeAndMindsADeletedDeck) {
  openAdd();
  pageHolds(2, {"", "only a back"});
  send("key", "save");
  EXPECT_EQ(ui.events.back(), "alert:|This note would not generate any cards.");
  EXPECT_EQ(editor().note()->fields[1], "only a back");
  EXPECT_EQ(notes(), 0);

  // The page's answer carries edits whose reports are still on the way.
  report("tags", 3, R"(["geo"])");
  pageHolds(4, {"France", "Paris"}, {"geo"});
  Id deck = col().decks().getID("Geo");
  col().decks().select(Json(deck));
  editor().setupNewNoteForAdding();
  send("button", "save");
  EXPECT_EQ(notes(), 1);
  EXPECT_EQ(col().db()->scalarInt("select did from cards"), col().decks().getID("Default", false));
  EXPECT_NE(std::find(ui.events.begin(), ui.events.end(), "popup:Added"), ui.events.end());
  EXPECT_EQ(editor().note()->fields, (std::vector<std::string>{"", ""}));
  EXPECT_EQ(editor().note()->tags, (std::vector<std::string>{"geo"}));
  EXPECT_FALSE(saveShown());

  // The chosen deck deleted in another tab: a message, nothing added, the text kept.
  editor().changeDeck();
  settle();
  send("row", std::to_string(deck), "select");
  col().decks().removeDeck(Json(deck), true);
  pageHolds(9, {"Spain", "Madrid"}, {"geo"});
  send("button", "save");
  EXPECT_NE(ui.events.back().find("was deleted"), std::string::npos);
  EXPECT_EQ(notes(), 1);
  EXPECT_EQ(editor().note()->fields[0], "Spain");
  send("button", "save");
  EXPECT_EQ(notes(), 2);
}

TEST_F(EditFixture, EditingSavesOnlyOnSaveClozeNumbersGoPastTheHighestAndTypesKeepValues) {
  const Id nid = addNote("Capital of Peru?", "Lima");
  study();
  app->acts().edit();
  settle();
  ui.webView->finishLoad();
  settle();
  EXPECT_EQ(ui.screen["title"], "Edit");
  EXPECT_NE(shown().find("rivo.setDeckAndNoteType();"), std::string::npos);
  report("field", 1, R"({"idx":1,"data":"Never"})");
  send("key", "cancel");
  EXPECT_EQ(col().getNote(nid)->fields[1], "Lima");
  EXPECT_EQ(app->nc()->top(), app->svc());

  app->acts().edit();
  settle();
  ui.webView->finishLoad();
  pageHolds(2, {"Capital of Peru?", "<b>Lima</b>"});
  send("button", "save");
  EXPECT_EQ(col().getNote(nid)->fields[1], "<b>Lima</b>");

  EXPECT_EQ(EditViewController::highestClozeNumber({"{{c1::a}} {{c3::b}}", "{{c2::c}}"}), 3);
  EXPECT_EQ(EditViewController::highestClozeNumber({"{c1::a}", ""}), 0);

  // Two fields into a type of three: both kept, the third empty.
  openAdd();
  pageHolds(1, {"one", "two"});
  editor().removeFocus();
  Json three = col().models().new_("Three");
  for (const char* name : {"A", "B", "C"})
    col().models().addField(three, col().models().newField(name));
  col().models().addTemplate(three, col().models().newTemplate("Card 1"));
  three["tmpls"][0]["qfmt"] = "{{A}}";
  col().models().add(three);  // and makes it current
  editor().setupNewNoteForAdding();
  EXPECT_EQ(editor().note()->fields, (std::vector<std::string>{"one", "two", ""}));
  send("button", "cloze");
  EXPECT_EQ(ui.screen["toolbar"].size(), 8u);  // no cloze button for a standard type
}

// A second of a 440 Hz tone as 16-bit mono WAV: something the browser could have recorded.
void writeTone(const std::string& path) {
  const uint32_t rate = 8000, samples = rate;
  std::ofstream out(path, std::ios::binary);
  auto u32 = [&](uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
  auto u16 = [&](uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
  out << "RIFF";
  u32(36 + samples * 2);
  out << "WAVEfmt ";
  u32(16), u16(1), u16(1), u32(rate), u32(rate * 2), u16(2), u16(16);
  out << "data";
  u32(samples * 2);
  for (uint32_t i = 0; i < samples; ++i)
    u16(static_cast<uint16_t>(static_cast<int16_t>(8000 * std::sin(i * 2 * M_PI * 440 / rate))));
}

TEST_F(EditFixture, ARecordingIsStoredAsM4aReferencedAndPlayedWhileBadOnesAndRefusalsSaySo) {
  namespace fs = std::filesystem;
  openAdd();
  report("state", 1, R"({"focused":true})");
  send("button", "record");
  EXPECT_NE(shown().find("rivo.saveSelection();"), std::string::npos);

  const std::string upload = dir.file("upload-1");
  writeTone(upload);
  send("button", "record", "upload", Json{{"name", "../../evil.wav"}, {"path", upload}});
  const std::string media = col().media().dir();
  std::vector<std::string> stored;
  for (const auto& f : fs::directory_iterator(media)) stored.push_back(f.path().filename());
  ASSERT_EQ(stored.size(), 1u);
  EXPECT_TRUE(stored[0].starts_with("rec-") && stored[0].ends_with(".m4a")) << stored[0];
  std::ifstream m4a(media + "/" + stored[0], std::ios::binary);
  std::string head(12, '\0');
  m4a.read(head.data(), 12);
  EXPECT_EQ(head.substr(4, 8), "ftypM4A ");
  EXPECT_NE(shown().find("[sound:" + stored[0] + "]"), std::string::npos);
  ASSERT_FALSE(ui.played.empty());
  EXPECT_TRUE(ui.played.back().ends_with(HTMLAudioPlayer::percentEncode(stored[0]) + " (asked)"));
  EXPECT_FALSE(fs::exists(upload));

  // Not a recording: the reason shown, nothing stored, nothing left behind.
  std::ofstream(dir.file("upload-2")) << "#EXTM3U\nfile:///etc/passwd\n";
  send("button", "record", "upload", Json{{"name", "x.webm"}, {"path", dir.file("upload-2")}});
  EXPECT_TRUE(ui.events.back().starts_with("alert:|The recording couldn't be saved: "))
      << ui.events.back();
  EXPECT_EQ(std::distance(fs::directory_iterator(media), fs::directory_iterator()), 1);
  EXPECT_FALSE(fs::exists(dir.file("upload-2")));

  send("button", "record", "failed", Json{{"reason", "denied"}});
  EXPECT_EQ(ui.events.back(),
            "alert:|Please go to your browser's site settings, and allow Rivo to access the "
            "microphone.");
  send("button", "record", "failed", Json{{"reason", "absent"}});
  EXPECT_EQ(ui.events.back(), "alert:|No microphone was found. Connect one, then try again.");
  send("button", "record", "failed", Json{{"reason", "?"}});
  EXPECT_EQ(ui.events.back(), "alert:|Error initializing recorder.");
}

TEST_F(EditFixture, TheOldEditorRefusesAnEmptyFirstFieldAndKeepsTagsAndDeckOnTheType) {
  pm().setObject(true, "useOldEditor");
  const Id deck = col().decks().getID("Geo");
  col().decks().select(Json(deck));
  app->acts().add();
  settle();
  EXPECT_EQ(rowIds(), (std::vector<std::string>{"type", "deck", "f0", "f1", "tags"}));
  EXPECT_EQ(row("deck")["detail"], "Geo");
  send("row", "f1", "change", "line one\nline two");
  send("row", "tags", "change", "b a b ");
  send("key", "save");
  EXPECT_NE(std::find(ui.events.begin(), ui.events.end(),
                      "alert:Cannot save note|The first field is empty."),
            ui.events.end());
  EXPECT_EQ(notes(), 0);
  send("row", "f0", "change", "Front");
  send("button", "save");
  EXPECT_EQ(col().db()->scalarInt("select count() from cards where did = ?", {deck}), 1);
  Note added(col(), col().db()->scalarInt("select id from notes"));
  EXPECT_EQ(added.fields[1], "line one<br>line two");
  EXPECT_EQ(added.tags, (std::vector<std::string>{"a", "b"}));
  // The next note starts empty, with the tags of the last.
  EXPECT_EQ(row("f0")["field"], "");
  EXPECT_EQ(row("tags")["field"], "a b");
}

TEST_F(EditFixture, TheSearchScreenPagesItsRowsAndRunsAgainOnReturn) {
  for (int i = 0; i < 150; ++i) addNote("q" + std::to_string(i), "a");
  col().models().setCurrent(*col().models().byName("Basic (and reversed card)"));
  addNote("<b>two</b> cards", "x");
  app->acts().search();
  settle();
  EXPECT_EQ(ui.screen["search"]["text"], "deck:current ");
  send("search", "", "submit", "deck:current");
  EXPECT_EQ(rowIds().size(), SearchViewController::kPageRows);
  EXPECT_EQ(ui.screen["hasMore"], true);
  send("more");
  EXPECT_EQ(rowIds().size(), 152u);
  EXPECT_FALSE(ui.screen.contains("hasMore"));
  EXPECT_EQ(ui.screen["sections"][0]["rows"][151]["text"], "[Card 2] two cards; x");

  send("row", rowIds()[0], "select");
  EXPECT_EQ(ui.screen["title"], "Edit");
  ui.webView->finishLoad();
  col().remNotes({col().db()->scalarInt("select min(id) from notes")});
  send("key", "cancel");
  EXPECT_EQ(rowIds().size(), 151u);
  send("search", "", "clear");
  EXPECT_TRUE(rowIds().empty());
}

}  // namespace
}  // namespace rivo::test
