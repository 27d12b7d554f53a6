// Card generation and note rewrites on large collections: adding 10,000 notes, generating the
// cards of a new template for 50,000 notes, and the field cache of 100,000 notes, each against
// bare SQLite doing the same rows.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench/CollectionGenerator.h"
#include "bench/SqlRecorder.h"
#include "librivo/Checksum.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/FieldText.h"
#include "librivo/Ids.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"
#include "librivo/Random.h"
#include "librivo/Storage.h"

namespace {

namespace fs = std::filesystem;
using rivo::Id;
using rivo::Json;

std::string benchDir(const std::string& name) {
  std::string dir = (fs::temp_directory_path() / ("rivo-bench-models-" + name)).string();
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

// A generated collection, made once per process.
struct Generated {
  std::string dir, path;
  Generated(const std::string& name, int64_t notes, int64_t cards) {
    dir = benchDir(name);
    rivo::GeneratorOptions opt;
    opt.notes = notes;
    opt.cards = cards;
    opt.decks = 50;
    opt.revlog = 0;
    rivo::CollectionGenerator(opt).generate(dir, "bench");
    path = dir + "/profiles/bench/collection.rivo2";
  }
  ~Generated() { fs::remove_all(dir); }
};

constexpr int kAddNotes = 10000;

void BM_AddNote(benchmark::State& state) {
  const std::string dir = benchDir("add");
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove(dir + "/collection.rivo2");
    auto col = rivo::Storage::open(dir + "/collection.rivo2");
    Json& basic = *col->models().byName("Basic");
    state.ResumeTiming();
    for (int i = 0; i < kAddNotes; ++i) {
      rivo::Note note(*col, basic);
      note.fields = {"front " + std::to_string(i), "back"};
      col->addNote(note);
    }
    state.PauseTiming();
    col->close();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kAddNotes);
  fs::remove_all(dir);
}
BENCHMARK(BM_AddNote)->Unit(benchmark::kMillisecond)->Iterations(3);

// A new, empty collection opened on a bare connection set up as the program sets up its own,
// made and (committed and) closed outside the timing.
struct BareCollection {
  sqlite3* db = nullptr;
  Id basic = 0;  // the Basic type

