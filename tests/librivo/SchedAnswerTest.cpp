// What an answer does to a card, its log row and the daily counters, with every expected
// value worked out by hand next to its case. Default options unless a case says otherwise:
// new delays [1, 10], ints [1, 4, 7], initialFactor 2500; lapse delays [10], mult 0, minInt 1,
// leechFails 8, leechAction 0; ease4 1.3, ivlFct 1, maxIvl 36500. Today is day 100, the day
// ends at kCutoff = now + 43200.

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "tests/librivo/SchedFixture.h"

namespace rivo {
namespace {

using test::Cols;
using test::kCutoff;
using test::kNow;
using test::kToday;
using test::Log;

class SchedAnswerTest : public test::SchedTest {
 protected:
  void SetUp() override {
    SchedTest::SetUp();
    sched()._spreadRev = false;
  }
  // Checks the due of a step that got the random factor [1, 1.249] and returns it.
  int64_t checkFuzzedStep(Id cid, int64_t base, int64_t delay) {
    const int64_t due = row(cid).due;
    EXPECT_GE(due, base + delay);
    EXPECT_LE(due, base + delay * 1249 / 1000);
    return due;
  }
};

TEST_F(SchedAnswerTest, NewCardEachEase) {
  struct Case {
    int ease;
    Cols after;  // due 0 stands for "now + first step, randomised"
    int64_t step, logIvl, lrnAdded;
  };
  // Start: left = 2 + 1000 * 2 (both steps fit before the cutoff) = 2002.
  // The old due (0) is past, so steps get the random factor; Easy graduates to ints[1].
  const Case cases[] = {
      {1, {.type = 1, .queue = 1, .reps = 1, .left = 2002}, 60, -60, 2},
      {2, {.type = 1, .queue = 1, .reps = 1, .left = 1001}, 600, -600, 1},
      {3, {2, 2, 104, 4, 2500, 1, 0, 2002, 0}, 0, 4, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ease);
    col->reset();  // an empty learning queue: nothing to queue behind
    const Id cid = addNew();
    const int before = sched().lrnCount;
    answer(cid, c.ease);
    Cols want = c.after;
    if (c.step) want.due = checkFuzzedStep(cid, kNow, c.step);
    EXPECT_EQ(row(cid), want);
    EXPECT_EQ(sched().lrnCount - before, c.lrnAdded);
    EXPECT_EQ(lastLog(),
              (Log{intTime(1000), cid, -1, c.ease, c.logIvl, -60, want.factor, 4000, 0}));
  }
  // The type goes in as the text "0"; the column's affinity stores a number.
  EXPECT_EQ(col->db()->scalarInt("select count() from revlog where typeof(type) = 'integer'"), 3);
}

TEST_F(SchedAnswerTest, LearningStepsAndGraduation) {
  struct Case {
    int left, ease;
    Cols after;
    int64_t logIvl, logLastIvl;
  };
  // The card is not due yet (due now + 100), so no random factor: delays are exact.
  // lastIvl = -delay(old left): n = 2 -> delays[0] = 60 s; n = 1 -> delays[1] = 600 s.
  const Case cases[] = {
      // Two steps, none counted for today: the count is worked out again, giving 1001.
      {2, 2, {1, 1, kNow + 600, 0, 0, 4, 0, 1001, 0}, -600, -60},
      {1001, 2, {2, 2, 101, 1, 2500, 4, 0, 1001, 0}, 1, -600},
      {2002, 3, {2, 2, 104, 4, 2500, 4, 0, 2002, 0}, 4, -60},
      {1001, 4, {1, 1, kNow + 60, 0, 0, 4, 0, 2002, 0}, -60, -600},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.left << " ease " << c.ease);
    const Id cid = addCard({.type = 1, .queue = 1, .due = kNow + 100, .reps = 3, .left = c.left});
    col->reset();
    answer(cid, c.ease);
    EXPECT_EQ(row(cid), c.after);
    const Log log = lastLog();
    EXPECT_EQ(log.ivl, c.logIvl);
    EXPECT_EQ(log.lastIvl, c.logLastIvl);
    EXPECT_EQ(log.factor, c.after.factor);
    EXPECT_EQ(log.type, 0);
  }
}

TEST_F(SchedAnswerTest, WithNothingElseToStudyAStepQueuesBehindTheFirstLearningCard) {
  const Id first = addCard({.type = 1, .queue = 1, .due = kNow + 100, .left = 2002});
  const Id second = addCard({.type = 1, .queue = 1, .due = kNow + 100, .left = 1001});
  col->reset();       // no new cards, no reviews: newCount = revCount = 0
  answer(first, 2);   // now + 600, into the learning queue
  answer(second, 1);  // now + 60, raised to the first entry's due + 1
  EXPECT_EQ(row(second).due, kNow + 601);

  addNew();
  col->reset();       // one new card counted, and the learning queue emptied
  answer(first, 1);   // now + 60, into the queue
  answer(second, 1);  // now + 60 again, not raised with a new card waiting
  EXPECT_EQ(row(second).due, kNow + 60);
}

TEST_F(SchedAnswerTest, StepsThatDontFitTodayMoveToADay) {
  // Five minutes before the cutoff: after the 1-minute step the 10-minute one doesn't fit.
  clock.set(kCutoff - 300);
  const Id cid = addNew();
  const int before = sched().lrnCount;
  answer(cid, 1);
  // left = 2 + 1000 * 1 = 1002; the 1-minute step still lands today, in queue 1.
  EXPECT_EQ(row(cid).left, 1002);
  EXPECT_EQ(row(cid).queue, 1);
  checkFuzzedStep(cid, kCutoff - 300, 60);
  EXPECT_EQ(sched().lrnCount - before, 1);

  // Good before it is due: now + 600 is past the cutoff, so day 101 in queue 3, uncounted.
  answer(cid, 2);
  EXPECT_EQ(row(cid), (Cols{1, 3, 101, 0, 0, 2, 0, 1001, 0}));
  EXPECT_EQ(sched().lrnCount - before, 1);
  EXPECT_EQ(lastLog().ivl, -600);
  EXPECT_EQ(lastLog().lastIvl, -60);  // -delay(1002): n = 2 -> delays[0]
}

TEST_F(SchedAnswerTest, LeftTodayCountsWholeMinutesUpToTheCutoff) {
  struct Case {
    const char* delays;
    int left;
    int64_t now;
    int expected;
  };
  const Case cases[] = {
      {"[1, 10]", 2, kCutoff - 660, 2},  // the second step ends exactly at the cutoff: fits
      {"[1, 10]", 2, kCutoff - 659, 1},  // one second later it is beyond
      {"[1, 10]", 2, kCutoff - 30, 1},   // not even the first fits: still at least 1
      {"[1, 10]", 5, kNow, 2},           // more steps left than delays: all of them
      {"[0.5, 0.5]", 2, kCutoff, 2},     // 0.5 counts as 0 minutes here
      {"[]", 0, kNow, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.delays << " left " << c.left << " at " << c.now);
    EXPECT_EQ(sched()._leftToday(Json::parse(c.delays), c.left, c.now), c.expected);
  }
}

TEST_F(SchedAnswerTest, DelayForGradeCountsStepsFromTheEnd) {
  struct Case {
    const char* conf;
    int left;
    int64_t expected;
  };
  const Case cases[] = {
      {R"({"delays": [1, 10]})", 1, 600},    // delays[2 - 1]
      {R"({"delays": [1, 10]})", 1002, 60},  // only left % 1000 counts
      {R"({"delays": [1, 10]})", 3, 60},     // more than there are: delays[0]
      {R"({"delays": [0.5]})", 1, 30},
      // single(0.7) = 0.69999999 times the double 60.0 is 41.9999993, truncated 41; a product
      // in single would round to 42.0, one in double from 0.7 would give 42.
      {R"({"delays": [0.7]})", 1, 41},
      {R"({"delays": null})", 1, 60},  // no delays: one minute
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.conf << " left " << c.left);
    EXPECT_EQ(sched()._delayForGrade(Json::parse(c.conf), c.left), c.expected);
  }
}

