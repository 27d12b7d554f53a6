// A driver answering cards, committing after each answer, is killed with SIGKILL at random
// moments. After each kill the file must be whole, hold every answer the driver reported as
// committed with its card row agreeing, and hold nothing else but at most the one answer
// committed in the instant before the kill. RIVO_KILLS sets the number of kills (200).

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/StoredCodes.h"
#include "librivo/Value.h"
#include "tests/librivo/NoteTypeFixture.h"
#include "tests/support/ChildProcess.h"

namespace rivo {
namespace {

class KillTest : public test::CollectionTest {
 protected:
  // Cards to answer, and no daily limit on new ones to stop the driver.
  void makeCards(int count) {
    for (int i = 0; i < count; ++i) insertCard(insertNote("q" + std::to_string(i) + "\037a"), 0);
    Json conf = *col->decks().confForDid(Json(1));
    // A thousand kills introduce more than 9,999 new cards in the one day.
    conf["new"]["perDay"] = 1000000;
    col->decks().updateConf(conf);
    col->save();
    col->close();
  }

  // Each reported answer is in the log; the card answered last by it agrees with it.
  static void checkAnswers(DB& db, const std::set<Id>& reported, const std::map<Id, Id>& last) {
    const std::vector<int64_t> stored = db.ids("select id from revlog");
    const std::set<Id> inLog(stored.begin(), stored.end());
    for (Id rid : reported) ASSERT_TRUE(inLog.count(rid)) << "lost answer " << rid;
    for (const auto& [cid, rid] : last) {
      const Row row = db.first(
                            "select c.type, c.queue, c.ivl, c.factor, r.ivl, r.factor, "
                            "(select max(id) from revlog where cid = c.id) from cards c "
                            "join revlog r on r.cid = c.id where r.id = ?",
                            {rid})
                          .value_or(Row{});
      ASSERT_EQ(row.size(), 7u) << "card " << cid;
      if (toInt(row[6]) != rid) continue;  // answered again, unreported, before the kill
      if (toInt(row[4]) > 0) {
        EXPECT_EQ(toInt(row[0]), kTypeReview) << "card " << cid;
        EXPECT_EQ(toInt(row[2]), toInt(row[4])) << "card " << cid;
        EXPECT_EQ(toInt(row[3]), toInt(row[5])) << "card " << cid;
      } else {
        EXPECT_EQ(toInt(row[1]), kQueueLearning) << "card " << cid;
      }
    }
  }
};

TEST_F(KillTest, EveryReportedAnswerSurvivesSigkill) {
  makeCards(300);
  const char* env = std::getenv("RIVO_KILLS");
  const int kills = env ? std::atoi(env) : 200;
  std::mt19937 rng(13);
  std::set<Id> reported;
  std::map<Id, Id> last;
  int64_t unreported = 0;
  for (int k = 0; k < kills; ++k) {
    test::ChildProcess driver({RIVO_KILL_DRIVER, path()});
    driver.waitForLine("ready");
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % 20000));
    std::istringstream lines(driver.stop(SIGKILL).out);
    for (std::string word; lines >> word;) {
      if (word == "forgetting") {
        last.clear();
      } else if (word == "answered") {
        Id cid = 0, rid = 0;
        lines >> cid >> rid;
        reported.insert(rid);
        last[cid] = rid;
      }
    }
    DB db(path());
    ASSERT_EQ(toText(*db.scalar("pragma integrity_check")), "ok") << "kill " << k;
    const int64_t count = db.scalarInt("select count() from revlog");
    const int64_t extra = count - static_cast<int64_t>(reported.size());
    ASSERT_TRUE(extra == unreported || extra == unreported + 1) << "kill " << k;
    unreported = extra;
    checkAnswers(db, reported, last);
    if (HasFatalFailure()) return;
  }
  std::printf("kills: %d, answers reported: %zu, answers found: %zu, not yet reported: %lld\n",
              kills, reported.size(), reported.size(), static_cast<long long>(unreported));
  // It studies on after the last kill.
  test::ChildProcess driver({RIVO_KILL_DRIVER, path()});
  EXPECT_NE(driver.waitForLine("answered"), "");
}

}  // namespace
}  // namespace rivo
