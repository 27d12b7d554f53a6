// Note load and flush and Card flushSched over the generated collection (100,000 notes), each
// against the bare SQLite work of the same statements, so the ratio shows what the row objects add.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench/GeneratedCollection.h"
#include "librivo/Card.h"
#include "librivo/Checksum.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/FieldText.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"
#include "librivo/Storage.h"
#include "librivo/TagManager.h"

namespace {

using rivo::Id;
using rivo::Json;

// Objects made before timing starts and cycled through, so that no row stays hot in a cache.
constexpr int kWorkingSet = 2000;

const rivo::GeneratedCollection& fixture() {
  return rivo::GeneratedCollection::get();
}

// Notes and cards spread over the whole table.
Id noteAt(int64_t i) {
  const auto& ids = fixture().noteIds;
  return ids[static_cast<size_t>(i * 7919) % ids.size()];
}
Id cardAt(int64_t i) {
  const auto& ids = fixture().cardIds;
  return ids[static_cast<size_t>(i * 7919) % ids.size()];
}

// The collection as the program opens it; what a benchmark writes is rolled back at the end so
// that every benchmark starts from the same file.
// With `withLog`, the debug log is written as in the program; without, the row work alone.
std::unique_ptr<rivo::Col> openCol(bool withLog = false) {
  return rivo::Storage::open(fixture().path, true, false, true, withLog ? fixture().dir : "");
}
void discard(rivo::Col& col) {
  col.closeAndSave(false);
}

// A bare connection with the same settings and the same exclusive transaction.
struct Bare {
  sqlite3* db = nullptr;
  Bare() {
    sqlite3_open(fixture().path.c_str(), &db);
    sqlite3_exec(db, "pragma temp_store = memory; pragma cache_size = 10000", nullptr, nullptr,
                 nullptr);
    sqlite3_exec(db, "begin exclusive transaction", nullptr, nullptr, nullptr);
  }
  ~Bare() {
    sqlite3_exec(db, "rollback", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
  // Prepared per call, as the program's own DB layer does.
  sqlite3_stmt* prepare(const char* sql) {
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, sql, -1, &st, nullptr);
    return st;
  }
  std::string text(sqlite3_stmt* st, int c) {
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(st, c));
    return p ? std::string(p, static_cast<size_t>(sqlite3_column_bytes(st, c))) : std::string();
  }
  void bindText(sqlite3_stmt* st, int i, const std::string& s) {
    sqlite3_bind_text(st, i, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
  }
};

void BM_NoteLoad(benchmark::State& state) {
  auto col = openCol();
  int64_t i = 0;
  for (auto _ : state) {
    rivo::Note note(*col, noteAt(i++));
    benchmark::DoNotOptimize(note.fields.data());
  }
  discard(*col);
}
BENCHMARK(BM_NoteLoad)->Unit(benchmark::kMicrosecond);

// The same query, its columns copied out and the fields split.
void BM_NoteLoadBareSql(benchmark::State& state) {
  Bare bare;
  int64_t i = 0;
  for (auto _ : state) {
    sqlite3_stmt* st =
        bare.prepare("select guid, mid, mod, usn, tags, flds, flags, data from notes where id = ?");
    sqlite3_bind_int64(st, 1, noteAt(i++));
    std::vector<std::string> fields;
    if (sqlite3_step(st) == SQLITE_ROW) {
      std::string guid = bare.text(st, 0), tags = bare.text(st, 4), data = bare.text(st, 7);
      fields = rivo::splitFields(bare.text(st, 5));
      benchmark::DoNotOptimize(guid.data());
      benchmark::DoNotOptimize(tags.data());
    }
    sqlite3_finalize(st);
    benchmark::DoNotOptimize(fields.data());
  }
}
BENCHMARK(BM_NoteLoadBareSql)->Unit(benchmark::kMicrosecond);

// A changed note: every statement of the flush runs, the write included.
void BM_NoteFlush(benchmark::State& state) {
  auto col = openCol();
  std::vector<rivo::Note> notes;
  notes.reserve(kWorkingSet);
  for (int i = 0; i < kWorkingSet; ++i) notes.emplace_back(*col, noteAt(i));
  int64_t i = 0;
  for (auto _ : state) {
    rivo::Note& note = notes[i % kWorkingSet];
    note.fields[1] = "edit " + std::to_string(i++);
    note.flush();
  }
  discard(*col);
}
BENCHMARK(BM_NoteFlush)->Unit(benchmark::kMicrosecond);

// An unchanged note stops after the comparison query.
void BM_NoteFlushUnchanged(benchmark::State& state) {
  auto col = openCol();
  std::vector<rivo::Note> notes;
  notes.reserve(kWorkingSet);
  for (int i = 0; i < kWorkingSet; ++i) notes.emplace_back(*col, noteAt(i));
  int64_t i = 0;
  for (auto _ : state) notes[i++ % kWorkingSet].flush();
  discard(*col);
}
BENCHMARK(BM_NoteFlushUnchanged)->Unit(benchmark::kMicrosecond);

// The three statements of a changed note's flush, with values computed as the flush does.
void BM_NoteFlushBareSql(benchmark::State& state) {
  Bare bare;
  int64_t i = 0;
  for (auto _ : state) {
    const Id id = noteAt(i % kWorkingSet);
    const std::string front = "word " + std::to_string(id);
    const std::string flds = front + "\x1f" + "edit " + std::to_string(i++);
    const std::string tags = " level" + std::to_string(id % 20) + " vocab ";

    sqlite3_stmt* st = bare.prepare("select 1 from cards where nid = ?");
    sqlite3_bind_int64(st, 1, id);
    benchmark::DoNotOptimize(sqlite3_step(st));
    sqlite3_finalize(st);

    st = bare.prepare("select 1 from notes where id=? and tags=? and flds=?");
    sqlite3_bind_int64(st, 1, id);
    bare.bindText(st, 2, tags);
    bare.bindText(st, 3, flds);
    benchmark::DoNotOptimize(sqlite3_step(st));
    sqlite3_finalize(st);

    st = bare.prepare("insert or replace into notes values (?,?,?,?,?,?,?,?,?,?,?)");
    sqlite3_bind_int64(st, 1, id);
    bare.bindText(st, 2, "guid");
    sqlite3_bind_int64(st, 3, 1);
    sqlite3_bind_int64(st, 4, 1700000000);
    sqlite3_bind_int64(st, 5, -1);
    bare.bindText(st, 6, tags);
    bare.bindText(st, 7, flds);
    bare.bindText(st, 8, front);
    sqlite3_bind_int64(st, 9, rivo::fieldChecksum(front));
    sqlite3_bind_int64(st, 10, 0);
    bare.bindText(st, 11, "");
    sqlite3_step(st);
    sqlite3_finalize(st);
  }
}
BENCHMARK(BM_NoteFlushBareSql)->Unit(benchmark::kMicrosecond);

void BM_CardFlushSched(benchmark::State& state) {
  auto col = openCol(state.range(0) != 0);
  std::vector<rivo::Card> cards;
  cards.reserve(kWorkingSet);
  for (int i = 0; i < kWorkingSet; ++i) cards.emplace_back(*col, cardAt(i));
  int64_t i = 0;
  for (auto _ : state) {
    rivo::Card& card = cards[i % kWorkingSet];
    card.due = 1000 + i++;
    card.reps += 1;
    card.flushSched();
  }
  discard(*col);
}
BENCHMARK(BM_CardFlushSched)->ArgName("debugLog")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_CardFlushSchedBareSql(benchmark::State& state) {
  Bare bare;
  int64_t i = 0;
  for (auto _ : state) {
    sqlite3_stmt* st = bare.prepare(
        "update cards set mod=?, usn=?, type=?, queue=?, due=?, ivl=?, factor=?, reps=?, "
        "lapses=?, left=?, odue=?, odid=?, did=? where id = ?");
    const int64_t values[] = {1700000000, -1, 2, 2, 1000 + i, 10, 2500, 5, 0, 0, 0, 0, 1};
    for (int c = 0; c < 13; ++c) sqlite3_bind_int64(st, c + 1, values[c]);
    sqlite3_bind_int64(st, 14, cardAt(i++ % kWorkingSet));
    sqlite3_step(st);
    sqlite3_finalize(st);
  }
}
BENCHMARK(BM_CardFlushSchedBareSql)->Unit(benchmark::kMicrosecond);

}  // namespace
