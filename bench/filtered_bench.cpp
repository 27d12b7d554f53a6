// Building a filtered deck of 1,000 cards on the generated collection: a rebuild (the previous
// thousand go home, the search runs, the new thousand move in), against the same statements
// handed to SQLite bare. The bare twin reuses one prepared statement for the moves, as the
// program's batch does, so the ratio is what the filtered-deck code adds to SQLite's work.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/GeneratedCollection.h"
#include "bench/SqlRecorder.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Scheduler.h"
#include "librivo/Storage.h"

namespace {

using rivo::Id;
using rivo::Json;

constexpr int kCards = 1000;

// Rebuilding writes, and the shared file must stay as generated for the other benchmarks.
std::string freshCopy() {
  return rivo::GeneratedCollection::get().copy("filtered.rivo2");
}

// A filtered deck over every review card, by increasing interval.
Id makeDeck(rivo::Col& col) {
  const Id did = col.decks().newDyn("Bench Filtered");
  Json& deck = *col.decks().getDeck(Json(did));
  deck["terms"] = Json::array({Json::array({"is:review", kCards, 2})});
  return did;
}

using Statement = rivo::bench::SqlRecorder::Statement;

void BM_FilteredRebuild(benchmark::State& state) {
  auto col = rivo::Storage::open(freshCopy(), true, false, true, "");
  const Id did = makeDeck(*col);
  size_t moved = 0;
  for (auto _ : state) moved = col->sched().rebuildDynForDeck(did).size();
  if (moved != kCards) state.SkipWithError("the search found too few cards");
  state.counters["cards"] = static_cast<double>(moved);
  col->closeAndSave(false);
}
BENCHMARK(BM_FilteredRebuild)->Unit(benchmark::kMillisecond);

void BM_FilteredRebuildBareSql(benchmark::State& state) {
  const std::string path = freshCopy();
  std::vector<Statement> statements;
  std::vector<Id> ids;
  Id did = 0;
  {
    auto col = rivo::Storage::open(path, true, false, true, "");
    did = makeDeck(*col);
    col->sched().rebuildDynForDeck(did);  // the steady state: a full deck goes home first
    rivo::bench::SqlRecorder rec(col->db()->handle());
    ids = col->sched().rebuildDynForDeck(did);
    statements = rec.statements();
    rec.stop();
    col->save();  // the replay starts from the same full deck
    col->closeAndSave(false);
  }
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db, "pragma temp_store = memory; pragma cache_size = 10000", nullptr, nullptr,
               nullptr);
  sqlite3_exec(db, "begin exclusive transaction", nullptr, nullptr, nullptr);
  int failures = 0;
  auto stepAll = [&](sqlite3_stmt* st) {
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
    }
    if (rc != SQLITE_DONE) ++failures;
  };
  for (auto _ : state) {
    for (size_t i = 0; i < statements.size(); ++i) {
      sqlite3_stmt* st = nullptr;
      const Statement& s = statements[i];
      if (s.unexpanded.rfind("update cards set odid", 0) == 0) {
        // The moves: one statement, bound once a card, as a batch runs it.
        sqlite3_prepare_v2(db, s.unexpanded.c_str(), -1, &st, nullptr);
        for (size_t k = 0; k < ids.size(); ++k, ++i) {
          sqlite3_bind_int64(st, 1, did);
          sqlite3_bind_int64(st, 2, -100000 + static_cast<int64_t>(k));
          sqlite3_bind_int64(st, 3, 1);
          sqlite3_bind_int64(st, 4, -1);
          sqlite3_bind_int64(st, 5, ids[k]);
          stepAll(st);
          sqlite3_reset(st);
        }
        --i;
      } else if (sqlite3_prepare_v2(db, s.expanded.c_str(), -1, &st, nullptr) == SQLITE_OK) {
        stepAll(st);
      } else {
        ++failures;
      }
      sqlite3_finalize(st);
    }
  }
  sqlite3_exec(db, "rollback", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  if (failures) state.SkipWithError("a recorded statement failed");
  state.counters["statements"] = static_cast<double>(statements.size());
}
BENCHMARK(BM_FilteredRebuildBareSql)->Unit(benchmark::kMillisecond);

}  // namespace