TEST_F(SchedAnswerTest, DayLearningStepsAndTheirAnswerOnThatDay) {
  group()["new"]["delays"] = Json::array({1, 4320});  // 1 minute, 3 days
  const Id cid = addCard({.type = 1, .queue = 1, .due = kNow + 100, .left = 2002});
  answer(cid, 2);
  // Three days on, past the cutoff: day 103 in queue 3.
  EXPECT_EQ(row(cid), (Cols{1, 3, 103, 0, 0, 1, 0, 1001, 0}));
  EXPECT_EQ(lastLog().ivl, -259200);

  clock.set(kNow + 2 * 86400);  // day 102: not yet
  EXPECT_EQ(sched().getCard(), nullptr);
  clock.set(kNow + 3 * 86400);  // day 103: served from the day-learning queue, counted as lrn
  auto card = sched().getCard();
  ASSERT_NE(card, nullptr);
  EXPECT_EQ(card->id, cid);
  EXPECT_EQ(Scheduler::countIdx(*card), 1);
  clock.advance(5);
  sched().answerCard(*card, 2);
  // Good on the last step: ivl 1, due 103 + 1.
  EXPECT_EQ(row(cid), (Cols{2, 2, 104, 1, 2500, 2, 0, 1001, 0}));
  EXPECT_EQ(counter(1, "lrnToday"), std::make_pair(int64_t{103}, int64_t{1}));
}

