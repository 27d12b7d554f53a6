#include "librivo/Storage.h"

#include <sqlite3.h>

#include <filesystem>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/IcuText.h"
#include "librivo/ModelManager.h"
#include "librivo/SysLog.h"

namespace rivo {

namespace {

constexpr int kSchemaVersion = 11;

const char* const kTables =
    "create table if not exists col (id integer primary key, crt integer not null, mod integer "
    "not null, scm integer not null, ver integer not null, dty integer not null, usn integer "
    "not null, ls integer not null, conf text not null, models text not null, decks text not "
    "null, dconf text not null, tags text not null); "
    "create table if not exists notes (id integer primary key, guid text not null, mid integer "
    "not null, mod integer not null, usn integer not null, tags text not null, flds text not "
    "null, sfld integer not null, csum integer not null, flags integer not null, data text not "
    "null); "
    "create table if not exists cards (id integer primary key, nid integer not null, did "
    "integer not null, ord integer not null, mod integer not null, usn integer not null, type "
    "integer not null, queue integer not null, due integer not null, ivl integer not null, "
    "factor integer not null, reps integer not null, lapses integer not null, left integer not "
    "null, odue integer not null, odid integer not null, flags integer not null, data text not "
    "null); "
    "create table if not exists revlog (id integer primary key, cid integer not null, usn "
    "integer not null, ease integer not null, ivl integer not null, lastIvl integer not null, "
    "factor integer not null, time integer not null, type integer not null); "
    "create table if not exists graves (usn integer not null, oid integer not null, type "
    "integer not null); "
    "insert or ignore into col values(1,0,0,%llu,%i,0,0,0,'','{}','','','{}');";

const char* const kIndices =
    "create index if not exists ix_notes_usn on notes (usn); "
    "create index if not exists ix_cards_usn on cards (usn); "
    "create index if not exists ix_revlog_usn on revlog (usn); "
    "create index if not exists ix_cards_nid on cards (nid); "
    "create index if not exists ix_cards_sched on cards (did, queue, due); "
    "create index if not exists ix_revlog_cid on revlog (cid); "
    "create index if not exists ix_notes_csum on notes (csum);";

void writeDefaults(DB& db) {
  Json deck = DeckManager::getDefaultDeck();
  deck["id"] = "1";
  deck["name"] = "Default";
  deck["conf"] = "1";
  deck["mod"] = std::to_string(intTime(1));
  Json dconf = DeckManager::getDefaultConf();
  dconf["id"] = 1;
  Json decks = Json::object({{"1", deck}});
  Json dconfs = Json::object({{"1", dconf}});
  std::string error;
  std::string confText = jsonString(Col::getDefaultConf(), &error);
  std::string decksText = jsonString(decks, &error);
  std::string dconfText = jsonString(dconfs, &error);
  if (!error.empty()) sysLog("serialization failed with error: " + error);
  db.run("update col set conf = ?, decks = ?, dconf = ?", {confText, decksText, dconfText});
}

}  // namespace

bool Storage::notesAreUtf8(DB& db) {
  bool valid = true;
  db.execute("select tags, flds from notes", {}, [&valid](sqlite3_stmt* st) {
    for (int i = 0; i < 2 && valid; ++i) {
      const auto* bytes = static_cast<const char*>(sqlite3_column_blob(st, i));
      valid = icutext::isValidUtf8(
          std::string_view(bytes ? bytes : "", static_cast<size_t>(sqlite3_column_bytes(st, i))));
    }
  });
  return valid;
}

void Storage::_addSchema(DB& db) {
  char script[4096];
  std::snprintf(script, sizeof script, kTables, static_cast<unsigned long long>(intTime(1000)),
                kSchemaVersion);
  db.executeScript(script);
}

void Storage::_updateIndices(DB& db) {
  db.executeScript(kIndices);
}

void Storage::_createDB(DB& db) {
  // A file that is still being made has nothing to lose: its steps skip the syncs, and the
  // first commit after it syncs the whole file once.
  db.scalar("pragma synchronous = off");
  db.scalar("pragma page_size = 4096");
  db.scalar("pragma legacy_file_format = 0");
  db.run("vacuum");
  _addSchema(db);
  writeDefaults(db);
  _updateIndices(db);
  db.run("analyze");
  db.scalar("pragma synchronous = full");
}

std::unique_ptr<Col> Storage::open(const std::string& path, bool lock, bool server, bool durable,
                                   const std::string& logFolder) {
  bool existed = std::filesystem::exists(path);
  auto db = std::make_unique<DB>(path);
  if (!db->isOpen()) return nullptr;
  if (!existed) _createDB(*db);
  db->scalar("pragma temp_store = memory");
  if (durable)
    db->scalar("pragma cache_size = 10000");
  else
    db->scalar("pragma synchronous = off");
  auto col = std::make_unique<Col>(std::move(db), server, logFolder);
  if (!col->ok()) {
    col->db()->close();
    return nullptr;
  }
  if (!existed) {
    col->models().addStandardModels();
    col->save();
  }
  if (lock) col->lock();
  return col;
}

}  // namespace rivo
