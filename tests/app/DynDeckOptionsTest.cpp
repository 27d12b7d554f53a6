#include "app/DynDeckOptions.h"

#include <gtest/gtest.h>

#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/Storage.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

TEST(DynDeckOptions, StepsParseAsTheFieldIsTyped) {
  EXPECT_EQ(*DynDeckOptions::userToList("1 10"), Json::parse("[1, 10]"));
  EXPECT_EQ(*DynDeckOptions::userToList("0.5\t2"), Json::parse("[0.5, 2]"));
  EXPECT_EQ(DynDeckOptions::listToUser(Json::parse("[0.5, 2, 10.0]")), "0.5 2 10");
  // Two blanks in a row, a word, a trailing blank, nothing at all: each part must be a number.
  for (const char* text : {"1  10", "1 x", "1 10 ", "", "inf"}) {
    DynDeckAlert alert;
    EXPECT_FALSE(DynDeckOptions::userToList(text, &alert)) << text;
    EXPECT_EQ(alert.title, "Invalid step");
    EXPECT_EQ(alert.message, "Steps must be numbers.") << text;
  }
}

TEST(DynDeckOptions, TheLimitIsTheLeadingInteger) {
  EXPECT_EQ(DynDeckOptions::intValue(" 12x"), 12);
  EXPECT_EQ(DynDeckOptions::intValue("x"), 0);
  EXPECT_EQ(DynDeckOptions::intValue("-7"), -7);
  EXPECT_EQ(DynDeckOptions::intValue("99999999999"), 2147483647);
}

TEST(DynDeckOptions, SaveWritesTheFirstTermAndBadStepsChangeNothing) {
  test::TempDir dir;
  auto col = Storage::open(dir.file("c.rivo2"), true, false, false, dir.path());
  ASSERT_TRUE(col);
  Json& deck = *col->decks().getDeck(Json(col->decks().newDyn("F")));
  deck["terms"].push_back(Json::array({"second", 5, 1}));

  DynDeckOptions o = DynDeckOptions::load(deck);
  o.search = "is:due";
  o.limitText = "30 cards";
  o.order = 2;
  o.customSteps = true;
  o.stepsText = "1 2.5";
  o.resched = false;
  EXPECT_FALSE(o.save(*col, deck));
  EXPECT_EQ(deck["terms"], Json::parse(R"([["is:due", 30, 2], ["second", 5, 1]])"));
  EXPECT_EQ(deck["delays"], Json::parse("[1, 2.5]"));
  EXPECT_EQ(deck["resched"], false);
  const DynDeckOptions back = DynDeckOptions::load(deck);
  EXPECT_EQ(back.limitText, "30");
  EXPECT_EQ(back.stepsText, "1 2.5");
  EXPECT_TRUE(back.customSteps);

  const Json before = deck;
  o.search = "changed";
  o.stepsText = "1 x";
  const auto alert = o.save(*col, deck);
  ASSERT_TRUE(alert);
  EXPECT_EQ(alert->message, "Steps must be numbers.");
  EXPECT_EQ(deck, before);

  o.customSteps = false;
  EXPECT_FALSE(o.save(*col, deck));
  EXPECT_TRUE(deck["delays"].is_null());
  EXPECT_EQ(DynDeckOptions::load(deck).stepsText, "1 10");
}

}  // namespace
}  // namespace rivo