TEST_F(SchedAnswerTest, ReviewIntervalsAndFactors) {
  struct Case {
    int64_t ivl, d;
    int factor;
    double ivlFct, ease4;
    int maxIvl;
    int64_t hard, good, easy;
  };
  // hard = c(trunc((ivl + d/4) * 1.2 in double), ivl); good = c(trunc(single(ivl + d/2) * fct),
  // hard); easy = c(trunc(single(ivl + d) * fct * single(ease4) in single), good), where
  // fct = single(factor / 1000.0) and c(x, p) = max(trunc(single(x) * single(ivlFct)), p + 1).
  const Case cases[] = {
      // 12.0 -> 12; 10 * 2.5 = 25; 25 * 1.3f = 32.4999988, rounded to 32.5f -> 32.
      {10, 0, 2500, 1, 1.3, 36500, 12, 25, 32},
      // (100 + 2) * 1.2 = 122.4 -> 122; 105 * 2.5 = 262.5 -> 262; 110 * 2.5 * 1.3f = 357.49999
      // -> 357.5f -> 357.
      {100, 10, 2500, 1, 1.3, 36500, 122, 262, 357},
      // 12 * 1.2 = 14.4 -> 14; 30; 30 * 1.3f = 38.9999986 rounds to 39.0f in single -> 39,
      // where a double product would truncate to 38.
      {12, 0, 2500, 1, 1.3, 36500, 14, 30, 39},
      // fct = 2.3f = 2.29999995: 10 * fct = 22.9999995 rounds to 23.0f in single -> 23, where
      // a double product would give 22; 23 * 1.3f = 29.8999996f -> 29.
      {10, 0, 2300, 1, 1.3, 36500, 12, 23, 29},
      // factor 1300: fct 1.29999995; 100 * fct = 129.999995 -> 130.0f (double: 129);
      // 130 * 1.3f = 168.999994 -> 169.0f (double: 168).
      {100, 0, 1300, 1, 1.3, 36500, 120, 130, 169},
      // ivlFct 0.5: 12 -> 6, raised to 10 + 1; 25 -> 12.5 -> 12, at least 12; 32 -> 16.
      {10, 0, 2500, 0.5, 1.3, 36500, 11, 12, 16},
      // ivlFct 1.1f: 12 * 1.1f = 13.2 -> 13; 25 * 1.1f = 27.5 -> 27; 32 * 1.1f = 35.2 -> 35.
      {10, 0, 2500, 1.1, 1.3, 36500, 13, 27, 35},
      // maxIvl 100: 120, 250, 325 are all lowered to 100.
      {100, 0, 2500, 1, 1.3, 100, 100, 100, 100},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "ivl " << c.ivl << " d " << c.d << " factor " << c.factor
                                    << " ivlFct " << c.ivlFct << " maxIvl " << c.maxIvl);
    Json& rev = group()["rev"];
    rev["ivlFct"] = c.ivlFct;
    rev["ease4"] = c.ease4;
    rev["maxIvl"] = c.maxIvl;
    const Cols start{.type = 2, .queue = 2, .due = kToday - c.d, .ivl = c.ivl, .factor = c.factor};
    const int64_t expected[] = {c.hard, c.good, c.easy};
    const int delta[] = {-150, 0, 150};
    for (int ease = 2; ease <= 4; ++ease) {
      const Id cid = addCard(start);
      const int64_t ivl = expected[ease - 2];
      EXPECT_EQ(sched().nextIvl(*col->getCard(cid), ease), ivl * 86400) << "ease " << ease;
      answer(cid, ease);
      const int factor = std::max(1300, c.factor + delta[ease - 2]);
      EXPECT_EQ(row(cid), (Cols{2, 2, kToday + ivl, ivl, factor, 1, 0, 0, 0})) << "ease " << ease;
      EXPECT_EQ(lastLog(), (Log{intTime(1000), cid, -1, ease, ivl, c.ivl, factor, 4000, 1}));
    }
  }
}

