// The report's numbers against values worked out by hand on a small collection: day 100 at
// noon (UTC), the day ending at midnight. Deck 1 is active; "Other" is not.
//
//   c1 review ivl 30 due +1 factor 2500    c4 new
//   c2 review ivl 5  due +3 factor 2000    c5 suspended review ivl 10
//   c3 learning (queue 1)                  c6 "Other": review ivl 100 due +1 factor 3000
//
//   revlog   card  when            type      ease lastIvl time
//   R1       c1    today 10:30     review    3    25      60 s
//   R2       c2    today 11:30     review    1    3       120 s
//   R3       c3    today 09:30     learn     4    0       30 s
//   R4       c5    today 08:30     relearn   2    10      90 s
//   R5       c6    today 10:30     review    3    50      180 s
//   R6       c1    day -10         review    4    21      300 s
//   R7       c2    day -100        learn     1    0       7200 s
//   R8       c3    day -400        cram      3    0       1200 s
//   R9       gone  today 10:30     review    3    1       60 s

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "librivo/stats/CardStats.h"
#include "librivo/stats/CollectionStats.h"
#include "tests/librivo/SchedFixture.h"

namespace rivo::test {
namespace {

// What the page hands flot for chart `id`: its data and its options.
Json chartData(const std::string& html, const std::string& id) {
  const std::string head = "$.plot($(\"#" + id + "\"), ";
  const size_t at = html.find(head);
  if (at == std::string::npos) return nullptr;
  const size_t from = at + head.size();
  return Json::parse(html.substr(from, html.find(", conf); ", from) - from));
}
Json chartConf(const std::string& html, const std::string& id) {
  const size_t div = html.find("id=\"" + id + "\"");
  if (div == std::string::npos) return nullptr;
  const size_t from = html.find("var conf = ", div) + 11;
  return Json::parse(html.substr(from, html.find("; \n", from) - from));
}
bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}
std::string line(const std::string& label, const std::string& value) {
  return "<td width=50% align=right>" + label + ":</td><td><b>" + value + "</b></td>";
}

class CollectionStatsTest : public SchedTest {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
    SchedTest::SetUp();
    other = col->decks().getID("Other");
    c1 = addCard({.type = 2, .queue = 2, .due = kToday + 1, .ivl = 30, .factor = 2500});
    c2 = addCard({.type = 2, .queue = 2, .due = kToday + 3, .ivl = 5, .factor = 2000});
    c3 = addCard({.type = 1, .queue = 1, .due = kNow + 600, .factor = 2500});
    addNew();
    c5 = addCard({.type = 2, .queue = -1, .due = kToday, .ivl = 10, .factor = 2500});
    c6 = addCard({.type = 2, .queue = 2, .due = kToday + 1, .ivl = 100, .factor = 3000}, other);
    const int64_t h = 3600;
    log(c1, 13 * h + 1800, 3, 1, 25, 60);
    log(c2, 12 * h + 1800, 1, 1, 3, 120);
    log(c3, 14 * h + 1800, 4, 0, 0, 30);
    log(c5, 15 * h + 1800, 2, 2, 10, 90);
    log(c6, 13 * h + 1800, 3, 1, 50, 180);
    log(c1, 10 * 86400 + 13 * h + 1800, 4, 1, 21, 300);
    log(c2, 100 * 86400 + 13 * h + 1800, 1, 0, 0, 7200);
    log(c3, 400 * 86400 + 13 * h + 1800, 3, 3, 0, 1200);
    log(424242, 13 * h + 1800, 3, 1, 1, 60);
    col->decks().select(1);
  }

  // A review `before` seconds before the day's end.
  void log(Id cid, int64_t before, int ease, int type, int lastIvl, int seconds) {
    col->db()->run(
        "insert into revlog values (?, ?, -1, ?, 1, ?, 2500, ?, ?)",
        {(kCutoff - before) * 1000 + ++seq, cid, ease, lastIvl, int64_t{seconds} * 1000, type});
  }

  std::string page(int period, bool whole = false) {
    CollectionStats stats(*col);
    stats.wholeCollection = whole;
    return stats.reportOfType(period);
  }

