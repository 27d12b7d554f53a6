// The scheduler on the generated collection: the deck tree, reset with a large and a small
// selection, and the answer loop with and without a commit per answer. Each has a twin that
// hands SQLite the very statements our run sent (recorded with their values written in), so
// the ratio of the two is what the scheduler adds on top of SQLite's own work.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "bench/GeneratedCollection.h"
#include "bench/SqlRecorder.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Scheduler.h"
#include "librivo/Storage.h"

namespace {

using rivo::Id;
using rivo::Json;
using Clock = std::chrono::steady_clock;

constexpr int kAnswers = 1000;

// Answering writes, and the shared file must stay as generated for the other benchmarks.
std::string freshCopy(const std::string& name) {
  return rivo::GeneratedCollection::get().copy(name);
}

// Read-only work shares one copy, made once.
const std::string& readCopy() {
  static const std::string path = freshCopy("sched-read.rivo2");
  return path;
}

std::unique_ptr<rivo::Col> openCol(const std::string& path) {
  return rivo::Storage::open(path, true, false, true, "");
}

enum Selection { kTop = 0, kLeaf = 1 };

// A subject at the top of the tree, with all the decks under it active; or the fullest leaf.
void selectDeck(rivo::Col& col, Selection which) {
  rivo::DeckManager& dm = col.decks();
  Id best = 1;
  if (which == kTop) {
    size_t most = 0;
    for (Json* deck : dm.all()) {
      const std::string name = (*deck)["name"].get<std::string>();
      if (name.find("::") != std::string::npos) continue;
      const Id id = rivo::jsonInt((*deck)["id"]);
      const size_t kids = dm.children(Json(id)).size();
      if (kids > most) most = kids, best = id;
    }
  } else {
    best = col.db()->scalarInt("select did from cards group by did order by count() desc limit 1");
  }
  dm.select(Json(best));
}

// A bare connection set up as the program opens the file, inside the same exclusive
// transaction the open leaves behind.
struct Bare {
  sqlite3* db = nullptr;
  int failures = 0;

  explicit Bare(const std::string& path) {
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "pragma temp_store = memory; pragma cache_size = 10000", nullptr, nullptr,
                 nullptr);
    sqlite3_exec(db, "begin exclusive transaction", nullptr, nullptr, nullptr);
  }
  ~Bare() {
    sqlite3_exec(db, "rollback", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }

  // Prepared, stepped through and finalized one by one, as the program's DB layer does.
  void replay(const std::vector<std::string>& statements, size_t from = 0, size_t to = SIZE_MAX) {
    to = std::min(to, statements.size());
    for (size_t i = from; i < to; ++i) {
      sqlite3_stmt* st = nullptr;
      if (sqlite3_prepare_v2(db, statements[i].c_str(), -1, &st, nullptr) != SQLITE_OK) {
        ++failures;
        continue;
      }
      int rc;
      while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
      }
      // A revlog id taken in the same millisecond fails here as it failed when recorded.
      if (rc != SQLITE_DONE && rc != SQLITE_CONSTRAINT) ++failures;
      sqlite3_finalize(st);
    }
  }
};

double threadSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Per-answer times, wall and this thread's CPU: the wall time holds the waits (a commit's
// sync, the millisecond a clashing revlog id waits), the CPU time the work alone.
struct PerAnswer {
  std::vector<double> wall, cpu;
  Clock::time_point wallStart;
  double cpuStart = 0;

  void start() {
    wallStart = Clock::now();
    cpuStart = threadSeconds();
  }
  double stop() {
    cpu.push_back(threadSeconds() - cpuStart);
    wall.push_back(std::chrono::duration<double>(Clock::now() - wallStart).count());
    return wall.back();
  }
  static double at(std::vector<double> v, double fraction) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[static_cast<size_t>(static_cast<double>(v.size() - 1) * fraction)];
  }
  void report(benchmark::State& state) const {
    state.counters["median_us"] = at(wall, 0.5) * 1e6;
    state.counters["p90_us"] = at(wall, 0.9) * 1e6;
    state.counters["cpu_median_us"] = at(cpu, 0.5) * 1e6;
  }
};

// --- The deck tree ---

void BM_SchedDeckDueTree(benchmark::State& state) {
  auto col = openCol(readCopy());
  col->reset();
  for (auto _ : state) benchmark::DoNotOptimize(col->sched().deckDueTree());
  col->closeAndSave(false);
}
BENCHMARK(BM_SchedDeckDueTree)->Unit(benchmark::kMillisecond);

void BM_SchedDeckDueTreeBareSql(benchmark::State& state) {
  std::vector<std::string> statements;
  {
    auto col = openCol(readCopy());
    col->reset();
    rivo::bench::SqlRecorder rec(col->db()->handle());
    col->sched().deckDueTree();
    statements = rec.expanded();
    rec.stop();
    col->closeAndSave(false);
  }
  Bare bare(readCopy());
  for (auto _ : state) bare.replay(statements);
  if (bare.failures) state.SkipWithError("a recorded statement failed");
  state.counters["statements"] = static_cast<double>(statements.size());
}
BENCHMARK(BM_SchedDeckDueTreeBareSql)->Unit(benchmark::kMillisecond);

