// The database check on the generated collection, against the bare SQLite work it can't
// avoid (the integrity check, vacuum and analyze).
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include "bench/GeneratedCollection.h"
#include "librivo/Col.h"
#include "librivo/Storage.h"

namespace {

// A fresh copy per run, since the check rewrites the file.
std::string copyOfGenerated() {
  return rivo::GeneratedCollection::get().copy("check-copy.rivo2");
}

void BM_FixIntegrity(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    std::string path = copyOfGenerated();
    auto col = rivo::Storage::open(path);
    state.ResumeTiming();
    benchmark::DoNotOptimize(col->fixIntegrity());
    state.PauseTiming();
    col->close();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_FixIntegrity)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_FixIntegrityBareSql(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    std::string path = copyOfGenerated();
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    state.ResumeTiming();
    sqlite3_exec(db, "pragma integrity_check; vacuum; analyze;", nullptr, nullptr, nullptr);
    state.PauseTiming();
    sqlite3_close(db);
    state.ResumeTiming();
  }
}
BENCHMARK(BM_FixIntegrityBareSql)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
