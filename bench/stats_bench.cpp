// The statistics report on the generated collection (1,000,000 review rows) for each period,
// of the whole collection and of one subject (a tenth of it), against the same statements run
// bare on the same connection: every row stepped and its columns read, nothing else.
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
#include "librivo/Storage.h"
#include "librivo/stats/CollectionStats.h"

namespace {

// The collection on a copy of its own, with "Subject 1" and its children active.
rivo::Col& col() {
  static std::unique_ptr<rivo::Col> c = [] {
    auto opened = rivo::Storage::open(rivo::GeneratedCollection::get().copy("stats.rivo2"));
    opened->decks().select(opened->decks().getID("Subject 1"));
    // One whole report first, so that no figure pays for reading the file from disk.
    rivo::CollectionStats warm(*opened);
    warm.wholeCollection = true;
    warm.reportOfType(rivo::CollectionStats::kLife);
    return opened;
  }();
  return *c;
}

std::string report(int period, bool whole) {
  rivo::CollectionStats stats(col(), 260, 100);
  stats.wholeCollection = whole;
  return stats.reportOfType(period);
}

void BM_StatsReport(benchmark::State& state) {
  const int period = static_cast<int>(state.range(0));
  const bool whole = state.range(1) != 0;
  col();  // made (and warmed) outside the timing
  for (auto _ : state) benchmark::DoNotOptimize(report(period, whole));
}
BENCHMARK(BM_StatsReport)
    ->ArgsProduct({{0, 1, 2}, {1, 0}})
    ->ArgNames({"period", "whole"})
    ->Unit(benchmark::kMillisecond);

// Baseline: the statements one report ran, replayed with their values written in.
void BM_StatsReport_BareSql(benchmark::State& state) {
  const int period = static_cast<int>(state.range(0));
  const bool whole = state.range(1) != 0;
  sqlite3* db = col().db()->handle();
  std::vector<std::string> statements;
  {
    rivo::bench::SqlRecorder rec(db);
    report(period, whole);
    rec.stop();
    statements = rec.expanded();
  }
  for (auto _ : state) {
    for (const std::string& sql : statements) {
      sqlite3_stmt* st = nullptr;
      if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) std::abort();
      while (sqlite3_step(st) == SQLITE_ROW)
        for (int i = 0; i < sqlite3_column_count(st); ++i)
          benchmark::DoNotOptimize(sqlite3_column_double(st, i));
      sqlite3_finalize(st);
    }
  }
  state.counters["statements"] = static_cast<double>(statements.size());
}
BENCHMARK(BM_StatsReport_BareSql)
    ->ArgsProduct({{0, 1, 2}, {1, 0}})
    ->ArgNames({"period", "whole"})
    ->Unit(benchmark::kMillisecond);

}  // namespace