  Id other = 0, c1 = 0, c2 = 0, c3 = 0, c5 = 0, c6 = 0;
  int seq = 0;
};

TEST_F(CollectionStatsTest, TodayCountsTheActiveDecksOrEverything) {
  const std::string deck = page(CollectionStats::kMonth);
  EXPECT_TRUE(has(deck,
                  "<h1>Today</h1>Studied 4 cards in 5 minutes today.<br>Again count: 1 (75.0% "
                  "correct)<br>Learn: 1, Review: 2, Relearn: 1, Filtered: 0<br>Correct answers "
                  "on mature cards: 1/1 (100.0%)"));
  // A deleted card's review counts once the filter on decks is gone.
  EXPECT_TRUE(has(page(CollectionStats::kLife, true),
                  "Studied 6 cards in 9 minutes today.<br>Again count: 1 (83.3% correct)<br>Learn: "
                  "1, Review: 4, Relearn: 1, Filtered: 0<br>Correct answers on mature cards: 2/2 "
                  "(100.0%)"));
}

TEST_F(CollectionStatsTest, ForecastByPeriod) {
  std::string html = page(CollectionStats::kMonth);
  EXPECT_EQ(chartData(html, "due")[0]["data"], Json::parse("[[1,1],[3,0]]"));
  EXPECT_EQ(chartData(html, "due")[1]["data"], Json::parse("[[1,0],[3,1]]"));
  EXPECT_EQ(chartData(html, "due")[2]["data"], Json::parse("[[1,1],[3,2]]"));
  EXPECT_EQ(chartConf(html, "due")["xaxis"]["max"], 30.5);
  EXPECT_TRUE(has(html, line("Total", "2 reviews") + "</tr><tr>" +
                            line("Average", "1.0 reviews/day") + "</tr><tr>" +
                            line("Due tomorrow", "1")));
  // One bar of a week: no cumulative line.
  html = page(CollectionStats::kYear);
  EXPECT_EQ(chartData(html, "due").size(), 2u);
  EXPECT_EQ(chartData(html, "due")[0]["data"], Json::parse("[[0,1]]"));
  EXPECT_EQ(chartConf(html, "due")["xaxis"]["max"], 51.5);
  EXPECT_TRUE(has(html, line("Average", "0.3 reviews/day")));
  html = page(CollectionStats::kLife);
  EXPECT_FALSE(chartConf(html, "due")["xaxis"].contains("max"));
  EXPECT_TRUE(has(html, line("Average", "0.1 reviews/day")));
  html = page(CollectionStats::kMonth, true);
  EXPECT_EQ(chartData(html, "due")[0]["data"], Json::parse("[[1,2],[3,0]]"));
  EXPECT_TRUE(has(html, line("Total", "3 reviews")));
  EXPECT_TRUE(has(html, line("Due tomorrow", "2")));
}

