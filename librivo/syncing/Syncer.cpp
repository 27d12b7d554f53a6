#include "librivo/syncing/Syncer.h"

#include <cstdlib>
#include <map>
#include <stdexcept>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Error.h"
#include "librivo/Ids.h"
#include "librivo/ModelManager.h"
#include "librivo/ResultSet.h"
#include "librivo/Scheduler.h"
#include "librivo/SqlError.h"
#include "librivo/TagManager.h"
#include "librivo/syncing/RemoteServer.h"
#include "librivo/syncing/SyncListener.h"
#include "librivo/syncing/SyncMessages.h"

namespace rivo {

namespace {

constexpr const char* kClockText =
    "Please ensure your clock is set to the correct date and time, then try again.";
constexpr const char* kInconsistentText =
    "Your collection is in an inconsistent state. Please use the Check Database function then "
    "try again.";
constexpr const char* kAfterSyncText =
    "After syncing, the collection was in an inconsistent state. Please use the Check Database "
    "feature and then try again.";

int64_t usnOf(const Json& obj) {
  return jsonInt(obj.value("usn", Json()), 0);
}

std::vector<Id> idsOf(const Json& list) {
  std::vector<Id> ids;
  ids.reserve(list.size());
  for (const Json& v : list) ids.push_back(SyncMessages::idOf(v));
  return ids;
}

std::vector<Row> rowsOf(const Json& list) {
  std::vector<Row> rows;
  rows.reserve(list.size());
  for (const Json& r : list) rows.push_back(SyncMessages::jsonToRow(r));
  return rows;
}

void runMany(DB& db, const std::string& sql, const std::vector<Row>& rows) {
  for (bool ok : db.executeMany(sql, rows))
    if (!ok) throw SqlError(sql);
}

// The whole text is a positive decimal number.
bool isModText(const std::string& text) {
  if (text.empty() || text.size() > 18) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  return std::strtoll(text.c_str(), nullptr, 10) > 0;
}

void require(const std::string& problem) {
  if (!problem.empty()) throw std::invalid_argument(problem);
}

}  // namespace

Syncer::Syncer(Col& c, RemoteServer* s) : col(c), server(s) {}

Syncer::~Syncer() = default;

bool Syncer::_isServer() const {
  return col.server();
}

bool Syncer::_fail(Error* err, const Error& error) {
  if (err) *err = error;
  return false;
}

// The client.

std::optional<std::string> Syncer::sync(Error* err) {
  auto notify = [this](const std::string& text) {
    if (server->listener) server->listener->syncNotify(text);
  };
  auto bad = [&](const std::string& detail) -> std::optional<std::string> {
    _fail(err, badReplyError(detail));
    return std::nullopt;
  };
  _syncMsg.clear();
  _uname.clear();
  notify("Connecting...");
  std::optional<Json> rmeta = server->meta(err);
  if (!rmeta) return std::nullopt;
  if (std::string problem = SyncMessages::checkMeta(*rmeta); !problem.empty()) return bad(problem);
  if ((*rmeta).value("msg", Json()).is_string()) _syncMsg = (*rmeta)["msg"].get<std::string>();
  const Json& cont = (*rmeta)["cont"];
  if (cont.is_boolean() ? !cont.get<bool>() : cont.get<double>() == 0) {
    _fail(err, makeError("syncCancel", ""));
    return std::nullopt;
  }
  rmod = jsonInt((*rmeta)["mod"]);
  const int64_t rscm = jsonInt((*rmeta)["scm"]);
  maxUsn = jsonInt((*rmeta)["usn"]);
  const int64_t rts = jsonInt((*rmeta)["ts"]);
  mediaUsn = jsonInt(rmeta->value("musn", Json()), 0);
  if (rmeta->value("uname", Json()).is_string()) _uname = (*rmeta)["uname"].get<std::string>();

  const Json lmeta = meta();
  lmod = lmeta["mod"].get<int64_t>();
  const int64_t lscm = lmeta["scm"].get<int64_t>();
  minUsn = lmeta["usn"].get<int64_t>();
  const int64_t lts = lmeta["ts"].get<int64_t>();

  if (std::llabs(rts - lts) > kMaxClockSkew) {
    _fail(err, makeError("syncError", kClockText));
    return std::nullopt;
  }
  if (lmod == rmod) return "noChanges";
  if (lscm != rscm) return "fullSync";
  if (!col.basicCheck()) {
    _fail(err, makeError("syncError", kInconsistentText));
    return std::nullopt;
  }
  lnewer = lmod > rmod;
  notify("Syncing changes...");

  // Deletions.
  Json lgraves = removed();
  std::optional<Json> rgraves =
      server->start({{"minUsn", minUsn}, {"lnewer", lnewer}, {"graves", lgraves}}, err);
  if (!rgraves) return std::nullopt;
  if (std::string problem = SyncMessages::checkGraves(*rgraves); !problem.empty())
    return bad(problem);
  remove(*rgraves);

  // Small objects.
  lchg = changes();
  std::optional<Json> reply = server->applyChanges({{"changes", lchg}}, err);
  if (!reply) return std::nullopt;
  const Json& r = reply->is_object() && reply->contains("changes") ? (*reply)["changes"] : *reply;
  if (std::string problem = SyncMessages::checkChanges(r); !problem.empty()) return bad(problem);
  mergeLChanges(lchg, r);

  // The server's rows, then ours.
  for (;;) {
    std::optional<Json> c = server->chunk(Json::object(), err);
    if (!c) return std::nullopt;
    if (std::string problem = SyncMessages::checkChunk(*c); !problem.empty()) return bad(problem);
    applyChunk(*c);
    if (SyncMessages::isDone(*c)) break;
  }
  for (;;) {
    Json c = chunk();
    if (!server->applyChunk({{"chunk", c}}, err)) return std::nullopt;
    if (SyncMessages::isDone(c)) break;
  }

  // Both sides must now hold the same.
  std::optional<Json> ret = server->sanityCheck2({{"client", sanityCheck()}}, err);
  if (!ret) return std::nullopt;
  if (!ret->is_object() || ret->value("status", Json()) != "ok") {
    col.rollback();
    col.modSchema();
    col.save();
    _fail(err, makeError("syncError", kAfterSyncText));
    return std::nullopt;
  }
  std::optional<std::string> mod = server->finish(Json::object(), err);
  if (!mod) return std::nullopt;
  if (!isModText(*mod)) return bad("finish: " + mod->substr(0, 40));
  finish(*mod);
  return "success";
}

// The steps.

Json Syncer::meta() {
  return {{"mod", col.mod()}, {"scm", col.scm()}, {"usn", int64_t{col._usnValue()}},
          {"ts", intTime(1)}, {"musn", 0},        {"msg", ""},
          {"cont", 1}};
}

Json Syncer::removed() {
  Json cards = Json::array(), notes = Json::array(), decks = Json::array();
  DB& db = *col.db();
  const std::vector<Row> rows =
      _isServer() ? db.all("select oid, type from graves where usn >= ?", {minUsn})
                  : db.all("select oid, type from graves where usn = -1");
  for (const Row& row : rows) {
    std::string oid = std::to_string(toInt(row[0]));
    switch (toInt(row[1])) {
      case 0:
        cards.push_back(oid);
        break;
      case 1:
        notes.push_back(oid);
        break;
      default:
        decks.push_back(oid);
    }
  }
  if (!_isServer()) db.run("update graves set usn=? where usn = -1", {minUsn});
  return {{"cards", cards}, {"notes", notes}, {"decks", decks}};
}

void Syncer::remove(const Json& graves) {
  const bool wasServer = col.server();
  col.setServer(true);
  col._remNotes(idsOf(graves["notes"]));
  col.remCards(idsOf(graves["cards"]));
  for (Id did : idsOf(graves["decks"])) col.decks().removeDeck(Json(did), false, false);
  col.setServer(wasServer);
}

Json Syncer::changes() {
  Json d = {{"models", getModels()}, {"decks", getDecks()}, {"tags", getTags()}};
  if (lnewer) {
    d["conf"] = col.conf();
    d["crt"] = col.crt();
  }
  return d;
}

Json Syncer::getModels() {
  Json result = Json::array();
  for (Json* m : col.models().all()) {
    if (_isServer()) {
      if (usnOf(*m) >= minUsn) result.push_back(*m);
    } else if (usnOf(*m) == -1) {
      (*m)["usn"] = maxUsn;
      result.push_back(*m);
    }
  }
  if (!_isServer()) col.models().save();
  return result;
}

Json Syncer::getDecks() {
  Json decks = Json::array(), confs = Json::array();
  auto pick = [this](Json& obj, Json& out) {
    if (_isServer()) {
      if (usnOf(obj) >= minUsn) out.push_back(obj);
    } else if (usnOf(obj) == -1) {
      obj["usn"] = maxUsn;
      out.push_back(obj);
    }
  };
  for (Json* deck : col.decks().all()) pick(*deck, decks);
  for (Json* conf : col.decks().allConf()) pick(*conf, confs);
  if (!_isServer()) col.decks().save();
  return Json::array({decks, confs});
}

Json Syncer::getTags() {
  Json result = Json::array();
  Json& registry = col.tags().allItems();
  const Json items = registry;
  for (const auto& [name, usn] : items.items()) {
    if (_isServer()) {
      if (jsonInt(usn) >= minUsn) result.push_back(name);
    } else if (jsonInt(usn) == -1) {
      registry[name] = maxUsn;
      result.push_back(name);
    }
  }
  if (!_isServer()) col.tags().save();
  return result;
}

void Syncer::mergeLChanges(const Json& /*lchg*/, const Json& rchg) {
  const Json& r = rchg.contains("changes") ? rchg["changes"] : rchg;
  mergeModels(r["models"]);
  mergeDecks(r["decks"]);
  mergeTags(r["tags"]);
  if (r.contains("conf")) col.setConf(r["conf"]);
  if (r.contains("crt")) col.setCrt(jsonInt(r["crt"]));
  prepareToChunk();
}

void Syncer::mergeModels(const Json& models) {
  for (const Json& r : models) {
    const Json* l = col.models().get(r["id"]);
    // Only a strictly newer remote type replaces ours.
    if (l && jsonInt(r["mod"]) <= jsonInt(l->value("mod", Json()))) continue;
    col.models().update(r);
  }
}

void Syncer::mergeDecks(const Json& decks) {
  DeckManager& dm = col.decks();
  for (const Json& r : decks[0]) {
    const Json* l = dm.getDeck(r["id"], false);
    if (l && jsonInt(r["mod"]) <= jsonInt(l->value("mod", Json()))) continue;
    dm.update(r);
  }
  for (const Json& r : decks[1]) {
    const Json* l = dm.getConf(r["id"]);
    if (l && jsonInt(r["mod"]) <= jsonInt(l->value("mod", Json()))) continue;
    dm.updateConf(r);
  }
}

void Syncer::mergeTags(const Json& tags) {
  col.tags().register_(tags.get<std::vector<std::string>>(), maxUsn);
}

void Syncer::prepareToChunk() {
  tablesLeft = {"revlog", "cards", "notes"};
  cursor.reset();
}

std::string Syncer::_usnLim() const {
  return _isServer() ? "usn >= " + std::to_string(minUsn) : "usn = -1";
}

std::unique_ptr<ResultSet> Syncer::cursorForTable(const std::string& table) {
  const std::string usn = std::to_string(maxUsn);
  std::string sql;
  if (table == "revlog")
    sql = "select id, cid, " + usn + ", ease, ivl, lastIvl, factor, time, type from revlog where ";
  else if (table == "cards")
    sql = "select id, nid, did, ord, mod, " + usn +
          ", type, queue, due, ivl, factor, reps, lapses, left, odue, odid, flags, data from "
          "cards where ";
  else
    sql = "select id, guid, mid, mod, " + usn +
          ", tags, flds, '', ' ', flags, data from notes where ";
  sql += _usnLim();
  std::unique_ptr<ResultSet> rs = col.db()->executeQuery(sql);
  if (!rs) throw SqlError(sql);
  return rs;
}

Json Syncer::chunk() {
  Json buf = Json::object();
  size_t lim = kChunkRows;
  while (!tablesLeft.empty() && lim) {
    const std::string table = tablesLeft.front();
    if (!cursor) cursor = cursorForTable(table);
    Json rows = Json::array();
    while (rows.size() < lim && cursor->next())
      rows.push_back(SyncMessages::rowToJson(cursor->row()));
    const size_t fetched = rows.size();
    if (fetched != lim) {
      // The table is finished; its rows are stamped only once the cursor has let go of it.
      tablesLeft.pop_front();
      cursor.reset();
      if (!_isServer()) col.db()->run("update " + table + " set usn=? where usn=-1", {maxUsn});
    }
    buf[table] = std::move(rows);
    lim -= fetched;
  }
  if (tablesLeft.empty()) buf["done"] = true;
  return buf;
}

void Syncer::applyChunk(const Json& chunk) {
  const Json& c = chunk.contains("chunk") ? chunk["chunk"] : chunk;
  if (c.contains("revlog")) mergeRevLog(c["revlog"]);
  if (c.contains("cards")) mergeCards(c["cards"]);
  if (c.contains("notes")) mergeNotes(c["notes"]);
}

void Syncer::mergeRevLog(const Json& logs) {
  runMany(*col.db(), "insert or ignore into revlog values (?,?,?,?,?,?,?,?,?)", rowsOf(logs));
}

Json Syncer::newerRows(const Json& data, const std::string& table, size_t modIdx) {
  std::vector<Id> ids;
  ids.reserve(data.size());
  for (const Json& r : data) ids.push_back(SyncMessages::idOf(r[0]));
  std::map<Id, int64_t> lmods;
  for (const Row& row : col.db()->all("select id, mod from " + table + " where id in " +
                                      ids2str(ids) + " and " + _usnLim()))
    lmods[toInt(row[0])] = toInt(row[1]);
  Json update = Json::array();
  for (const Json& r : data) {
    auto it = lmods.find(SyncMessages::idOf(r[0]));
    // On equal mod times our own row stays.
    if (it == lmods.end() || it->second < jsonInt(r[modIdx])) update.push_back(r);
  }
  return update;
}

void Syncer::mergeCards(const Json& cards) {
  runMany(*col.db(), "insert or replace into cards values (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)",
          rowsOf(newerRows(cards, "cards", 4)));
}

void Syncer::mergeNotes(const Json& notes) {
  const Json rows = newerRows(notes, "notes", 3);
  runMany(*col.db(), "insert or replace into notes values (?,?,?,?,?,?,?,?,?,?,?)", rowsOf(rows));
  std::vector<Id> nids;
  nids.reserve(rows.size());
  for (const Json& r : rows) nids.push_back(SyncMessages::idOf(r[0]));
  col.updateFieldCache(nids);
}

Json Syncer::sanityCheck() {
  if (!col.basicCheck()) return "failed basic check";
  DB& db = *col.db();
  for (const char* table : {"cards", "notes", "revlog", "graves"})
    if (db.scalarInt(std::string("select count() from ") + table + " where usn = -1") != 0)
      return std::string(table) + " had usn = -1";
  for (Json* deck : col.decks().all())
    if (usnOf(*deck) == -1) return "deck had usn = -1";
  for (const auto& [name, usn] : col.tags().allItems().items())
    if (jsonInt(usn) == -1) return "tag had usn = -1";
  for (Json* m : col.models().all())
    if (usnOf(*m) == -1) return "model had usn = -1";
  Scheduler& sched = col.sched();
  sched.reset();
  sched.deckDueList();
  const auto counts = sched.counts();
  return Json::array(
      {Json::array({counts[0], counts[1], counts[2]}), db.scalarInt("select count() from cards"),
       db.scalarInt("select count() from notes"), db.scalarInt("select count() from revlog"),
       db.scalarInt("select count() from graves"), col.models().all().size(),
       col.decks().all().size(), col.decks().allConf().size()});
}

std::string Syncer::finish(const std::string& modText) {
  int64_t mod = std::strtoll(modText.c_str(), nullptr, 10);
  std::string text = modText;
  if (mod == 0) {
    mod = intTime(1000);
    text = std::to_string(mod);
  }
  col.setLs(mod);
  col.setUsn(static_cast<int>(maxUsn + 1));
  col.db()->mod = true;
  col.saveName({}, mod);
  return text;
}

// The server half.

Json Syncer::start(const Json& args) {
  require(args.is_object() ? "" : "start takes an object");
  const Json usn = args.value("minUsn", Json());
  require(usn.is_number_integer() && usn.get<int64_t>() >= 0 ? "" : "minUsn is not a usn");
  require(args.value("lnewer", Json()).is_boolean() ? "" : "lnewer is not true or false");
  require(SyncMessages::checkGraves(args.value("graves", Json())));
  minUsn = usn.get<int64_t>();
  lnewer = !args["lnewer"].get<bool>();
  maxUsn = col._usnValue();
  Json lgraves = removed();
  remove(args["graves"]);
  return lgraves;
}

Json Syncer::applyChanges(const Json& args) {
  require(args.is_object() ? "" : "applyChanges takes an object");
  const Json r = args.value("changes", Json());
  require(SyncMessages::checkChanges(r));
  rchg = r;
  lchg = changes();
  mergeLChanges(lchg, rchg);
  return lchg;
}

void Syncer::applyClientChunk(const Json& args) {
  require(args.is_object() ? "" : "applyChunk takes an object");
  require(SyncMessages::checkChunk(args.value("chunk", Json())));
  applyChunk(args["chunk"]);
}

Json Syncer::sanityCheck2(const Json& args) {
  require(args.is_object() && args.contains("client") ? "" : "sanityCheck2 takes the client's");
  const Json own = sanityCheck();
  return {{"status", args["client"] == own ? "ok" : "bad"}, {"c", args["client"]}, {"s", own}};
}

}  // namespace rivo
