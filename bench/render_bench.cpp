// Question and answer of 10,000 cards of mixed note types (basic, reversed, cloze), against two
// baselines: reading the same render rows with bare SQLite, and the template engine alone on
// the same rows with nothing prepared around it.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench/CollectionGenerator.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/FieldText.h"
#include "librivo/ModelManager.h"
#include "librivo/Storage.h"
#include "librivo/Template.h"

namespace {

using rivo::Id;
using rivo::Json;

constexpr int64_t kCards = 10000;
const char* const kQaSql =
    "select c.id, f.id, f.mid, c.did, c.ord, f.tags, f.flds from cards c, notes f where "
    "c.nid == f.id";

struct Fixture {
  std::string dir;
  std::string path;
  std::unique_ptr<rivo::Col> col;
  std::vector<Id> cardIds;

  Fixture() {
    dir = (std::filesystem::temp_directory_path() / "rivo-bench-render").string();
    std::filesystem::remove_all(dir);
    rivo::GeneratorOptions opt;
    opt.notes = 6000;
    opt.cards = kCards;
    opt.decks = 20;
    opt.revlog = 0;
    rivo::CollectionGenerator(opt).generate(dir, "bench");
    path = dir + "/profiles/bench/collection.rivo2";
    col = rivo::Storage::open(path);
    for (const rivo::Value& v : col->db()->list("select id from cards"))
      cardIds.push_back(rivo::toInt(v));
  }
  ~Fixture() {
    col->close();
    std::filesystem::remove_all(dir);
  }
};

Fixture& fixture() {
  static Fixture f;
  return f;
}

// Every card of the collection through the batch path: one query, then each row rendered.
void BM_RenderAllCards(benchmark::State& state) {
  rivo::Col& col = *fixture().col;
  for (auto _ : state) {
    size_t bytes = 0;
    for (const rivo::RenderedQA& qa : col.renderQAWithType("all"))
      bytes += qa.q.size() + qa.a.size();
    benchmark::DoNotOptimize(bytes);
  }
  state.SetItemsProcessed(state.iterations() * kCards);
}
BENCHMARK(BM_RenderAllCards)->Unit(benchmark::kMillisecond);

// As the review screen does it: a card object per card, its question (with the emptiness
// check) and its answer.
void BM_CardQuestionAndAnswer(benchmark::State& state) {
  Fixture& f = fixture();
  for (auto _ : state) {
    size_t bytes = 0;
    for (Id id : f.cardIds) {
      rivo::Card card(*f.col, id);
      bytes += card.q().size() + card.a().size();
    }
    benchmark::DoNotOptimize(bytes);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(f.cardIds.size()));
}
BENCHMARK(BM_CardQuestionAndAnswer)->Unit(benchmark::kMillisecond);

// Baseline: the same rows read with nothing of ours, on the collection's own connection
// (which holds the file's exclusive lock).
void BM_RenderRowsBareSql(benchmark::State& state) {
  sqlite3* db = fixture().col->db()->handle();
  for (auto _ : state) {
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, kQaSql, -1, &st, nullptr);
    size_t bytes = 0;
    while (sqlite3_step(st) == SQLITE_ROW)
      bytes += static_cast<size_t>(sqlite3_column_bytes(st, 5) + sqlite3_column_bytes(st, 6));
    sqlite3_finalize(st);
    if (bytes == 0) state.SkipWithError("no rows read");
    benchmark::DoNotOptimize(bytes);
  }
  state.SetItemsProcessed(state.iterations() * kCards);
}
BENCHMARK(BM_RenderRowsBareSql)->Unit(benchmark::kMillisecond);

// Baseline: only the template engine, on the rows read beforehand, with the fields as the
// whole context and the cloze tags rewritten once, outside the timing; no LaTeX step.
void BM_TemplateEngineAlone(benchmark::State& state) {
  rivo::Col& col = *fixture().col;
  struct Job {
    std::string qfmt, afmt;
    rivo::TemplateContext context;
  };
  std::vector<Job> jobs;
  for (const rivo::Row& row : col._qaData()) {
    const Json& model = *col.models().get(rivo::toInt(row[2]));
    const int64_t ord = rivo::toInt(row[4]);
    const Json& tmpl = model["tmpls"][model["type"] == 1 ? 0 : ord];
    Job job;
    const std::string n = std::to_string(ord + 1);
    auto rewrite = [&](std::string fmt, const std::string& kind) {
      const size_t at = fmt.find("{{cloze:");
      if (at != std::string::npos) fmt.replace(at, 8, "{{" + kind + ":" + n + ":");
      return fmt;
    };
    job.qfmt = rewrite(tmpl["qfmt"].get<std::string>(), "cq");
    job.afmt = rewrite(tmpl["afmt"].get<std::string>(), "ca");
    const std::vector<std::string> values = rivo::splitFields(rivo::toText(row[6]));
    for (const Json& fld : model["flds"]) {
      const size_t i = fld["ord"].get<size_t>();
      job.context[fld["name"].get<std::string>()] = i < values.size() ? values[i] : "";
    }
    // Stands in for the question, which the answer shows.
    job.context["FrontSide"] = values.empty() ? "" : values[0];
    jobs.push_back(std::move(job));
  }
  for (auto _ : state) {
    size_t bytes = 0;
    for (const Job& job : jobs) {
      bytes += rivo::Template(job.qfmt, job.context).render().size();
      bytes += rivo::Template(job.afmt, job.context).render().size();
    }
    benchmark::DoNotOptimize(bytes);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(jobs.size()));
}
BENCHMARK(BM_TemplateEngineAlone)->Unit(benchmark::kMillisecond);

}  // namespace