TEST_F(CollectionStatsTest, ReviewCountAndTimeByPeriod) {
  // Month: day -10 (R6) and today (R1-R4), in minutes.
  std::string html = page(CollectionStats::kMonth);
  Json reps = chartData(html, "reps");
  ASSERT_EQ(reps.size(), 8u);  // Cram has no answers
  EXPECT_EQ(reps[0]["label"], "Mature");
  EXPECT_EQ(reps[0]["data"], Json::parse("[[-10,1.0],[0,1.0]]"));
  EXPECT_EQ(reps[1]["data"], Json::parse("[[-10,1.0],[0,2.0]]"));
  EXPECT_EQ(reps[1]["stack"], -3);
  EXPECT_EQ(reps[6]["label"], "Learn");
  EXPECT_EQ(chartConf(html, "reps")["xaxis"]["min"], -29.5);
  EXPECT_TRUE(has(html, "<td width=50% align=right>Days studied:</td><td><b>6%</b> (2 of 30)"));
  EXPECT_TRUE(has(html, line("Total", "5 reviews") + "</tr><tr>" +
                            line("Average for days studied", "2.5 reviews/day") + "</tr><tr>" +
                            line("If you studied every day", "0.2 reviews/day")));
  EXPECT_EQ(chartData(html, "time")[0]["data"], Json::parse("[[-10,5.0],[0,1.0]]"));
  EXPECT_TRUE(has(html, line("Total", "10 minutes") + "</tr><tr>" +
                            line("Average for days studied", "5.0 minutes/day") + "</tr><tr>" +
                            line("If you studied every day", "0.3 minutes/day") + "</tr><tr>" +
                            line("Average answer time", "120.0s (0 cards/ minute)")));

  // Year: weeks; R7 (day -100) is week -14; hours.
  html = page(CollectionStats::kYear);
  EXPECT_EQ(chartData(html, "reps")[6]["data"], Json::parse("[[-14,1.0],[-1,0.0],[0,1.0]]"));
  EXPECT_TRUE(has(html, "<b>0%</b> (3 of 365)"));
  EXPECT_TRUE(has(html, line("Total", "6 reviews")));
  EXPECT_TRUE(has(html, line("Total", "2 hours") + "</tr><tr>" +
                            line("Average for days studied", "40.0 minutes/day")));
  EXPECT_TRUE(has(html, line("Average answer time", "1200.0s (0 cards/ minute)")));

  // Life: months; the deck's age comes from its first review, R8 (day -400).
  html = page(CollectionStats::kLife);
  reps = chartData(html, "reps");
  ASSERT_EQ(reps.size(), 10u);
  EXPECT_EQ(reps[8]["label"], "Cram");
  EXPECT_EQ(reps[8]["data"], Json::parse("[[-13,1.0],[-3,0.0],[0,0.0]]"));
  EXPECT_FALSE(chartConf(html, "reps")["xaxis"].contains("min"));
  EXPECT_TRUE(has(html, "<b>0%</b> (4 of 401)"));
  EXPECT_TRUE(has(html, line("Total", "7 reviews") + "</tr><tr>" +
                            line("Average for days studied", "1.8 reviews/day")));
  EXPECT_TRUE(has(html, line("Average answer time", "1028.6s (0 cards/ minute)")));

  // The whole collection adds R5 and R9 to today.
  EXPECT_TRUE(has(page(CollectionStats::kMonth, true), line("Total", "7 reviews")));
}

TEST_F(CollectionStatsTest, IntervalsByPeriod) {
  std::string html = page(CollectionStats::kMonth);
  EXPECT_EQ(chartData(html, "ivl")[0]["data"], Json::parse("[[5,1],[30,1]]"));
  EXPECT_EQ(chartData(html, "ivl")[1]["data"], Json::parse("[[5,50.0],[30,100.0]]"));
  EXPECT_EQ(chartConf(html, "ivl")["xaxis"]["max"], 31.5);
  EXPECT_TRUE(has(html, line("Average interval", "18 days")));
  EXPECT_TRUE(has(html, line("Longest interval", "1 month")));
  html = page(CollectionStats::kYear);
  EXPECT_EQ(chartData(html, "ivl")[0]["data"], Json::parse("[[0,1],[4,1]]"));
  EXPECT_EQ(chartConf(html, "ivl")["xaxis"]["max"], 52.5);
  html = page(CollectionStats::kLife);
  EXPECT_EQ(chartData(html, "ivl")[0]["data"], Json::parse("[[0,1],[1,1]]"));
  EXPECT_EQ(chartConf(html, "ivl")["xaxis"]["max"], 5.5);
  // c6's 100 days lie beyond the month's bars but count in the percentages.
  html = page(CollectionStats::kMonth, true);
  EXPECT_EQ(chartData(html, "ivl")[0]["data"], Json::parse("[[5,1],[30,1]]"));
  EXPECT_NEAR(chartData(html, "ivl")[1]["data"][1][1].get<double>(), 66.67, 0.01);
}