TEST_F(SchedAnswerTest, FuzzRangeByInterval) {
  struct Case {
    int64_t ivl, low, high;
  };
  const Case cases[] = {
      {1, 1, 1},          // randomBetween(1, 1) has n = 0 and returns high
      {2, 2, 3},          // fixed
      {3, 2, 4},          // f = trunc(0.75) = 0, raised to 1
      {7, 5, 9},          // max(1.05, 2.0) = 2
      {29, 25, 33},       // trunc(4.35) = 4
      {30, 26, 34},       // max(1.5, 4.0) = 4
      {1000, 950, 1050},  // 50
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Scheduler::_fuzzIvlRange(c.ivl), std::make_pair(c.low, c.high)) << c.ivl;
    // randomBetween stays below high, and the result is ceil(r - 0.5): both ends come up, with
    // about half the weight of an inner value; an interval of 1 is never moved.
    std::set<int64_t> seen;
    for (int i = 0; i < 3000; ++i) seen.insert(Scheduler::_fuzzedIvl(c.ivl));
    EXPECT_GE(*seen.begin(), c.low) << c.ivl;
    EXPECT_LE(*seen.rbegin(), c.high) << c.ivl;
    if (c.high - c.low <= 10) {
      EXPECT_EQ(*seen.begin(), c.low) << c.ivl;
      EXPECT_EQ(*seen.rbegin(), c.high) << c.ivl;
    }
  }
}

TEST_F(SchedAnswerTest, FuzzedAnswersStayInTheirRange) {
  sched()._spreadRev = true;
  group()["rev"]["maxIvl"] = 100;
  // maxIvl 100 with ivl 100: 100 for every button before fuzz, [95, 105] after it.
  std::set<int64_t> seen;
  for (int i = 0; i < 40; ++i) {
    const Id cid = addCard({.type = 2, .queue = 2, .due = kToday, .ivl = 100, .factor = 2500});
    answer(cid, 2 + i % 3);
    const Cols r = row(cid);
    EXPECT_GE(r.ivl, 95);
    EXPECT_LE(r.ivl, 105);
    EXPECT_EQ(r.due, kToday + r.ivl);
    seen.insert(r.ivl);
  }
  EXPECT_GT(seen.size(), 1u);
}

