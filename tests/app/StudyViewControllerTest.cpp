// The review screen with fakes of the page and the player: the loop against the scheduler,
// the page contract, input, typed answers, sounds and the scratchpad.
#include "app/StudyViewController.h"

#include <filesystem>
#include <fstream>
#include <thread>

#include "app/HTMLAudioPlayer.h"
#include "app/TypedAnswer.h"
#include "librivo/Clock.h"
#include "librivo/MediaManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Scheduler.h"
#include "tests/app/StudyFixture.h"

namespace rivo {
namespace {

using SVC = StudyViewController;
constexpr auto npos = std::string::npos;

class StudyViewControllerTest : public test::StudyFixture {
 protected:
  // The current note type's templates, for typed answers and sounds.
  void templates(const std::string& qfmt, const std::string& afmt) {
    Json* m = col().models().current();
    (*m)["tmpls"][0]["qfmt"] = qfmt;
    (*m)["tmpls"][0]["afmt"] = afmt;
    col().models().save(m, true);
  }
  void media(const std::string& name) { std::ofstream(pm().mediaFolder() + "/" + name) << "sound"; }
};

TEST_F(StudyViewControllerTest, TheLoopAnswersWhatTheSchedulerShowsAndSavesEachTime) {
  addNote("first front");
  addNote("second front");
  study();
  ASSERT_EQ(svc().state(), SVC::kQuestion);
  ASSERT_TRUE(svc().card());
  std::string q = shown();
  EXPECT_NE(q.find("rivo.markTapUnready(); document.getElementById('qa').innerHTML = \""), npos);
  EXPECT_NE(q.find(" front"), npos);
  // The class first, so that the card's scripts see it; the scripts then the typing.
  EXPECT_NE(
      q.find("document.body.className = 'card card1';\nrivo.runScripts();\nrivo.setupType();"),
      npos);
  EXPECT_EQ(ui.screen["status"][0]["underline"], true);  // a new card
  EXPECT_EQ(ui.screen["status"][0]["colour"], SVC::kNewColour);
  EXPECT_FALSE(ui.screen.contains("actions"));

  svc().answerCard(3);  // the question shows: nothing happens
  EXPECT_EQ(revlogCount(), 0);
  ui.webView->scripts.clear();
  EXPECT_TRUE(send("key", "space"));
  EXPECT_EQ(svc().state(), SVC::kAnswer);
  EXPECT_NE(shown().find("; window.location = '#answer';"), npos);
  Json buttons = ui.screen["actions"];
  ASSERT_EQ(buttons.size(), 3u);
  EXPECT_EQ(buttons[0]["detail"], "Again");
  EXPECT_EQ(buttons[0]["tone"], "red");
  EXPECT_EQ(buttons[1]["id"], "answerGood");
  EXPECT_EQ(buttons[1]["title"], col().sched().nextIvlStr(*svc().card(), 2, true));
  EXPECT_EQ(buttons[2]["tone"], "tint");

  // "2" on a three-button card is Good; "4" does nothing there.
  Id first = svc().card()->id;
  send("key", "4");
  EXPECT_EQ(revlogCount(), 0);
  send("key", "2");
  EXPECT_EQ(lastEase(), 2);
  EXPECT_EQ(ui.screen["flash"]["icon"], "tickgreen");
  EXPECT_EQ(col().db()->scalarInt("select queue from cards where id = ?", {first}), 1);
  EXPECT_NE(svc().card()->id, first);
  EXPECT_EQ(svc().state(), SVC::kQuestion);
  send("key", "space");
  send("key", "1");
  EXPECT_EQ(lastEase(), 1);
  EXPECT_EQ(ui.screen["flash"]["icon"], "cross");
  EXPECT_EQ(svc().rightCount(), 1);
  EXPECT_EQ(svc().reviews(), 2);
  // Saved after each answer: nothing is left to commit.
  EXPECT_EQ(col().db()->scalarInt("select count() from revlog"), 2);
  EXPECT_FALSE(col().db()->mod);
}

TEST_F(StudyViewControllerTest, TheFinishedMessageAndItsLinks) {
  addNote("only");
  study();
  Id cid = svc().card()->id;
  col().sched().buryCard(cid);
  svc().reset();
  svc().showCurrentOrNextCard();
  EXPECT_FALSE(svc().card());
  EXPECT_EQ(svc().state(), SVC::kQuestion);
  std::string msg = shown();
  EXPECT_NE(msg.find("innerHTML = '<div style=\"font-family: arial;\">'+\"<b>Congratulations!"),
            npos);
  EXPECT_NE(msg.find("<a href=_unbury>"), npos);
  EXPECT_FALSE(ui.screen.contains("status"));
  // A tap set to show the answer does nothing without a card; the link unburies.
  tap("midCenter");
  EXPECT_FALSE(svc().card());
  EXPECT_FALSE(ui.webView->navigate("some/path/_unbury"));
  settle();
  ASSERT_TRUE(svc().card());
  EXPECT_EQ(svc().card()->id, cid);
  ui.events.clear();
  ui.webView->navigate("_cstudy");
  settle();
  EXPECT_EQ(ui.screen["title"], "Custom Study");
  app->nc()->pop();
  // Other links open in the user's browser; the page's own loads go on.
  ui.webView->navigate("https://example.org/help");
  EXPECT_EQ(ui.events.back(), "open:https://example.org/help");
  EXPECT_TRUE(ui.webView->navigate("rivointernal://x/DOMIsReady", WebView::NavigationType::other));
}

TEST_F(StudyViewControllerTest, TapsSwipesAndPinches) {
  addNote("one");
  addNote("two");
  study();
  tap("midCenter");  // "showAnswer" on the question side
  EXPECT_EQ(svc().state(), SVC::kAnswer);
  tap("midCenterA");  // not a zone
  tap("midCenter");   // "off" on the answer side
  EXPECT_EQ(revlogCount(), 0);
  tap("topLeft");  // "answerWrong"
  EXPECT_EQ(lastEase(), 1);

  // Swipes only from the outer sixths (width 600: below 100 or above 500).
  gesture({"swipe", "left", 300, 600, 0});
  EXPECT_EQ(app->nc()->top(), app->svc());
  gesture({"swipe", "left", 501, 600, 0});
  EXPECT_EQ(ui.screen["title"], "Tools");
  send("back");
  pm().setObject("off", "swipeRight");
  gesture({"swipe", "right", 10, 600, 0});
  EXPECT_EQ(app->nc()->top(), app->svc());

  // A pinch grows or shrinks the text within 0.2 and 2.0, at most every 0.1 seconds.
  pm().setFloat(2.0f, "FontScale");
  ui.webView->scripts.clear();
  gesture({"pinch", "", 0, 0, 1.0});
  EXPECT_FLOAT_EQ(pm().floatForKey("FontScale"), 2.0f);
  EXPECT_NE(shown().find("webkitTextSizeAdjust= '200%'\nrivo.resizeImages(0);"), npos);
  pm().setFloat(0.3f, "FontScale");
  gesture({"pinch", "", 0, 0, -1.0});
  EXPECT_FLOAT_EQ(pm().floatForKey("FontScale"), 0.3f) << "within 0.1 seconds of the last";
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  gesture({"pinch", "", 0, 0, -0.01});
  EXPECT_FLOAT_EQ(pm().floatForKey("FontScale"), 0.3f) << "too slow to count";
  gesture({"pinch", "", 0, 0, -1.0});
  EXPECT_FLOAT_EQ(pm().floatForKey("FontScale"), 0.2f);
}

TEST_F(StudyViewControllerTest, TypedAnswersCompareWhatWasTyped) {
  templates("{{Front}} {{type:Back}}", "{{FrontSide}}<hr id=answer>{{type:Back}}");
  addNote("capital of France", "Paris");
  Clock::Override clock(2e9);
  study();
  EXPECT_EQ(shown().find("[[type:"), npos);
  ASSERT_TRUE(ui.screen.contains("field"));
  send("field", "type", "begin");
  EXPECT_FALSE(ui.screen.contains("keys")) << "the field holds the keys";
  // A return within half a second belonged to the previous card.
  send("field", "type", "return", "Pari");
  EXPECT_EQ(svc().state(), SVC::kQuestion);
  clock.advance(0.6);
  ui.webView->scripts.clear();
  send("field", "type", "return", "Pari");
  EXPECT_EQ(svc().state(), SVC::kAnswer);
  std::string a = shown();
  EXPECT_NE(a.find("<span style='background: #00FF00; color: #000;'>Pari</span>"
                   "<span style='background: #FF0000; color: #000;'>-</span>"),
            npos);
  EXPECT_NE(a.find("<span id=rightanswer><br> &darr; <br> Paris </span>"), npos);

  TypedAnswer t;
  EXPECT_EQ(t.correctForA("Paris", "Paris"),
            "<span style='background: #00FF00; color: #000;'>Paris</span>");
  EXPECT_EQ(t.correctForA("Paris", ""), "");
  EXPECT_EQ(t.correctForA("héllo", "hallo"),
            "<span style='background: #00FF00; color: #000;'>h</span>"
            "<span style='background: #FF0000; color: #000;'>-</span>"
            "<span style='background: #FF0000; color: #000;'>a</span>"
            "<span style='background: #00FF00; color: #000;'>llo</span>");
  EXPECT_EQ(TypedAnswer::_contentForClozeInString("{{c1::one}} {{c1::two::hint}} {{c2::x}}", 1),
            "one, two");
  EXPECT_FALSE(TypedAnswer::_contentForClozeInString("{{c2::x}}", 1));
  // A huge text is compared without stalling.
  EXPECT_EQ(TypedAnswer::diff(std::string(20000, 'a') + "x", std::string(20000, 'b')).size(), 2u);
}

TEST_F(StudyViewControllerTest, TypedAnswerEdgeCases) {
  templates("{{Front}}{{type:Missing}}", "{{type:Missing}}");
  addNote("f");
  study();
  EXPECT_NE(shown().find("Type answer: unknown field Missing"), npos);
  EXPECT_FALSE(ui.screen.contains("field"));
  send("back");

  templates("{{Front}}{{type:Back}}", "{{type:Back}}");
  col().db()->execute("update notes set flds = 'f\x1f[sound:a.mp3]ok'");
  study();
  send("field", "type", "end", "");
  Clock::Override clock(2e9 + 10);
  send("key", "space");  // a tap while typing only ends the typing: here it has ended
  std::string a = shown();
  EXPECT_NE(a.find("<span id=rightanswer><br> &darr; <br> ok </span>"), npos) << a;
  send("back");

  pm().setBool(true, "neverTypeAnswer");
  study();
  EXPECT_FALSE(ui.screen.contains("field"));
  EXPECT_EQ(shown().find("[[type:"), npos);
  EXPECT_EQ(shown().find("rivo.setupType();"), npos);
}

TEST_F(StudyViewControllerTest, SoundsPlayInOrderAndButtonsPlayOne) {
  media("a.mp3");
  media("b c é.mp3");
  templates("{{Front}}", "{{FrontSide}}<hr id=answer>{{Back}}");
  addNote("[sound:a.mp3][sound:missing.mp3][sound:b c é.mp3][sound:clip.mp4]", "[sound:a.mp3]");
  study();
  EXPECT_EQ(ui.played, (std::vector<std::string>{"/m/t/a%2Emp3"}));
  ui.audioPlayer->finish();
  EXPECT_EQ(ui.played.back(), "/m/t/b%20c%20%C3%A9%2Emp3");
  std::string q = shown();
  EXPECT_NE(q.find("<img class=playImage src='/r/t/reviewer/brokenplay.svg'>"), npos);
  EXPECT_NE(q.find("href='playsound:///b%20c%20%C3%A9%2Emp3'"), npos);
  EXPECT_NE(q.find("<video style=\\\"width: 90%\\\" controls><source src=\\\"clip.mp4\\\">"), npos);

  // A button during the queue stops it and plays its sound alone; the name survives.
  ui.played.clear();
  ui.webView->navigate("playsound:///b%20c%20%C3%A9%2Emp3");
  EXPECT_EQ(ui.played.back(), "/m/t/b%20c%20%C3%A9%2Emp3 (asked)");
  ui.audioPlayer->finish();
  EXPECT_EQ(ui.played.back(), "/m/t/b%20c%20%C3%A9%2Emp3 (asked)") << "nothing queued after it";

  // Replaying the answer plays the question's sounds first ("replayq" is on).
  send("key", "space");
  ui.played.clear();
  send("key", "r");
  EXPECT_EQ(ui.played, (std::vector<std::string>{"stop", "/m/t/a%2Emp3 (asked)"}));
  ui.audioPlayer->finish();
  ui.audioPlayer->finish();
  EXPECT_EQ(ui.played.back(), "/m/t/a%2Emp3 (asked)");
  EXPECT_EQ(ui.played.size(), 4u);

  // Without autoplay and buttons the tags vanish and nothing plays; videos stay.
  Json* conf = col().decks().confForDid(Json(1));
  (*conf)["autoplay"] = false;
  col().decks().save(conf);
  pm().setBool(false, "audioButtons");
  send("back");
  ui.played.clear();
  study();
  EXPECT_EQ(ui.played, std::vector<std::string>{});
  EXPECT_EQ(shown().find("playsound"), npos);
  EXPECT_NE(shown().find("clip.mp4"), npos);
}

TEST_F(StudyViewControllerTest, TheScratchpadIsKeptPerTemplate) {
  addNote("one");
  addNote("two");
  study();
  EXPECT_FALSE(ui.screen.contains("pad"));
  svc().toggleScratchPad();
  ASSERT_TRUE(ui.screen.contains("pad"));
  EXPECT_EQ(ui.screen["pad"]["extraWidth"], 2.0);
  uint64_t clear = ui.screen["pad"]["clearSeq"];
  Json* model = col().models().current();
  EXPECT_EQ((*model)["tmpls"][0]["scratchPad"], 1);
  // The next card of the template shows it too, cleared; the pen size counts.
  pm().setObject("fine", "penSize");
  send("key", "space");
  send("key", "3");
  ASSERT_TRUE(ui.screen.contains("pad"));
  EXPECT_GT(ui.screen["pad"]["clearSeq"].get<uint64_t>(), clear);
  EXPECT_EQ(ui.screen["pad"]["forceFactor"], 1.0);
  svc().toggleScratchPad();
  EXPECT_FALSE(ui.screen.contains("pad"));
}

}  // namespace
}  // namespace rivo
