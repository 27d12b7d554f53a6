// The study actions with the review screen over fakes: what each does to the collection and
// the screens, the messages it shows, and the Tools and All Actions screens.
#include "app/ActionsManager.h"

#include "app/AllActionsViewController.h"
#include "app/NavigationController.h"
#include "librivo/Scheduler.h"
#include "tests/app/StudyFixture.h"

namespace rivo {
namespace {

using Strings = std::vector<std::string>;

class ActionsManagerTest : public test::StudyFixture {
 protected:
  ActionsManager& acts() { return app->acts(); }
  void run(const std::string& key) {
    ui.events.clear();
    acts().run(key);
    settle();
  }
  std::string first() const { return ui.events.empty() ? "" : ui.events[0]; }
  int64_t cardQueue(Id cid) {
    return col().db()->scalarInt("select queue from cards where id = ?", {cid});
  }
};

TEST_F(ActionsManagerTest, KeysNamesAndUnknownActions) {
  EXPECT_EQ(ActionsManager::longNames().size(), 32u);
  EXPECT_EQ(ActionsManager::shortNames().size(), 32u);
  for (const auto& [key, name] : ActionsManager::longNames())
    EXPECT_TRUE(ActionsManager::shortNames().count(key)) << key;
  run("fly");
  EXPECT_EQ(first(), "alert:|Unknown action: fly");
  EXPECT_FALSE(acts().perform("fly"));

  col().decks().getID("Filtered Deck 1", true);
  col().decks().getID("Filtered Deck 2", true);
  EXPECT_EQ(ActionsManager::nextFilteredDeckName(col().decks()), "Filtered Deck 3");
}

TEST_F(ActionsManagerTest, AnswersFromTheQuickBarAndElsewhere) {
  addNote("one");
  addNote("two");
  pm().setObject("answerGood", "quickButton4");
  study();
  ASSERT_EQ(ui.screen["segments"].size(), 4u);
  EXPECT_EQ(ui.screen["segments"][3]["title"], "Ans.G");
  send("segment", "3");  // the question shows: needs the answer
  EXPECT_EQ(revlogCount(), 0);
  send("key", "space");
  send("segment", "3");
  EXPECT_EQ(lastEase(), 2) << "Good on a three-button card";

  // Not in the list of all actions, and refused away from the review screen.
  AllActionsViewController all(*app);
  EXPECT_EQ(std::count(all.keys().begin(), all.keys().end(), "answerGood"), 0);
  EXPECT_EQ(all.keys().size(), 24u);
  send("button", "tools");
  run("answerGood");
  EXPECT_EQ(first(),
            "alert:|To use this action, please set it to a swipe, tap or "
            "quickbar button in the preferences.");
  EXPECT_EQ(revlogCount(), 1);
}

TEST_F(ActionsManagerTest, UndoRestoresOrSaysThereIsNothing) {
  addNote("one");
  study();
  Id cid = svc().card()->id;
  run("undo");
  EXPECT_EQ(first(), "popup:Nothing to undo");
  EXPECT_EQ(svc().card()->id, cid);
  send("key", "space");
  send("key", "3");
  EXPECT_FALSE(svc().card());
  EXPECT_EQ(cardQueue(cid), 2);
  run("undo");
  EXPECT_EQ(ui.events.at(0), "popup:Review undone");
  EXPECT_EQ(revlogCount(), 0);
  EXPECT_EQ(cardQueue(cid), 0);
  ASSERT_TRUE(svc().card());
  EXPECT_EQ(svc().card()->id, cid);
}

TEST_F(ActionsManagerTest, MarkBurySuspendAndDelete) {
  Id nid = addNote("one");
  addNote("two");
  study();
  Id cid = svc().card()->id;
  Id shownNid = svc().card()->nid;
  run("mark");
  EXPECT_EQ(ui.screen["badge"], "star");
  EXPECT_TRUE(col().getNote(shownNid)->hasTag("marked"));
  run("mark");
  EXPECT_FALSE(ui.screen.contains("badge"));

  run("buryCard");
  EXPECT_EQ(first(), "popup:Card buried");
  EXPECT_EQ(cardQueue(cid), -2);
  EXPECT_NE(svc().card()->id, cid);
  Id other = svc().card()->id;
  run("markAndSuspend");
  EXPECT_EQ(first(), "popup:Card suspended");
  EXPECT_EQ(cardQueue(other), -1);
  EXPECT_FALSE(svc().card());

  run("unburyDeck");
  ASSERT_TRUE(svc().card());
  EXPECT_EQ(svc().card()->id, cid);
  run("deleteNote");
  EXPECT_EQ(ui.events.at(0), "ask:Confirm Delete|Delete note and its cards?|No|Yes");
  ui.answers.back()(1);
  settle();
  EXPECT_EQ(col().db()->scalarInt("select count() from notes where id = ?", {shownNid}), 0);
  EXPECT_EQ(ui.events.at(1), "popup:Note and its 1 cards deleted");
  (void)nid;
}

TEST_F(ActionsManagerTest, EditorSearchAndFilteredDeckActionsOpenTheirScreens) {
  addNote("one");
  study();
  for (const auto& [key, title] :
       std::map<std::string, std::string>{{"add", "Add"}, {"edit", "Edit"}, {"search", "Search"}}) {
    run(key);
    EXPECT_EQ(ui.screen["title"], title);
    app->nc()->popTo(app->svc());
    settle();
  }
  // Filter/Cram opens a new filtered deck's table, searching the current deck.
  run("filterDeck");
  EXPECT_EQ(ui.screen["title"], "Filtered Deck 1");
  app->nc()->pop();
  // Card info and deck statistics open their screens over the review screen.
  run("cardInfo");
  EXPECT_EQ(ui.screen["title"], "Card Info");
  EXPECT_NE(ui.webView->loaded.find("<b>Card Type</b>"), std::string::npos);
  app->nc()->pop();
  run("deckInfo");
  EXPECT_NE(ui.webView->loaded.find("<h1>Today</h1>"), std::string::npos);
  EXPECT_EQ(ui.webView->baseUrl, "/r/t/js/");
  app->nc()->pop();
  run("empty");
  EXPECT_EQ(first(), "alert:|You can only empty a filtered deck.");
  run("rebuild");
  EXPECT_EQ(first(), "alert:|You can only rebuild a filtered deck.");
  Id dyn = col().decks().newDyn("Cram");
  col().decks().select(Json(dyn));
  run("customStudy");
  EXPECT_EQ(first(), "alert:|Custom study can't be used on a filtered deck.");
  run("empty");
  EXPECT_EQ(ui.events.at(0), "spinner:Emptying deck...");
  EXPECT_EQ(app->nc()->depth(), 1u) << "back to the deck list";
}

TEST_F(ActionsManagerTest, TheToolsScreen) {
  addNote("one");
  pm().setObject("off", "button2");
  pm().setObject("replayAudio", "button12");
  study();
  send("button", "tools");
  ASSERT_EQ(ui.screen["title"], "Tools");
  Strings rows = rowIds();
  EXPECT_EQ(rows, (Strings{"studyOptions", "fontScale", "button1", "button3", "button4", "button5",
                           "button6", "button7", "button8", "button12"}));
  EXPECT_EQ(row("button1")["text"], "Mark");
  EXPECT_EQ(row("fontScale")["detail"], "1.0x");
  send("row", "fontScale", "change", 1.4);
  EXPECT_EQ(row("fontScale")["detail"], "1.4x");
  send("row", "button1", "select");  // mark: back to the card, whose page loads anew
  EXPECT_EQ(app->nc()->top(), app->svc());
  ui.webView->finishLoad();
  settle();
  EXPECT_EQ(ui.screen["badge"], "star");
  EXPECT_FLOAT_EQ(pm().floatForKey("FontScale"), 1.4f) << "stored when the screen went";

  // Study Options: the deck's options; "Max new per day".
  send("button", "tools");
  send("row", "studyOptions", "select");
  EXPECT_EQ(ui.screen["title"], "Deck Options");
  EXPECT_TRUE(send("row", "s1r0", "change", "35"));
  send("back");
  EXPECT_EQ(jsonInt((*col().decks().confForDid(Json(1)))["new"]["perDay"]), 35);

  // More: the list of all actions, sorted by name.
  send("back");
  run("more");
  EXPECT_EQ(ui.screen["title"], "All Actions");
  EXPECT_EQ(rowIds().front(), "add");
  EXPECT_EQ(rowIds().back(), "undo");
}

}  // namespace
}  // namespace rivo