TEST_F(SchedAnswerTest, LapsesOfReviewCards) {
  struct Case {
    const char* delays;
    double mult;
    int minInt, factor;
    Cols after;
    int64_t logIvl;
    int lrnAdded;
  };
  // From ivl 10, due today: lastIvl 10, lapses + 1, factor - 200 (at least 1300),
  // ivl = max(minInt, trunc(single(10) * single(mult))), review due = 100 + ivl. With steps:
  // odue keeps that review due, due = now + first step (no random factor), left = start.
  const Case cases[] = {
      // 10 * 0.7f = 6.99999988, which rounds to 7.0f in single; done in double it would be 6.
      {"[10]", 0.7, 1, 2500, {2, 1, kNow + 600, 7, 2300, 1, 1, 1001, 107}, -600, 1},
      {"[10]", 0, 3, 2500, {2, 1, kNow + 600, 3, 2300, 1, 1, 1001, 103}, -600, 1},
      // Two steps: left 2002; factor 1400 - 200 = 1200, floored to 1300.
      {"[10, 20]", 0.5, 1, 1400, {2, 1, kNow + 600, 5, 1300, 1, 1, 2002, 105}, -600, 2},
      // No relearning steps: stays in queue 2, due 105, left and odue untouched, logs ivl.
      {"[]", 0.5, 1, 2500, {2, 2, 105, 5, 2300, 1, 1, 0, 0}, 5, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.delays << " mult " << c.mult << " minInt " << c.minInt);
    Json& lapse = group()["lapse"];
    lapse["delays"] = Json::parse(c.delays);
    lapse["mult"] = c.mult;
    lapse["minInt"] = c.minInt;
    const Id cid = addCard({.type = 2, .queue = 2, .due = kToday, .ivl = 10, .factor = c.factor});
    const int before = sched().lrnCount;
    answer(cid, 1);
    EXPECT_EQ(row(cid), c.after);
    EXPECT_EQ(sched().lrnCount - before, c.lrnAdded);
    EXPECT_EQ(lastLog(), (Log{intTime(1000), cid, -1, 1, c.logIvl, 10, c.after.factor, 4000, 1}));
    EXPECT_EQ(counter(1, "revToday").second, 1 + (&c - cases));
  }
}

TEST_F(SchedAnswerTest, RelearningSteps) {
  struct Case {
    const char* delays;
    double mult;
    int minInt, left, ease;
    int64_t odue;
    Cols after;
    int64_t logIvl, logLastIvl;
  };
  // A lapsed card: type 2, queue 1, ivl 10, factor 2300, lapses 1, due now + 100 (no random
  // factor). lastIvl = -delay(old left) of the lapse delays.
  const Case cases[] = {
      // Good on the last step: due = max(odue, 100 + 1), odue 0; logs the card's ivl.
      {"[10]", 0, 1, 1001, 2, 50, {2, 2, 101, 10, 2300, 1, 1, 1001, 0}, 10, -600},
      // Easy graduates from any step; lastIvl -delay(2002) = -delays[0] * 60.
      {"[10, 20]", 0, 1, 2002, 3, 110, {2, 2, 110, 10, 2300, 1, 1, 2002, 0}, 10, -600},
      // Good with a step left: left 1001, delay delays[2 - 1] = 20 min.
      {"[10, 20]", 0, 1, 2002, 2, 110, {2, 1, kNow + 1200, 10, 2300, 1, 1, 1001, 110}, -1200, -600},
      // Again: ivl = max(trunc(max(10 * 0.9, 1.0)) in double, minInt) = 9 (10 * 0.9 is
      // 9.0000000000000002; with a single mult, 8.99999976, it would be 8). odue is kept.
      {"[10]", 0.9, 1, 1001, 1, 110, {2, 1, kNow + 600, 9, 2300, 1, 1, 1001, 110}, -600, -600},
      // mult 0: max(0, 1.0) = 1, raised by minInt 4.
      {"[10]", 0, 4, 1001, 1, 110, {2, 1, kNow + 600, 4, 2300, 1, 1, 1001, 110}, -600, -600},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.delays << " left " << c.left << " ease " << c.ease);
    Json& lapse = group()["lapse"];
    lapse["delays"] = Json::parse(c.delays);
    lapse["mult"] = c.mult;
    lapse["minInt"] = c.minInt;
    const Id cid = addCard({2, 1, kNow + 100, 10, 2300, 0, 1, c.left, c.odue});
    col->reset();
    answer(cid, c.ease);
    EXPECT_EQ(row(cid), c.after);
    EXPECT_EQ(lastLog(),
              (Log{intTime(1000), cid, -1, c.ease, c.logIvl, c.logLastIvl, 2300, 4000, 2}));
  }
}