TEST_F(CollectionStatsTest, AnswerButtonsByPeriod) {
  // Learning and relearning are one kind; a learning 4 counts as 3; young and mature by lastIvl.
  std::string html = page(CollectionStats::kMonth);
  Json ease = chartData(html, "ease");
  EXPECT_EQ(ease[0]["data"], Json::parse("[[2,1],[3,1]]"));
  EXPECT_EQ(ease[1]["data"], Json::parse("[[6,1]]"));
  EXPECT_EQ(ease[2]["data"], Json::parse("[[13,1],[14,1]]"));
  EXPECT_TRUE(has(html,
                  "<td align=center>Correct Learning: <b>100.00%</b> (2 of 2)<br> Correct "
                  "Young: <b>0.00%</b> (0 of 1)<br> Correct Mature: <b>100.00%</b> (2 of 2)<br>"));
  EXPECT_TRUE(has(page(CollectionStats::kYear), "Correct Learning: <b>66.67%</b> (2 of 3)"));
  // A cram answer goes to young by its lastIvl.
  html = page(CollectionStats::kLife);
  EXPECT_EQ(chartData(html, "ease")[1]["data"], Json::parse("[[6,1],[8,1]]"));
  EXPECT_TRUE(has(html, "Correct Young: <b>50.00%</b> (1 of 2)"));
}

TEST_F(CollectionStatsTest, CardTypesOfTheDecks) {
  std::string html = page(CollectionStats::kYear);
  Json cards = chartData(html, "cards");
  EXPECT_EQ(cards[0]["label"], "Mature: 1");
  EXPECT_EQ(cards[1]["label"], "Young+Learn: 2");
  EXPECT_EQ(cards[2]["label"], "Unseen: 1");
  EXPECT_EQ(cards[3]["label"], "Buried+Suspended: 1");
  EXPECT_TRUE(has(html, line("Total cards", "5") + "</tr>\n<tr>" + line("Total notes", "5") +
                            "</tr>\n<tr>" + line("Lowest ease", "200%") + "</tr>\n<tr>" +
                            line("Average ease", "225%") + "</tr>\n<tr>" +
                            line("Highest ease", "250%")));
  html = page(CollectionStats::kYear, true);
  EXPECT_EQ(chartData(html, "cards")[0]["data"], 2);
  EXPECT_TRUE(has(html, line("Average ease", "250%")));
}

TEST_F(CollectionStatsTest, HoursNeedFourWithMoreThanThirtyReviews) {
  EXPECT_FALSE(has(page(CollectionStats::kLife), "Hourly Breakdown"));
  // 31 answers at 05:30, 06:30 and 07:30 (one of each wrong), then at 10:30.
  for (int hour : {5, 6, 7})
    for (int i = 0; i < 31; ++i) log(c1, (24 - hour) * 3600 - 1800, i ? 3 : 1, 1, 5, 5);
  EXPECT_FALSE(has(page(CollectionStats::kMonth), "Hourly Breakdown"));
  for (int i = 0; i < 30; ++i) log(c1, 13 * 3600 + 1800, 3, 1, 5, 5);
  const std::string html = page(CollectionStats::kMonth);
  const Json hour = chartData(html, "hour");
  ASSERT_EQ(hour[0]["data"].size(), 4u);
  // The chart's day begins at 4: 05:30 is at 1.
  EXPECT_EQ(hour[0]["data"][0][0], 1);
  EXPECT_NEAR(hour[0]["data"][0][1].get<double>(), 96.77, 0.01);
  EXPECT_EQ(hour[1]["data"][3], Json::parse("[6, 32]"));  // with R1 and R6
  EXPECT_EQ(chartConf(html, "hour")["yaxes"][0]["max"], 100);
}

TEST_F(CollectionStatsTest, EmptyAndDamagedCollectionsStillDraw) {
  col->db()->run("delete from revlog");
  col->db()->run("delete from cards");
  std::string html = page(CollectionStats::kMonth);
  EXPECT_TRUE(has(html, "Studied 0 cards in 0 seconds today.<br>No mature cards were studied"));
  EXPECT_TRUE(has(html, "<h1>Forecast</h1>"));
  EXPECT_EQ(chartData(html, "due").size(), 2u);
  EXPECT_FALSE(chartData(html, "cards").is_null());
  for (const char* id : {"reps", "time", "ivl", "hour"}) EXPECT_TRUE(chartData(html, id).is_null());

  // Negative and huge intervals and times, a card whose deck is gone, unknown revlog types.
  addCard({.type = 2, .queue = 2, .due = kToday - 5, .ivl = -40, .factor = -1}, 777);
  addCard({.type = 2, .queue = 2, .due = INT64_MAX / 2, .ivl = INT64_MAX / 4, .factor = 2500});
  addCard({.type = 2, .queue = 3, .due = kToday + 2, .ivl = 1, .factor = 2500});
  log(c1, 3600, 9, 7, -5, -100);
  log(c1, 7200, 3, 1, INT32_MAX, INT32_MAX);
  log(c1, -86400 * 400, 2, 1, 5, 5);
  for (int period : {0, 1, 2})
    for (bool whole : {false, true}) {
      html = page(period, whole);
      EXPECT_TRUE(has(html, "<h1>Today</h1>"));
      for (const char* id : {"due", "ease", "cards"}) EXPECT_TRUE(chartData(html, id).is_array());
    }
}

