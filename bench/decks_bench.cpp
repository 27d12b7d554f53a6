// The deck registry on the generated collection's 500 decks: loading the blobs, listing names,
// walking up from a leaf and finding a deck by name, each against the bare work underneath.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>

#include "bench/GeneratedCollection.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Storage.h"

namespace {

using rivo::Json;

// The generated collection's 500 decks, three levels deep under ten subjects, on a copy of its
// own: the collection stays open (and locked) until the process ends.
struct DeckTree {
  std::unique_ptr<rivo::Col> col;
  std::string decksJson, confJson;
  std::string leafName;  // the deepest deck made last: a getID walk finds it late
  rivo::Id leaf = 0;

  DeckTree() {
    col = rivo::Storage::open(rivo::GeneratedCollection::get().copy("decks.rivo2"));
    size_t depth = 0;
    for (auto& [id, deck] : col->decks().decks().items()) {
      std::string name = deck["name"].get<std::string>();
      size_t levels = static_cast<size_t>(std::count(name.begin(), name.end(), ':'));
      if (levels > depth || (levels == depth && name > leafName)) {
        depth = levels;
        leafName = name;
        leaf = rivo::jsonInt(deck["id"]);
      }
    }
    auto row = col->db()->first("select decks, dconf from col");
    decksJson = rivo::toText((*row)[0]);
    confJson = rivo::toText((*row)[1]);
  }
  ~DeckTree() { col->closeAndSave(false); }
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