TEST_F(SchedAnswerTest, Leeches) {
  struct Case {
    int leechFails, leechAction, lapsesBefore;
    bool leech;
  };
  // Leech when lapses >= lf and (lapses - lf) % max(lf / 2, 1) == 0.
  const Case cases[] = {
      {8, 0, 6, false}, {8, 0, 7, true},   {8, 0, 8, false}, {8, 0, 11, true},
      {1, 0, 4, true},  {0, 0, 20, false}, {8, 1, 7, true},
  };
  std::vector<std::string> posted;
  col->setNotificationSink([&](const std::string& name) { posted.push_back(name); });
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "leechFails " << c.leechFails << " lapses "
                                    << c.lapsesBefore + 1 << " action " << c.leechAction);
    posted.clear();
    group()["lapse"]["leechFails"] = c.leechFails;
    group()["lapse"]["leechAction"] = c.leechAction;
    const Id cid = addCard({.type = 2,
                            .queue = 2,
                            .due = kToday,
                            .ivl = 10,
                            .factor = 2500,
                            .lapses = c.lapsesBefore});
    answer(cid, 1);
    // ivl max(1, 10 * 0) = 1, review due 101. Suspended: returns before odue and the step are
    // set, so the log takes the card's ivl. Otherwise relearning as usual.
    const bool suspended = c.leech && c.leechAction == 0;
    const int64_t lapses = c.lapsesBefore + 1;
    const Cols want = suspended ? Cols{2, -1, 101, 1, 2300, 1, lapses, 0, 0}
                                : Cols{2, 1, kNow + 600, 1, 2300, 1, lapses, 1001, 101};
    EXPECT_EQ(row(cid), want);
    EXPECT_EQ(lastLog().ivl, suspended ? 1 : -600);
    const std::string tags = toText(*col->db()->scalar(
        "select tags from notes where id = (select nid from cards where id = ?)", {cid}));
    EXPECT_EQ(tags.find(" leech ") != std::string::npos, c.leech) << tags;
    EXPECT_EQ(posted, c.leech ? std::vector<std::string>{"leech"} : std::vector<std::string>{});
  }
}

TEST_F(SchedAnswerTest, DailyCountersOfTheDeckAndItsParents) {
  const Id child = col->decks().getID("P::C");
  const Id parent = col->decks().getID("P");
  col->reset();  // new decks start their counters on this day
  const Id cid = addNew(child);
  const Id rev = addReview(kToday, child);
  using P = std::pair<int64_t, int64_t>;
  answer(cid, 1);  // new: "new" and "time", no "lrn" for a card that was new
  for (Id did : {child, parent}) {
    EXPECT_EQ(counter(did, "newToday"), P(kToday, 1));
    EXPECT_EQ(counter(did, "lrnToday"), P(kToday, 0));
    EXPECT_EQ(counter(did, "timeToday"), P(kToday, 4000));
  }
  EXPECT_EQ(counter(1, "newToday"), P(kToday, 0));
  answer(cid, 1);  // learning
  answer(rev, 3);  // review
  for (Id did : {child, parent}) {
    EXPECT_EQ(counter(did, "newToday"), P(kToday, 1));
    EXPECT_EQ(counter(did, "lrnToday"), P(kToday, 1));
    EXPECT_EQ(counter(did, "revToday"), P(kToday, 1));
    EXPECT_EQ(counter(did, "timeToday"), P(kToday, 12000));
  }
  EXPECT_EQ(counter(1, "timeToday"), P(kToday, 0));
}