TEST_F(CollectionStatsTest, PageFrame) {
  CollectionStats stats(*col, 260, 100);
  const std::string html = stats.report();
  EXPECT_EQ(html.rfind(stats.css + "\n<script src=\"jquery-1.5.min.js\"", 0), 0u);
  EXPECT_TRUE(has(html,
                  "<script src=\"jquery.flot.pie.min.js\" type=\"text/javascript\"></"
                  "script><script src=\"jquery.flot.stack.min.js\""));
  // The pie is half as wide and half as high again.
  EXPECT_TRUE(has(html, "id=\"cards\" style=\"width:130; height:150;\""));
  EXPECT_EQ(chartConf(html, "cards")["legend"]["noColumns"], 2);
  EXPECT_EQ(chartConf(html, "ease")["series"]["bars"]["lineWidth"], 3);
  EXPECT_EQ(chartConf(html, "due")["timeTicks"], "d");
  EXPECT_TRUE(has(html, "<table width=260px>"));
}

class CardStatsTest : public SchedTest {
 protected:
  std::string info(Id cid) {
    auto card = col->getCard(cid);
    return CardStats(*col, *card).report();
  }
  static std::string row(const std::string& key, const std::string& value) {
    return CardStats::makeLine(value, key);
  }
};

TEST_F(CardStatsTest, LinesByTheCardsState) {
  setenv("TZ", "UTC", 1);
  tzset();
  // New: added, position, and where it lives.
  Id cid = addNew(1, 7);
  std::string added = row("Added", CardStats::dateForTime(cid / 1000));
  EXPECT_EQ(info(cid), "<table width=100%>" + added + row("Position", "7") +
                           row("Card Type", "Card 1") + row("Note Type", "Two-sided") +
                           row("Deck", "Default") + "</table>");
  // A review with two answers (65 s and 0 s).
  cid = addCard({.type = 2,
                 .queue = 2,
                 .due = kToday + 2,
                 .ivl = 45,
                 .factor = 2350,
                 .reps = 4,
                 .lapses = 1});
  col->db()->run("insert into revlog values (1767614400000, ?, 0, 3, 1, 1, 2500, 65000, 1)", {cid});
  col->db()->run("insert into revlog values (1767700800000, ?, 0, 3, 1, 1, 2500, 0, 1)", {cid});
  std::string text = info(cid);
  EXPECT_TRUE(has(text, row("First Review", "2026-1-5") + row("Latest Review", "2026-1-6") +
                            row("Due", "2026-3-12") + row("Interval", "1.5mo") +
                            row("Ease", "235%") + row("Reviews", "4") + row("Lapses", "1") +
                            row("Average Time", "32s") + row("Total", "1m5s")));
  // Suspended, or in a filtered deck: no due date.
  col->db()->run("update cards set queue = -1 where id = ?", {cid});
  EXPECT_FALSE(has(info(cid), "Due"));
  const Id dyn = col->decks().newDyn("Filtered");
  col->db()->run("update cards set queue = 2, odid = 1, did = ? where id = ?", {dyn, cid});
  text = info(cid);
  EXPECT_FALSE(has(text, "Due"));
  EXPECT_TRUE(has(text, row("Deck", "Filtered")));
  // Learning: due is an epoch second.
  cid = addCard({.type = 1, .queue = 1, .due = 1767614400});
  EXPECT_TRUE(has(info(cid), row("Due", "2026-1-5")));
  EXPECT_EQ(CardStats::timeForTime(0), "0s");
  EXPECT_EQ(CardStats::timeForTime(120), "2m");
}

}  // namespace
}  // namespace rivo::test
