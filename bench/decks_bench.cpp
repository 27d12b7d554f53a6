// The deck registry on a tree of 505 decks four levels deep: loading the blobs, listing names,
// walking up from a leaf and finding a deck by name, each against the bare work underneath.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Storage.h"

namespace {

using rivo::Json;

struct DeckTree {
  std::string dir;
  std::unique_ptr<rivo::Col> col;
  std::string decksJson, confJson;
  std::string leafName;  // the last deck made: a getID walk finds it last
  rivo::Id leaf = 0;

  DeckTree() {
    dir =
        (std::filesystem::temp_directory_path() / ("rivo-bench-decks-" + std::to_string(getpid())))
            .string();
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    col = rivo::Storage::open(dir + "/collection.rivo2");
    rivo::DeckManager& dm = col->decks();
    // 5 languages x 4 levels x 4 units x 5 decks: 5 + 20 + 80 + 400 = 505 decks.
    for (int l = 0; l < 5; ++l)
      for (int v = 0; v < 4; ++v)
        for (int u = 0; u < 4; ++u)
          for (int d = 0; d < 5; ++d) {
            leafName = "Language " + std::to_string(l) + "::Level " + std::to_string(v) +
                       "::Unit " + std::to_string(u) + "::Deck " + std::to_string(d);
            leaf = dm.getID(leafName);
          }
    col->save();
    auto row = col->db()->first("select decks, dconf from col");
    decksJson = rivo::toText((*row)[0]);
    confJson = rivo::toText((*row)[1]);
  }
  ~DeckTree() {
    col->close();
    col.reset();
    std::filesystem::remove_all(dir);
  }
};

DeckTree& tree() {
  static DeckTree t;
  return t;
}

void BM_LoadDecks(benchmark::State& state) {
  DeckTree& t = tree();
  for (auto _ : state) t.col->decks().loadDecks(t.decksJson, t.confJson);
  state.SetBytesProcessed(state.iterations() * (t.decksJson.size() + t.confJson.size()));
  state.counters["decks"] = static_cast<double>(t.col->decks().count());
}
BENCHMARK(BM_LoadDecks);

// Baseline: parsing the same two blobs and nothing else.
void BM_LoadDecks_BareParse(benchmark::State& state) {
  DeckTree& t = tree();
  for (auto _ : state) {
    Json decks = Json::parse(t.decksJson);
    Json conf = Json::parse(t.confJson);
    benchmark::DoNotOptimize(decks);
    benchmark::DoNotOptimize(conf);
  }
  state.SetBytesProcessed(state.iterations() * (t.decksJson.size() + t.confJson.size()));
}
BENCHMARK(BM_LoadDecks_BareParse);

void BM_AllNames(benchmark::State& state) {
  rivo::DeckManager& dm = tree().col->decks();
  for (auto _ : state) benchmark::DoNotOptimize(dm.allNames());
}
BENCHMARK(BM_AllNames);

void BM_ParentsOfLeaf(benchmark::State& state) {
  DeckTree& t = tree();
  rivo::DeckManager& dm = t.col->decks();
  for (auto _ : state) benchmark::DoNotOptimize(dm.parents(t.leaf));
}
BENCHMARK(BM_ParentsOfLeaf);

// Case-insensitive walk over every deck, the worst case: the wanted deck comes last.
void BM_GetIdExisting(benchmark::State& state) {
  DeckTree& t = tree();
  rivo::DeckManager& dm = t.col->decks();
  for (auto _ : state) benchmark::DoNotOptimize(dm.getID(t.leafName, false));
}
BENCHMARK(BM_GetIdExisting);

// Baseline: the exact-name walk over the same decks.
void BM_GetIdExisting_ExactWalk(benchmark::State& state) {
  DeckTree& t = tree();
  rivo::DeckManager& dm = t.col->decks();
  for (auto _ : state) benchmark::DoNotOptimize(dm.byName(t.leafName));
}
BENCHMARK(BM_GetIdExisting_ExactWalk);

}  // namespace