TEST_F(SchedAnswerTest, NextIntervalsAndButtons) {
  const Id fresh = addNew();
  auto card = col->getCard(fresh);
  // New: Again delays[0]; Good left 2002 -> n 1 -> delays[1]; Easy ints[1] days.
  EXPECT_EQ(sched().nextIvl(*card, 1), 60);
  EXPECT_EQ(sched().nextIvl(*card, 2), 600);
  EXPECT_EQ(sched().nextIvl(*card, 3), 4 * 86400);
  EXPECT_EQ(sched().nextIvlStr(*card, 2), "10 minutes");
  EXPECT_EQ(sched().nextIvlStr(*card, 3, true), "4d");
  EXPECT_EQ(sched().answerButtons(*card), 3);

  // Review ivl 10, factor 2500, due today: 12, 25, 32 days; Again the first lapse step.
  auto review = col->getCard(addReview(kToday));
  EXPECT_EQ(sched().nextIvl(*review, 1), 600);
  EXPECT_EQ(sched().nextIvl(*review, 4), 32 * 86400);
  EXPECT_EQ(sched().nextIvlStr(*review, 3), "25 days");
  EXPECT_EQ(sched().answerButtons(*review), 4);
  group()["lapse"]["delays"] = Json::array();  // no steps: max(minInt 1, 10 * 0) days
  EXPECT_EQ(sched().nextIvl(*review, 1), 86400);
  group()["lapse"]["delays"] = Json::array({0.5});  // the integer value 0, times 60
  EXPECT_EQ(sched().nextIvl(*review, 1), 0);
  EXPECT_EQ(sched().nextIvlStr(*review, 1), "(end)");

  // A lapsed card in relearning (odue set): 2 buttons with one step, 3 with two.
  auto lapsed = col->getCard(addCard({2, 1, kNow, 5, 2300, 3, 1, 1001, 110}));
  group()["lapse"]["delays"] = Json::array({10});
  EXPECT_EQ(sched().answerButtons(*lapsed), 2);
  group()["lapse"]["delays"] = Json::array({10, 20});
  EXPECT_EQ(sched().answerButtons(*lapsed), 3);
}

TEST_F(SchedAnswerTest, LearningInAFilteredDeckWithoutReschedulingEnds) {
  const Id dyn = col->decks().newDyn("Filtered");
  deck(dyn)["resched"] = false;
  col->decks().select(1);
  const Id cid = addCard({.type = 1, .queue = 1, .due = kNow, .left = 1001}, dyn);
  col->db()->run("update cards set odid = 1 where id = ?", {cid});
  auto card = col->getCard(cid);
  EXPECT_EQ(sched().nextIvlStr(*card, 3), "(end)");
  EXPECT_EQ(sched().nextIvl(*card, 2), 0);  // last step, resched off
  EXPECT_EQ(sched().nextIvl(*card, 1), 60);
}

TEST_F(SchedAnswerTest, LogIdsTakeTheNextFreeMillisecondWhenTheClockHasNotMoved) {
  // The clock stands still: a row from elsewhere holds this millisecond, and two answers come.
  const int64_t now = intTime(1000);
  col->db()->run("insert into revlog values (?, 1, 0, 3, 1, 1, 2500, 100, 1)", {now});
  for (Id cid : {addNew(), addNew()}) {
    auto card = col->getCard(cid);
    sched().answerCard(*card, 3);
  }
  EXPECT_EQ(col->db()->list("select id from revlog order by id"),
            (std::vector<Value>{now, now + 1, now + 2}));
}

}  // namespace
}  // namespace rivo
