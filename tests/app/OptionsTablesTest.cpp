// The options tables: the code-described table's commit and close rules, deck options'
// bounded input, steps and groups, the collection's day start and learn-ahead, and the
// settings pages' buttons.
#include <ctime>

#include "app/ActionsManager.h"
#include "app/CollectionOptions.h"
#include "app/CustomStudyViewController.h"
#include "app/DeckOptions.h"
#include "app/ProfileManager.h"
#include "app/RVConfigTableController.h"
#include "app/SettingsViewController.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "tests/app/ScreenFixture.h"

namespace rivo {
namespace {

using Kind = RVConfigTableRow::Kind;

class OptionsTablesTest : public test::ScreenFixture {
 protected:
  void push(std::shared_ptr<ViewController> vc) {
    app->nc()->push(std::move(vc));
    settle();
  }
  void openDeckOptions() {
    push(std::make_shared<RVConfigTableController>(std::make_shared<DeckOptions>(*app)));
  }
  Json& group() { return *app->col()->decks().confForDid(Json(1)); }
  std::string field(const std::string& id) { return row(id)["field"]; }
  void type(const std::string& id, const std::string& text) { send("row", id, "change", text); }
};

TEST_F(OptionsTablesTest, TableCommitsValidTextAndClosesInOrder) {
  std::vector<std::string> log;
  std::string stored = "5";
  auto table = std::make_shared<RVConfigTableController>();
  auto edit = std::make_shared<RVConfigTableRow>();
  edit->kind = Kind::edit;
  edit->getTxt = [&] { return stored; };
  edit->txtIsValid = [](const std::string& t) { return t != "bad"; };
  edit->setTxt = [&](const std::string& t) { stored = t; };
  auto choice = std::make_shared<RVConfigTableRow>();
  choice->kind = Kind::enumeration;
  choice->title = "Pick";
  choice->getData = [] { return RVConfigTableRow::EnumData{{"a", "b"}, 0}; };
  choice->setIdx = [&](int i) { log.push_back("setIdx " + std::to_string(i)); };
  choice->onDetailModeExit = [&] { log.push_back("exit"); };
  table->sections = {{"", "", {edit, choice}}};
  table->onClose = [&] { log.push_back("close"); };
  push(table);

  type("s0r0", "bad");  // refused: the field shows the stored text again
  EXPECT_EQ(stored, "5");
  EXPECT_EQ(field("s0r0"), "5");
  type("s0r0", "7");
  EXPECT_EQ(field("s0r0"), "7");

  send("row", "s0r1", "select");  // the detail screen covers the table: no close yet
  EXPECT_EQ(ui.screen["title"], "Pick");
  EXPECT_TRUE(log.empty());
  send("row", "c1", "select");
  send("back");
  send("back");
  EXPECT_EQ(log, (std::vector<std::string>{"setIdx 1", "exit", "close"}));
}

TEST_F(OptionsTablesTest, DeckOptionsBoundTheInputAndParseSteps) {
  openDeckOptions();
  type("s1r5", "12");  // Starting ease below its bound
  EXPECT_EQ(group()["new"]["initialFactor"], 1300);
  EXPECT_EQ(field("s1r5"), "130");
  type("s2r3", "50000");  // Maximum interval above its bound
  EXPECT_EQ(group()["rev"]["maxIvl"], 36500);
  type("s2r1", "abc");  // Easy bonus: not a number, nothing stored
  EXPECT_DOUBLE_EQ(group()["rev"]["ease4"].get<double>(), 1.3);
  EXPECT_EQ(field("s2r1"), "130");
  type("s2r1", "115");
  EXPECT_DOUBLE_EQ(group()["rev"]["ease4"].get<double>(), 1.15);
  EXPECT_EQ(field("s2r1"), "115");
  type("s1r1", "2 ten 0 200000");
  EXPECT_EQ(group()["new"]["delays"], Json::parse("[2, 1, 144000]"));
  type("s1r1", "none");  // no number left: the old steps stay
  EXPECT_EQ(field("s1r1"), "2 1 144000");
  EXPECT_EQ(DeckOptions::stepsToString(Json::parse("[0.5, 10]")), "0.5 10");
}

TEST_F(OptionsTablesTest, OptionGroupsAddDeleteAndDefaults) {
  openDeckOptions();
  send("row", "s0r0", "select");
  EXPECT_FALSE(row("c0").value("canDelete", false));  // the default group stays
  send("button", "add");
  ui.type("Fast");
  EXPECT_EQ(rowIds(), (std::vector<std::string>{"c0", "c1"}));
  EXPECT_EQ(row("c1")["text"], "Fast (used by 1 decks)");
  EXPECT_EQ(row("c0")["text"], "Default (used by 0 decks)");
  Id fast = jsonInt((*app->col()->decks().current())["conf"]);
  EXPECT_NE(fast, 1);

  int64_t scm = app->col()->scm();
  const uint64_t listed = ui.screen["id"];
  send("row", "c1", "delete");
  EXPECT_EQ(ui.events.back(),
            "ask:Full Sync Required|Deleting this options group will prevent any changes from "
            "being merged from other devices on the next sync. Proceed?|No|Yes");
  ui.answers.back()(1);
  settle();
  EXPECT_EQ(rowIds(), (std::vector<std::string>{"c0"}));
  EXPECT_EQ(jsonInt((*app->col()->decks().current())["conf"]), 1);
  EXPECT_NE(app->col()->scm(), scm);
  // A tab still showing the list as it was can't pick by the shifted positions.
  EXPECT_FALSE(app->nc()->dispatch(listed, {"row", "c0", "select", Json()}));

  send("back");
  type("s1r0", "7");
  send("button", "right");
  EXPECT_EQ(ui.events.back(), "ask:Restore Defaults|Reset all settings to defaults?|No|Yes");
  ui.answers.back()(1);
  settle();
  EXPECT_EQ(field("s1r0"), "20");
}

TEST_F(OptionsTablesTest, CollectionOptionsMoveTheDayStartAndLearnAhead) {
  Col& col = *app->col();
  int64_t crt = col.crt();
  int hour = CollectionOptions::crtHour(crt);
  CollectionOptions::setCrtFromHour(col, hour);  // the same hour: crt stays, still a change
  EXPECT_EQ(col.crt(), crt);
  CollectionOptions::setCrtFromHour(col, hour >= 2 ? hour - 2 : hour + 2);
  EXPECT_EQ(col.crt() - crt, hour >= 2 ? -7200 : 7200);

  push(std::make_shared<RVConfigTableController>(std::make_shared<CollectionOptions>(*app)));
  type("s0r2", "20");
  EXPECT_EQ(col.conf()["collapseTime"], 1200);
  EXPECT_EQ(field("s0r2"), "20");
  type("s0r2", "-3");  // nothing limits it
  EXPECT_EQ(col.conf()["collapseTime"], -180);
  col.conf()["collapseTime"] = 90;
  send("row", "s0r0", "select");
  send("row", "c2", "select");
  send("back");
  EXPECT_EQ(col.conf()["newSpread"], 2);
  EXPECT_EQ(field("s0r2"), "1");
  EXPECT_EQ(row("s0r0")["detail"], "New first");
}

TEST_F(OptionsTablesTest, SettingsPagesChooseValuesAndLogOut) {
  app->pm().setObject("key", "hkey");
  app->pm().setObject("ann", "uname");
  push(std::make_shared<SettingsViewController>(*app, "Syncing"));
  EXPECT_EQ(row("s1r1")["detail"], "Deauth ann");
  send("row", "s1r1", "select");
  EXPECT_TRUE(app->pm().objectForKey("hkey").is_null());

  push(std::make_shared<SettingsViewController>(*app, "Root"));
  Json theme = row("s1r0");
  EXPECT_EQ(theme["detail"], "Dark");
  send("row", "s1r0", "select");
  send("row", "v1", "select");  // chosen: back on the page, stored at once
  EXPECT_EQ(row("s1r0")["detail"], "Blue");
  EXPECT_EQ(app->pm().stringForKey("theme7"), "blue");
}

TEST_F(OptionsTablesTest, FilteredDeckTableRefusesBadStepsAndDropsAnUnusedNewDeck) {
  app->acts().newFilteredDeck();
  settle();
  EXPECT_EQ(ui.screen["title"], "Filtered Deck 1");
  EXPECT_EQ(field("s0r0"), "deck:\"Default\" ");
  EXPECT_EQ(ui.screen["right"][0]["title"], "Build");
  send("row", "s1r0", "change", true);
  type("s1r1", "1  10");  // two blanks: an empty part is no number
  send("button", "right");
  EXPECT_EQ(ui.events.back(), "alert:Invalid step|Steps must be numbers.");
  ASSERT_TRUE(app->col()->decks().byName("Filtered Deck 1"));
  send("back");  // never built: no trace left
  EXPECT_FALSE(app->col()->decks().byName("Filtered Deck 1"));
}

TEST_F(OptionsTablesTest, CustomStudyRefusesNumbersOutOfRangeAndShowsTheEstimate) {
  push(
      std::make_shared<RVConfigTableController>(std::make_shared<CustomStudyViewController>(*app)));
  EXPECT_EQ(ui.screen["sections"][1]["footer"], "0 new card(s) available.");
  EXPECT_EQ(row("s1r0")["text"], "Extra new cards");
  type("s1r0", "101");  // above the mode's greatest: refused
  EXPECT_EQ(field("s1r0"), "10");
  type("s1r0", "0");
  EXPECT_EQ(field("s1r0"), "10");
  type("s1r0", "25");
  EXPECT_EQ(jsonInt((*app->col()->decks().current())["extendNew"]), 25);
  send("row", "s0r0", "select");
  send("row", "c7", "select");
  send("back");
  EXPECT_EQ(row("s1r1")["detail"], "no tags available");
  EXPECT_EQ(ui.screen["sections"][1]["footer"], "Search matches 0 card(s).");
}

}  // namespace
}  // namespace rivo
