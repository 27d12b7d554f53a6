// The application in the browser on the generated collection: from the start of `rivo serve`
// to the deck list's first description, and the deck list's load job, each against the bare
// work underneath (a plain connection running the same SQL).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/AppDelegate.h"
#include "app/DecksViewController.h"
#include "app/ProfileManager.h"
#include "bench/GeneratedCollection.h"
#include "bench/LaunchedApp.h"
#include "bench/SqlRecorder.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "shell/BrowserBridge.h"
#include "shell/WebServer.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A data folder whose one profile holds a copy of the generated collection.
const std::string& dataDir() {
  static const std::string dir = [] {
    const auto& gen = rivo::GeneratedCollection::get();
    std::string data = gen.dir + "/serve-data";
    fs::create_directories(data + "/profiles/User 1");
    fs::copy_file(gen.path, data + "/profiles/User 1/collection.rivo2",
                  fs::copy_options::overwrite_existing);
    return data;
  }();
  return dir;
}

// The program as `rivo serve` runs it, without the browser.
struct Served {
  rivo::BrowserBridge bridge;
  std::unique_ptr<rivo::AppDelegate> app;
  std::unique_ptr<rivo::WebServer> server;

  Served() {
    app = rivo::bench::launchApp(bridge, dataDir());
    server = std::make_unique<rivo::WebServer>(bridge, rivo::WebServer::Options{});
    server->start();
  }
  ~Served() {
    bridge.close();
    app->dispatch().shutdown();
    server->stop();
  }
  bool listShown() const { return !bridge.snapshot()["screen"]["sections"].empty(); }
  bool run(const std::function<bool()>& done) { return app->dispatch().main().runUntil(done, 60s); }
};

void BM_ServeToFirstDeckList(benchmark::State& state) {
  dataDir();  // the collection is generated and copied before the clock starts
  for (auto _ : state) {
    auto start = Clock::now();
    auto served = std::make_unique<Served>();
    if (!served->run([&] { return served->listShown(); })) state.SkipWithError("no deck list");
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    state.PauseTiming();
    served.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_ServeToFirstDeckList)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

// The statements of the deck list's load, recorded once.
const std::vector<std::string>& loadStatements() {
  static const std::vector<std::string> statements = [] {
    Served served;
    served.run([&] { return served.listShown(); });
    rivo::Col& col = *served.app->col();
    rivo::bench::SqlRecorder rec(col.db()->handle());
    rivo::DecksViewController::_loadDecks(col, served.app->pm());
    return rec.expanded();
  }();
  return statements;
}

// Opening the file and reading the collection row, then the load's statements, bare.
void BM_ServeToFirstDeckListBareSql(benchmark::State& state) {
  const auto& statements = loadStatements();
  std::string path = dataDir() + "/profiles/User 1/collection.rivo2";
  for (auto _ : state) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "pragma temp_store = memory; pragma cache_size = 10000; begin exclusive",
                 nullptr, nullptr, nullptr);
    sqlite3_exec(
        db, "select * from col", [](void*, int, char**, char**) { return 0; }, nullptr, nullptr);
    for (const std::string& sql : statements)
      sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
    sqlite3_exec(db, "rollback", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
  state.counters["statements"] = static_cast<double>(statements.size() + 1);
}
BENCHMARK(BM_ServeToFirstDeckListBareSql)->Unit(benchmark::kMillisecond);

// The load job as a refresh runs it: queued, under its spinner, the list built and sent.
void BM_DeckListLoadJob(benchmark::State& state) {
  Served served;
  served.run([&] { return served.listShown(); });
  for (auto _ : state) {
    std::atomic<bool> done{false};
    served.app->dvc()->loadDecks();
    // Behind the load: its main block has run when this one's turn comes.
    served.app->doWork("", {}, [&] { done = true; });
    served.run([&] { return done.load(); });
  }
}
BENCHMARK(BM_DeckListLoadJob)->Unit(benchmark::kMillisecond);

void BM_DeckListLoadBareSql(benchmark::State& state) {
  const auto& statements = loadStatements();
  std::string path = dataDir() + "/profiles/User 1/collection.rivo2";
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db, "pragma temp_store = memory; pragma cache_size = 10000; begin exclusive",
               nullptr, nullptr, nullptr);
  for (auto _ : state)
    for (const std::string& sql : statements)
      sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
  sqlite3_exec(db, "rollback", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  state.counters["statements"] = static_cast<double>(statements.size());
}
BENCHMARK(BM_DeckListLoadBareSql)->Unit(benchmark::kMillisecond);

}  // namespace
