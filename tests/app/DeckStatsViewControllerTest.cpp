// The statistics screen over fakes: its two choices, what they store, and the page it loads.
#include "app/DeckStatsViewController.h"

#include "app/ProfileManager.h"
#include "tests/app/ScreenFixture.h"

namespace rivo {
namespace {

class DeckStatsViewControllerTest : public test::ScreenFixture {};

TEST_F(DeckStatsViewControllerTest, ChoicesAreStoredButTheScreenStartsOnDeckAndMonth) {
  auto open = [this] {
    app->nc()->push(std::make_shared<DeckStatsViewController>(*app));
    settle();
  };
  open();
  EXPECT_EQ(ui.screen["title"], "Default");
  EXPECT_EQ(ui.screen["controls"][0][0]["selected"], true);
  EXPECT_EQ(ui.screen["controls"][1][0]["selected"], true);
  EXPECT_NE(ui.webView->loaded.find("tickFormatter"), std::string::npos);
  EXPECT_NE(ui.webView->loaded.find("\"timeTicks\":\"d\""), std::string::npos);
  // The page's head comes first, so that its base reaches the chart scripts.
  EXPECT_EQ(ui.webView->loaded.rfind("<head>", 0), 0u);
  ui.events.clear();
  EXPECT_TRUE(send("segment", "all"));
  EXPECT_TRUE(send("segment", "period2"));
  EXPECT_EQ(ui.events.at(0), "spinner:Loading...");
  EXPECT_EQ(ui.screen["title"], "Collection");
  EXPECT_EQ(ui.screen["controls"][1][2]["selected"], true);
  EXPECT_NE(ui.webView->loaded.find("\"timeTicks\":\"mo\""), std::string::npos);
  EXPECT_EQ(app->pm().valueForKey("statsForWholeCollection"), true);
  EXPECT_EQ(app->pm().valueForKey("statsPeriod"), 2);
  EXPECT_FALSE(send("segment", "period3"));
  EXPECT_FALSE(ui.webView->navigate("https://example.com/"));
  app->nc()->pop();
  open();
  EXPECT_EQ(ui.screen["title"], "Default");
  EXPECT_NE(ui.webView->loaded.find("\"timeTicks\":\"d\""), std::string::npos);
}

}  // namespace
}  // namespace rivo
