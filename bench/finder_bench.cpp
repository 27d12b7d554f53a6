// Searches on the generated collection, each timed against the very statements it sent
// (recorded with their values written in) run on a bare SQLite connection. The ratio is what
// building the query, the field patterns and reading the ids add on top of SQLite's own work.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/GeneratedCollection.h"
#include "bench/SqlRecorder.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Storage.h"

namespace {

using Clock = std::chrono::steady_clock;

// Two copies: the program's open holds an exclusive transaction on its file for as long as
// it is open, and the bare connection runs alongside it.
const std::string& copyOf(const std::string& name) {
  static std::map<std::string, std::string> made;
  auto it = made.find(name);
  if (it == made.end()) it = made.emplace(name, rivo::GeneratedCollection::get().copy(name)).first;
  return it->second;
}

// Runs the statements as the program's DB layer does: prepare, step every row, finalize.
int replay(sqlite3* db, const std::vector<std::string>& statements) {
  int failures = 0;
  for (const std::string& s : statements) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, s.c_str(), -1, &st, nullptr) != SQLITE_OK) {
      ++failures;
      continue;
    }
    while (sqlite3_step(st) == SQLITE_ROW) benchmark::DoNotOptimize(sqlite3_column_int64(st, 0));
    sqlite3_finalize(st);
  }
  return failures;
}

void BM_Find(benchmark::State& state, const std::string& query) {
  auto col = rivo::Storage::open(copyOf("finder-read.rivo2"), true, false, true, "");
  std::vector<std::string> statements;
  size_t found = 0;
  {
    rivo::bench::SqlRecorder rec(col->db()->handle());
    found = col->findCards(query).size();
    statements = rec.expanded();
  }
  sqlite3* bare = nullptr;
  sqlite3_open(copyOf("finder-bare.rivo2").c_str(), &bare);
  sqlite3_exec(bare, "pragma temp_store = memory; pragma cache_size = 10000", nullptr, nullptr,
               nullptr);
  replay(bare, statements);  // warms its cache as the recording run warmed the program's

  double finder = 0, sql = 0;
  int failures = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    benchmark::DoNotOptimize(col->findCards(query));
    const auto t1 = Clock::now();
    failures += replay(bare, statements);
    const auto t2 = Clock::now();
    finder += std::chrono::duration<double>(t1 - t0).count();
    sql += std::chrono::duration<double>(t2 - t1).count();
  }
  sqlite3_close(bare);
  col->closeAndSave(false);
  if (failures) state.SkipWithError("a recorded statement failed");
  const double n = static_cast<double>(state.iterations());
  state.counters["finder_ms"] = finder / n * 1e3;
  state.counters["bare_sql_ms"] = sql / n * 1e3;
  state.counters["ratio"] = sql > 0 ? finder / sql : 0;
  state.counters["cards"] = static_cast<double>(found);
  state.counters["statements"] = static_cast<double>(statements.size());
}

BENCHMARK_CAPTURE(BM_Find, DeckWithChildren, std::string("deck:\"Subject 1\""))
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Find, Tag, std::string("tag:house_0"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Find, IsDue, std::string("is:due"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Find, TextWord, std::string("river"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Find, Field, std::string("front:*river*"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Find, ThreeTerms, std::string("deck:\"Subject 1\" -tag:house_0 river"))
    ->Unit(benchmark::kMillisecond);

}  // namespace