// --- Reset ---

void BM_SchedReset(benchmark::State& state) {
  auto col = openCol(readCopy());
  selectDeck(*col, static_cast<Selection>(state.range(0)));
  for (auto _ : state) col->sched().reset();
  state.counters["activeDecks"] = static_cast<double>(col->decks().active().size());
  const auto counts = col->sched().counts();
  state.counters["new"] = counts[0];
  state.counters["lrn"] = counts[1];
  state.counters["rev"] = counts[2];
  col->closeAndSave(false);
}
BENCHMARK(BM_SchedReset)->ArgName("leaf")->Arg(kTop)->Arg(kLeaf)->Unit(benchmark::kMicrosecond);

void BM_SchedResetBareSql(benchmark::State& state) {
  std::vector<std::string> statements;
  {
    auto col = openCol(readCopy());
    selectDeck(*col, static_cast<Selection>(state.range(0)));
    col->sched().reset();
    rivo::bench::SqlRecorder rec(col->db()->handle());
    col->sched().reset();
    statements = rec.expanded();
    rec.stop();
    col->closeAndSave(false);
  }
  Bare bare(readCopy());
  for (auto _ : state) bare.replay(statements);
  if (bare.failures) state.SkipWithError("a recorded statement failed");
  state.counters["statements"] = static_cast<double>(statements.size());
}
BENCHMARK(BM_SchedResetBareSql)
    ->ArgName("leaf")
    ->Arg(kTop)
    ->Arg(kLeaf)
    ->Unit(benchmark::kMicrosecond);

// --- Answering ---

// Mostly the default button, every fifth card Again: learning cards come back, reviews lapse.
int easeFor(rivo::Scheduler& sched, const rivo::Card& card, int i) {
  if (i % 5 == 4) return 1;
  return sched.answerButtons(card) == 4 ? 3 : 2;
}

// The top selection with today's limits raised (as custom study does), so that a thousand
// cards are there to answer in the day's mix of learning, review and new.
void startAnswering(rivo::Col& col) {
  selectDeck(col, kTop);
  col.sched().extendLimits(kAnswers, kAnswers);
  col.reset();
}

// One answer as the study screen gives it: fetch, answer, and with `commit` save.
bool answerOne(rivo::Col& col, int i, bool commit) {
  std::unique_ptr<rivo::Card> card = col.sched().getCard();
  if (!card) return false;
  col.sched().answerCard(*card, easeFor(col.sched(), *card, i));
  if (commit) col.save();
  return true;
}

// One iteration per answer, timed by hand so that the median can be read beside the mean.
void BM_SchedAnswer(benchmark::State& state) {
  const bool commit = state.range(0) != 0;
  auto col = openCol(freshCopy("sched-answer.rivo2"));
  startAnswering(*col);
  PerAnswer times;
  int i = 0;
  for (auto _ : state) {
    times.start();
    const bool answered = answerOne(*col, i++, commit);
    const double seconds = times.stop();
    if (!answered) {
      state.SkipWithError("the selection ran out of cards");
      break;
    }
    state.SetIterationTime(seconds);
  }
  times.report(state);
  col->closeAndSave(false);
}
BENCHMARK(BM_SchedAnswer)
    ->ArgName("commit")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(kAnswers)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

// The statements of the same loop, recorded on one copy, replayed on another, answer by answer.
void BM_SchedAnswerBareSql(benchmark::State& state) {
  const bool commit = state.range(0) != 0;
  std::vector<std::string> statements;
  std::vector<size_t> ends;  // where each answer's statements end
  {
    auto col = openCol(freshCopy("sched-answer.rivo2"));
    startAnswering(*col);
    rivo::bench::SqlRecorder rec(col->db()->handle());
    for (int i = 0; i < kAnswers && answerOne(*col, i, commit); ++i) ends.push_back(rec.size());
    statements = rec.expanded();
    rec.stop();
    col->closeAndSave(false);
  }
  Bare bare(freshCopy("sched-answer.rivo2"));
  PerAnswer times;
  size_t answer = 0, from = 0;
  for (auto _ : state) {
    if (answer == ends.size()) {
      state.SkipWithError("the recording ran out of cards");
      break;
    }
    times.start();
    bare.replay(statements, from, ends[answer]);
    from = ends[answer++];
    state.SetIterationTime(times.stop());
  }
  if (bare.failures) state.SkipWithError("a recorded statement failed");
  times.report(state);
  state.counters["idClashes"] = static_cast<double>(std::count_if(
      statements.begin(), statements.end(),
      [](const std::string& sql) { return sql.rfind("select 1 from revlog where id", 0) == 0; }));
  state.counters["statements"] =
      static_cast<double>(statements.size()) / static_cast<double>(std::max<size_t>(1, answer));
}
BENCHMARK(BM_SchedAnswerBareSql)
    ->ArgName("commit")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(kAnswers)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
