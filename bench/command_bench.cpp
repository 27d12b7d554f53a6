// A command as a whole process on the generated collection: `rivo search`, from launch to
// exit, against the sqlite3 program running the same query on the same file.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/GeneratedCollection.h"
#include "bench/QuietProcess.h"
#include "bench/SqlRecorder.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Ids.h"
#include "librivo/Scheduler.h"
#include "librivo/Storage.h"

namespace {

namespace fs = std::filesystem;

const char* const kQuery = "nid:1";

// A data folder of its own, whose one profile holds a copy of the generated collection. The
// generated collection has "newBury" on; a collection this program made doesn't, and then every
// open unburies (here with nothing left buried, as after the first save).
struct SearchData {
  std::string dir, collection;
  std::string sql;  // what the search sends, for the sqlite3 program

  explicit SearchData(bool newBury) {
    const auto& gen = rivo::GeneratedCollection::get();
    dir = (fs::path(gen.dir).parent_path().parent_path() /
           (newBury ? "search-data" : "search-data-unbury"))
              .string();
    fs::create_directories(dir + "/profiles/bench");
    collection = dir + "/profiles/bench/collection.rivo2";
    fs::copy_file(gen.path, collection, fs::copy_options::overwrite_existing);
    auto col = rivo::Storage::open(collection, true, false, true, "");
    if (!newBury) {
      col->conf().erase("newBury");
      col->sched().unburyCards();
      col->setMod();
      col->save();
    }
    rivo::bench::SqlRecorder rec(col->db()->handle());
    // What the command sends: the search, then the sort fields of what it found.
    const std::vector<rivo::Id> ids = col->findCards(kQuery);
    col->db()->all("select c.id, n.sfld from cards c, notes n where c.nid = n.id and c.id in " +
                   rivo::ids2str(ids));
    for (const auto& s : rec.statements()) sql += s.expanded + ";";
    rec.stop();
    col->closeAndSave(false);
  }
  static const SearchData& get(bool newBury = true) {
    static SearchData withNewBury(true), without(false);
    return newBury ? withNewBury : without;
  }
};

bool run(const std::vector<std::string>& args) {
  return rivo::bench::QuietProcess::run(args);
}

void BM_SearchCommand(benchmark::State& state) {
  const SearchData& data = SearchData::get(state.range(0) != 0);
  const std::vector<std::string> args = {RIVO_BINARY, "--data", data.dir, "--profile",
                                         "bench",     "search", kQuery};
  // Makes the profile from the collection that is there; the first run also greets the user.
  run({RIVO_BINARY, "--data", data.dir, "--profile", "bench", "init"});
  bool ok = true;
  for (auto _ : state) ok = run(args) && ok;
  if (!ok) state.SkipWithError("rivo search failed");
}
BENCHMARK(BM_SearchCommand)
    ->ArgName("newBury")
    ->Arg(1)
    ->Arg(0)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The floor under every command: the program loads its libraries, sets itself up, reads its
// arguments and ends, with no collection opened.
void BM_CommandLineHelp(benchmark::State& state) {
  bool ok = true;
  for (auto _ : state) ok = run({RIVO_BINARY, "--help"}) && ok;
  if (!ok) state.SkipWithError("rivo --help failed");
}
BENCHMARK(BM_CommandLineHelp)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SearchCommandSqlite3Program(benchmark::State& state) {
  const SearchData& data = SearchData::get();
  const std::vector<std::string> args = {"sqlite3", data.collection, data.sql};
  bool ok = true;
  for (auto _ : state) ok = run(args) && ok;
  if (!ok) state.SkipWithError("sqlite3 failed");
  state.counters["statements"] =
      static_cast<double>(std::count(data.sql.begin(), data.sql.end(), ';'));
}
BENCHMARK(BM_SearchCommandSqlite3Program)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