  explicit BareCollection(const std::string& dir) {
    const std::string path = dir + "/collection.rivo2";
    fs::remove(path);
    auto col = rivo::Storage::open(path);
    basic = rivo::jsonInt((*col->models().byName("Basic"))["id"]);
    col->close();
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "pragma temp_store = memory; pragma cache_size = 10000", nullptr, nullptr,
                 nullptr);
  }
  ~BareCollection() {
    sqlite3_exec(db, "commit", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
};

// The same rows with prepared statements and nothing else: two plain inserts a note.
void BM_AddNoteBareSql(benchmark::State& state) {
  const std::string dir = benchDir("addsql");
  for (auto _ : state) {
    state.PauseTiming();
    auto bare = std::make_unique<BareCollection>(dir);
    sqlite3* db = bare->db;
    const Id mid = bare->basic;
    state.ResumeTiming();
    sqlite3_exec(db, "begin", nullptr, nullptr, nullptr);
    sqlite3_stmt* n = nullptr;
    sqlite3_stmt* c = nullptr;
    sqlite3_prepare_v2(db, "insert into notes values (?,?,?,?,-1,'',?,?,?,0,'')", -1, &n, nullptr);
    sqlite3_prepare_v2(db, "insert into cards values (?,?,1,0,?,-1,0,0,?,0,0,0,0,0,0,0,0,'')", -1,
                       &c, nullptr);
    const int64_t now = rivo::intTime(1);
    const Id base = rivo::intTime(1000);
    for (int i = 0; i < kAddNotes; ++i) {
      const std::string front = "front " + std::to_string(i);
      const std::string flds = front + "\x1f" + "back";
      const std::string guid = rivo::guid64();
      sqlite3_bind_int64(n, 1, base + i);
      sqlite3_bind_text(n, 2, guid.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_int64(n, 3, mid);
      sqlite3_bind_int64(n, 4, now);
      sqlite3_bind_text(n, 5, flds.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_text(n, 6, rivo::stripHTML(front).c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_int64(n, 7, rivo::fieldChecksum(front));
      sqlite3_step(n);
      sqlite3_reset(n);
      sqlite3_bind_int64(c, 1, base + i);
      sqlite3_bind_int64(c, 2, base + i);
      sqlite3_bind_int64(c, 3, now);
      sqlite3_bind_int64(c, 4, i + 1);
      sqlite3_step(c);
      sqlite3_reset(c);
    }
    sqlite3_finalize(n);
    sqlite3_finalize(c);
    state.PauseTiming();
    bare.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kAddNotes);
  fs::remove_all(dir);
}
BENCHMARK(BM_AddNoteBareSql)->Unit(benchmark::kMillisecond)->Iterations(3);

// The statements addNote sends for a note once ids run ahead of the clock, in its order and
// with its values, each prepared once, on a bare connection. Checked against what the program
// sends for its last note.
const char* const kAddNoteStatements[] = {
    "select coalesce((select ?1 where not exists (select 1 from notes where id = ?1)), (select "
    "id + 1 from notes t where id >= ?1 and not exists (select 1 from notes where id = t.id + "
    "1) order by id limit 1))",
    "select 1 from cards where nid = ?",
    "select 1 from notes where id=? and tags=? and flds=?",
    "insert or replace into notes values (?,?,?,?,?,?,?,?,?,?,?)",
    "select coalesce((select ?1 where not exists (select 1 from cards where id = ?1)), (select "
    "id + 1 from cards t where id >= ?1 and not exists (select 1 from cards where id = t.id + "
    "1) order by id limit 1))",
    "insert or replace into cards values (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
};

// What the program sends for the last of a few notes added in a row, as prepared texts.
std::vector<std::string> programStatementsForOneNote(const std::string& dir) {
  fs::remove(dir + "/check.rivo2");
  auto col = rivo::Storage::open(dir + "/check.rivo2");
  Json& basic = *col->models().byName("Basic");
  std::vector<std::string> texts;
  for (int i = 0; i < 20; ++i) {
    rivo::bench::SqlRecorder rec(col->db()->handle());
    rivo::Note note(*col, basic);
    note.fields = {"front " + std::to_string(i), "back"};
    col->addNote(note);
    texts.clear();
    for (const auto& st : rec.statements()) texts.push_back(st.unexpanded);
  }
  col->close();
  return texts;
}

void BM_AddNoteSameStatementsBareSql(benchmark::State& state) {
  const std::string dir = benchDir("addsame");
  const std::vector<std::string> expected(std::begin(kAddNoteStatements),
                                          std::end(kAddNoteStatements));
  if (programStatementsForOneNote(dir) != expected) {
    state.SkipWithError("addNote sends other statements than this twin");
    return;
  }
  for (auto _ : state) {
    state.PauseTiming();
    auto bare = std::make_unique<BareCollection>(dir);
    sqlite3* db = bare->db;
    const Id mid = bare->basic;
    state.ResumeTiming();
    sqlite3_exec(db, "begin exclusive transaction", nullptr, nullptr, nullptr);
    std::vector<sqlite3_stmt*> st;
    for (const char* sql : kAddNoteStatements) {
      st.emplace_back();
      sqlite3_prepare_v2(db, sql, -1, &st.back(), nullptr);
    }
    auto text = [](sqlite3_stmt* s, int i, const std::string& v) {
      sqlite3_bind_text(s, i, v.data(), static_cast<int>(v.size()), SQLITE_STATIC);
    };
    auto idAfter = [](sqlite3_stmt* s, Id from) {
      sqlite3_bind_int64(s, 1, from);
      const Id id = sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : from;
      sqlite3_reset(s);
      return id;
    };
    auto run = [](sqlite3_stmt* s) {
      while (sqlite3_step(s) == SQLITE_ROW) {
      }
      sqlite3_reset(s);
      sqlite3_clear_bindings(s);
    };
    const std::string tags = "  ", data;
    Id nid = rivo::intTime(1000), cid = nid;
    for (int i = 0; i < kAddNotes; ++i) {
      nid = idAfter(st[0], nid);
      const std::string front = "front " + std::to_string(i);
      const std::string flds = front + "\x1f" + "back";
      const std::string guid = rivo::guid64(), sfld = rivo::stripHTML(front);
      sqlite3_bind_int64(st[1], 1, nid);
      run(st[1]);
      sqlite3_bind_int64(st[2], 1, nid);
      text(st[2], 2, tags);
      text(st[2], 3, flds);
      run(st[2]);
      const int64_t now = rivo::intTime(1);
      sqlite3_bind_int64(st[3], 1, nid);
      text(st[3], 2, guid);
      sqlite3_bind_int64(st[3], 3, mid);
      sqlite3_bind_int64(st[3], 4, now);
      sqlite3_bind_int64(st[3], 5, -1);
      text(st[3], 6, tags);
      text(st[3], 7, flds);
      text(st[3], 8, sfld);
      sqlite3_bind_int64(st[3], 9, rivo::fieldChecksum(front));
      sqlite3_bind_int64(st[3], 10, 0);
      text(st[3], 11, data);
      run(st[3]);
      cid = idAfter(st[4], cid);
      const int64_t card[17] = {cid, nid, 1, 0, now, -1, 0, 0, i + 1, 0, 0, 0, 0, 0, 0, 0, 0};
      for (int c = 0; c < 17; ++c) sqlite3_bind_int64(st[5], c + 1, card[c]);
      text(st[5], 18, data);
      run(st[5]);
    }
    for (sqlite3_stmt* s : st) sqlite3_finalize(s);
    state.PauseTiming();
    bare.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kAddNotes);
  fs::remove_all(dir);
}
BENCHMARK(BM_AddNoteSameStatementsBareSql)->Unit(benchmark::kMillisecond)->Iterations(3);

// 62,500 notes with one card each puts 50,000 of them in Basic.
Generated& templateFixture() {
  static Generated g("gen", 62500, 62500);
  return g;
}

// Adds the template that 50,000 Basic notes now call for; the caller saves the type.
Json& addReverse(rivo::Col& col) {
  Json& basic = *col.models().byName("Basic");
  Json t = col.models().newTemplate("Reverse");
  t["qfmt"] = "{{Back}}";
  col.models().addTemplate(basic, t);
  return basic;
}

// The cards made since `before` (an id), as note, deck, ord: what both benchmarks must add.
std::vector<rivo::Row> cardsSince(rivo::DB& db, Id before) {
  return db.all("select nid, did, ord from cards where id > ? order by nid, ord", {before});
}

void BM_GenCardsAfterAddingTemplate(benchmark::State& state) {
  auto col = rivo::Storage::open(templateFixture().path);
  int64_t notes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    Json& basic = addReverse(*col);
    notes = col->models().useCount(basic);
    state.ResumeTiming();
    col->models().save(&basic, true);
    state.PauseTiming();
    col->rollback();
    state.ResumeTiming();
  }
  state.counters["notes"] = static_cast<double>(notes);
  col->close();
}
BENCHMARK(BM_GenCardsAfterAddingTemplate)->Unit(benchmark::kMillisecond)->Iterations(3);

// The same cards in one set-based statement: in the deck of the note's card (each note of the
// fixture has one), at the next due positions. Checked against what the program adds.
void BM_GenCardsBareSql(benchmark::State& state) {
  auto col = rivo::Storage::open(templateFixture().path);
  rivo::DB& db = *col->db();
  const Id before = std::stoll(rivo::maxID(db));
  col->models().save(&addReverse(*col), true);
  const std::vector<rivo::Row> expected = cardsSince(db, before);
  col->rollback();
  const Id mid = rivo::jsonInt((*col->models().byName("Basic"))["id"]);
  bool same = true;
  for (auto _ : state) {
    db.run(
        "insert into cards select ? + rowid, id, (select did from cards where nid = notes.id), 1, "
        "?, -1, 0, 0, ? + rowid, 0, 0, 0, 0, 0, 0, 0, 0, '' from notes where mid = ? and "
        "substr(flds, instr(flds, char(31)) + 1) != ''",
        {std::stoll(rivo::maxID(db)), rivo::intTime(1), col->nextID("pos", false), mid});
    state.PauseTiming();
    same = same && cardsSince(db, before) == expected;
    db.rollback();
    state.ResumeTiming();
  }
  if (!same) state.SkipWithError("the statement made other cards than the program");
  state.counters["cards"] = static_cast<double>(expected.size());
  col->close();
}
BENCHMARK(BM_GenCardsBareSql)->Unit(benchmark::kMillisecond)->Iterations(3);

Generated& cacheFixture() {
  static Generated g("cache", 100000, 200000);
  return g;
}

void BM_UpdateFieldCache(benchmark::State& state) {
  auto col = rivo::Storage::open(cacheFixture().path);
  std::vector<Id> nids;
  for (const rivo::Value& v : col->db()->list("select id from notes"))
    nids.push_back(rivo::toInt(v));
  for (auto _ : state) {
    col->updateFieldCache(nids);
    state.PauseTiming();
    col->rollback();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(nids.size()));
  col->close();
}
BENCHMARK(BM_UpdateFieldCache)->Unit(benchmark::kMillisecond)->Iterations(3);

// Read, strip and checksum, write back: the same per-row work through the SQLite C interface.
void BM_UpdateFieldCacheBareSql(benchmark::State& state) {
  const std::string& path = cacheFixture().path;
  int64_t rows = 0;
  for (auto _ : state) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "begin", nullptr, nullptr, nullptr);
    sqlite3_stmt* read = nullptr;
    sqlite3_stmt* write = nullptr;
    sqlite3_prepare_v2(db, "select id, flds from notes", -1, &read, nullptr);
    sqlite3_prepare_v2(db, "update notes set sfld=?, csum=? where id=?", -1, &write, nullptr);
    std::vector<std::pair<Id, std::string>> all;
    while (sqlite3_step(read) == SQLITE_ROW)
      all.emplace_back(sqlite3_column_int64(read, 0),
                       reinterpret_cast<const char*>(sqlite3_column_text(read, 1)));
    for (const auto& [id, flds] : all) {
      const std::string first = flds.substr(0, flds.find('\x1f'));
      const std::string sfld = rivo::stripHTML(first);
      sqlite3_bind_text(write, 1, sfld.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_int64(write, 2, rivo::fieldChecksum(first));
      sqlite3_bind_int64(write, 3, id);
      sqlite3_step(write);
      sqlite3_reset(write);
    }
    rows = static_cast<int64_t>(all.size());
    sqlite3_finalize(read);
    sqlite3_finalize(write);
    state.PauseTiming();
    sqlite3_exec(db, "rollback", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * rows);
}
BENCHMARK(BM_UpdateFieldCacheBareSql)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
