// Opening a collection whose col row holds 500 decks and 50 note types, against the bare
// SQLite work of reading the same row.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Storage.h"

namespace {

using rivo::Json;

Json syntheticModel(int i) {
  Json flds = Json::array();
  for (int f = 0; f < 4; ++f)
    flds.push_back({{"name", "Field " + std::to_string(f)},
                    {"ord", f},
                    {"sticky", false},
                    {"rtl", false},
                    {"font", "Arial"},
                    {"size", 20},
                    {"media", Json::array()}});
  Json tmpls = Json::array();
  for (int t = 0; t < 2; ++t)
    tmpls.push_back({{"name", "Card " + std::to_string(t + 1)},
                     {"ord", t},
                     {"qfmt", "{{Field 0}}<br>{{#Field 2}}{{Field 2}}{{/Field 2}}"},
                     {"afmt", "{{FrontSide}}<hr id=answer>{{Field 1}}"},
                     {"did", nullptr},
                     {"bqfmt", ""},
                     {"bafmt", ""}});
  int64_t id = 1400000000000 + i;
  return {{"id", id},
          {"name", "Type " + std::to_string(i)},
          {"type", 0},
          {"mod", 0},
          {"usn", 0},
          {"sortf", 0},
          {"did", 1},
          {"tags", Json::array()},
          {"vers", Json::array()},
          {"flds", flds},
          {"tmpls", tmpls},
          {"req", Json::array()},
          {"latexPre", "\\documentclass[12pt]{article}\n\\begin{document}\n"},
          {"latexPost", "\\end{document}"},
          {"css", ".card {\n font-family: arial;\n font-size: 20px;\n text-align: center;\n}\n"}};
}

struct Fixture {
  std::string dir;
  std::string path;
  Fixture() {
    dir = (std::filesystem::temp_directory_path() / "rivo-bench-col").string();
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    path = dir + "/collection.rivo2";
    auto col = rivo::Storage::open(path);
    Json decks = col->decks().decks();
    for (int i = 0; i < 500; ++i) {
      Json deck = rivo::DeckManager::getDefaultDeck();
      int64_t id = 1500000000000 + i;
      deck["id"] = id;
      deck["name"] = "Lang::Level " + std::to_string(i / 25) + "::Deck " + std::to_string(i);
      deck["mod"] = 0;
      decks[std::to_string(id)] = deck;
    }
    col->decks().decks() = decks;
    col->decks().save();
    for (int i = 0; i < 50; ++i) {
      Json m = syntheticModel(i);
      col->models().models()[std::to_string(m["id"].get<int64_t>())] = m;
    }
    col->models().save();
    col->setMod();
    col->close();
  }
  ~Fixture() { std::filesystem::remove_all(dir); }
};

Fixture& fixture() {
  static Fixture f;
  return f;
}

void BM_OpenCollection(benchmark::State& state) {
  const std::string& path = fixture().path;
  for (auto _ : state) {
    auto col = rivo::Storage::open(path);
    benchmark::DoNotOptimize(col->decks().decks().size());
    col->close();
  }
}
BENCHMARK(BM_OpenCollection)->Unit(benchmark::kMillisecond);

// The same file work with nothing of ours: open, read the col row, close.
void BM_OpenCollectionBareSql(benchmark::State& state) {
  const std::string& path = fixture().path;
  for (auto _ : state) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(
        db, "select crt, mod, scm, dty, usn, ls, conf, models, decks, dconf, tags from col", -1,
        &st, nullptr);
    size_t bytes = 0;
    while (sqlite3_step(st) == SQLITE_ROW)
      for (int c = 6; c < 11; ++c) bytes += static_cast<size_t>(sqlite3_column_bytes(st, c));
    sqlite3_finalize(st);
    sqlite3_close(db);
    benchmark::DoNotOptimize(bytes);
  }
}
BENCHMARK(BM_OpenCollectionBareSql)->Unit(benchmark::kMillisecond);

// Bare SQL plus decoding the JSON blobs: what any reader of this file must at least do.
void BM_OpenCollectionBareSqlAndJson(benchmark::State& state) {
  const std::string& path = fixture().path;
  for (auto _ : state) {
    rivo::DB db(path);
    auto row = db.first("select models, decks, dconf from col");
    size_t n = 0;
    for (auto& v : *row) n += Json::parse(rivo::toText(v)).size();
    benchmark::DoNotOptimize(n);
  }
}
BENCHMARK(BM_OpenCollectionBareSqlAndJson)->Unit(benchmark::kMillisecond);

}  // namespace
