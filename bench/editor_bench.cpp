// Adding and editing on the generated collection. The editor opening on a card (its note read,
// the page's fields and every tag of the collection sent) against the same SQL run bare; and
// `rivo add` as a whole process, from launch to exit, against the sqlite3 program running the
// statements of the same addition.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/ActionsManager.h"
#include "app/AppDelegate.h"
#include "app/DecksViewController.h"
#include "app/EditViewController.h"
#include "app/NavigationController.h"
#include "bench/GeneratedCollection.h"
#include "bench/LaunchedApp.h"
#include "bench/QuietProcess.h"
#include "bench/SqlRecorder.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Note.h"
#include "librivo/Storage.h"
#include "librivo/TagManager.h"
#include "shell/BrowserBridge.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// A data folder of its own whose profile "User 1" holds a copy of the generated collection.
std::string dataDir(const std::string& name) {
  const auto& gen = rivo::GeneratedCollection::get();
  const std::string data = gen.dir + "/" + name;
  fs::create_directories(data + "/profiles/User 1");
  fs::rename(gen.copy(name + ".rivo2"), data + "/profiles/User 1/collection.rivo2");
  return data;
}

struct Editing {
  rivo::BrowserBridge bridge;
  std::unique_ptr<rivo::AppDelegate> app;
  rivo::Id cid = 0;

  Editing() {
    static const std::string data = dataDir("editor-data");
    app = rivo::bench::launchApp(bridge, data);
    main().runUntil([&] { return app->dvc() && !bridge.snapshot()["screen"]["sections"].empty(); },
                    60s);
    cid = rivo::GeneratedCollection::get().cardIds[12345];
  }
  ~Editing() {
    bridge.close();
    app->dispatch().shutdown();
  }
  rivo::MainLoop& main() { return app->dispatch().main(); }
  // The action, then what the page's load makes the editor do.
  void open() {
    app->acts().openEditor(std::make_unique<rivo::Card>(*app->col(), cid));
    auto* editor = dynamic_cast<rivo::EditViewController*>(app->nc()->top());
    editor->webView()->delegate()->didFinishLoad(*editor->webView());
    main().runPending(false);
  }
  void close() {
    app->nc()->pop();
    main().runPending(false);
  }
};

void BM_EditorOpenOnACard(benchmark::State& state) {
  Editing e;
  for (auto _ : state) {
    e.open();
    state.PauseTiming();
    e.close();
    state.ResumeTiming();
  }
  state.counters["tags"] = static_cast<double>(e.app->col()->tags().all().size());
}
BENCHMARK(BM_EditorOpenOnACard)->Unit(benchmark::kMillisecond);

void BM_EditorOpenOnACardBareSql(benchmark::State& state) {
  std::vector<std::string> statements;
  std::string path;
  {
    Editing e;
    path = e.app->col()->path();
    rivo::bench::SqlRecorder rec(e.app->col()->db()->handle());
    e.open();
    statements = rec.expanded();
  }
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  for (auto _ : state)
    for (const std::string& sql : statements)
      sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
  sqlite3_close(db);
  state.counters["statements"] = static_cast<double>(statements.size());
}
BENCHMARK(BM_EditorOpenOnACardBareSql)->Unit(benchmark::kMillisecond);

bool run(const std::vector<std::string>& args) {
  return rivo::bench::QuietProcess::run(args);
}

const std::string& addData() {
  static const std::string data = [] {
    std::string d = dataDir("add-data");
    run({RIVO_BINARY, "--data", d, "init"});
    return d;
  }();
  return data;
}

void BM_AddCommand(benchmark::State& state) {
  const std::vector<std::string> args = {RIVO_BINARY, "--data", addData(),     "add",
                                         "--tags",    "bench",  "A question?", "<b>An answer</b>"};
  bool ok = true;
  for (auto _ : state) ok = run(args) && ok;
  if (!ok) state.SkipWithError("rivo add failed");
}
BENCHMARK(BM_AddCommand)->Unit(benchmark::kMillisecond)->UseRealTime();

// The statements of one addition and its save, recorded in-process on a copy; rows are
// replaced so that each run writes as much as the first.
void BM_AddCommandSqlite3Program(benchmark::State& state) {
  const auto& gen = rivo::GeneratedCollection::get();
  const std::string path = gen.copy("add-twin.rivo2");
  // The collection holds its file in a transaction from the start; the recording begins inside.
  std::string sql = "begin exclusive;";
  {
    auto col = rivo::Storage::open(path, true, false, true, "");
    rivo::bench::SqlRecorder rec(col->db()->handle());
    auto note = col->newNote();
    note->fields = {"A question?", "<b>An answer</b>"};
    note->setTagsFromStr("bench");
    col->addNote(*note);
    col->save();
    for (std::string s : rec.expanded()) {
      if (s.rfind("insert into ", 0) == 0) s.replace(0, 12, "insert or replace into ");
      sql += s + ";";
    }
    rec.stop();
    col->closeAndSave(false);
  }
  const std::vector<std::string> args = {"sqlite3", path, sql};
  bool ok = true;
  for (auto _ : state) ok = run(args) && ok;
  if (!ok) state.SkipWithError("sqlite3 failed");
  state.counters["statements"] = static_cast<double>(std::count(sql.begin(), sql.end(), ';'));
}
BENCHMARK(BM_AddCommandSqlite3Program)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
