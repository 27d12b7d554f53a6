// The review screen's share of an answer on the generated collection: the whole task of the
// answer key (the answer recorded, the next card fetched, rendered and its scripts queued for
// the page, the collection saved, the screen described), against the same SQL run bare. The
// next question's scripts leave before the save's flush to disk; the browser's share, and the
// whole figure, are measured by bench/study_browser.mjs.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/AppDelegate.h"
#include "app/DecksViewController.h"
#include "app/NavigationController.h"
#include "app/StudyViewController.h"
#include "bench/GeneratedCollection.h"
#include "bench/LaunchedApp.h"
#include "bench/SqlRecorder.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "shell/BrowserBridge.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// A data folder whose profile holds a copy of the generated collection, with a day's limits
// large enough that one deck lasts the whole run.
const std::string& dataDir() {
  static const std::string dir = [] {
    const auto& gen = rivo::GeneratedCollection::get();
    std::string data = gen.dir + "/study-data";
    std::string path = data + "/profiles/User 1/collection.rivo2";
    fs::create_directories(data + "/profiles/User 1");
    fs::rename(gen.copy("study.rivo2"), path);
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db,
                 "update col set dconf = json_set(dconf, '$.\"1\".new.perDay', 100000, "
                 "'$.\"1\".rev.perDay', 100000)",
                 nullptr, nullptr, nullptr);
    sqlite3_close(db);
    return data;
  }();
  return dir;
}

// The program with the review screen open on a top-level deck, the one the browser's
// benchmark studies, but with no browser attached (the page's scripts are dropped).
struct Studying {
  rivo::BrowserBridge bridge;
  std::unique_ptr<rivo::AppDelegate> app;
  rivo::StudyViewController* svc = nullptr;

  Studying() {
    app = rivo::bench::launchApp(bridge, dataDir());
    main().runUntil([&] { return app->dvc() && !bridge.snapshot()["screen"]["sections"].empty(); },
                    60s);
    rivo::Col& col = *app->col();
    col.decks().select(col.decks().getID("Subject 1", false));
    auto study = app->studyViewController();
    study->reset();
    app->dvc()->navigationController()->push(study);
    svc = study.get();
    svc->showCurrentOrNextCard();  // what the page's load does
    main().runPending(false);
  }
  ~Studying() {
    bridge.close();
    app->dispatch().shutdown();
  }
  rivo::MainLoop& main() { return app->dispatch().main(); }
  // Space shows the answer; "3" answers Good (or Easy on a three-button card).
  void answer() {
    svc->handleKey(3);
    main().runPending(false);
  }
};

void BM_StudyAnswerToNextQuestion(benchmark::State& state) {
  Studying s;
  for (auto _ : state) {
    state.PauseTiming();
    s.svc->handleKeySpace();
    s.main().runPending(false);
    if (!s.svc->card()) {
      state.SkipWithError("the deck ran out");
      break;
    }
    state.ResumeTiming();
    s.answer();
  }
}
BENCHMARK(BM_StudyAnswerToNextQuestion)->Unit(benchmark::kMillisecond)->Iterations(200);

// The statements of one answer, recorded once.
const std::vector<std::string>& answerStatements() {
  static const std::vector<std::string> statements = [] {
    Studying s;
    s.svc->handleKeySpace();
    rivo::bench::SqlRecorder rec(s.app->col()->db()->handle());
    s.answer();
    return rec.expanded();
  }();
  return statements;
}

// The same statements on a plain connection; the recorded commit stays, so the save's
// writing to disk is in both.
void BM_StudyAnswerToNextQuestionBareSql(benchmark::State& state) {
  const auto& statements = answerStatements();
  std::string path = dataDir() + "/profiles/User 1/collection.rivo2";
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db, "pragma temp_store = memory; pragma cache_size = 10000", nullptr, nullptr,
               nullptr);
  for (auto _ : state)
    for (const std::string& sql : statements)
      sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
  sqlite3_close(db);
  state.counters["statements"] = static_cast<double>(statements.size());
}
BENCHMARK(BM_StudyAnswerToNextQuestionBareSql)->Unit(benchmark::kMillisecond);

}  // namespace
