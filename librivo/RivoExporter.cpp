#include "librivo/RivoExporter.h"

#include <sqlite3.h>

#include <filesystem>
#include <functional>
#include <set>
#include <unordered_set>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Files.h"
#include "librivo/Ids.h"
#include "librivo/Latex.h"
#include "librivo/MediaManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Scheduler.h"
#include "librivo/Storage.h"
#include "librivo/StoredCodes.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

constexpr int kCardNid = 1;
constexpr size_t kBatchRows = 1000;

// Every row `select` gives on `from`, written to `to` with `insert`, a batch at a time; `each`
// sees each row first.
void copyRows(DB& from, DB& to, const std::string& select, const std::string& insert,
              const std::function<void(const Row&)>& each = {}) {
  std::vector<Row> rows;
  auto flush = [&] {
    for (bool ok : to.executeMany(insert, rows))
      if (!ok) throw std::runtime_error("a row couldn't be written to the exported file");
    rows.clear();
  };
  from.execute(select, {}, [&](sqlite3_stmt* stmt) {
    Row row;
    for (int c = 0, n = sqlite3_column_count(stmt); c < n; ++c) row.push_back(columnValue(stmt, c));
    if (each) each(row);
    rows.push_back(std::move(row));
    if (rows.size() == kBatchRows) flush();
  });
  flush();
}

std::string idText(const Json& id) {
  return id.is_string() ? id.get<std::string>() : id.dump();
}

}  // namespace

RivoExporter::RivoExporter(Col& col, std::optional<Id> did) : Exporter(col, did) {}

bool RivoExporter::exportInto(const std::string& path, std::string* error) {
  _mediaFiles.clear();
  if (_did && !_col.decks().getDeck(Json(*_did), false)) {
    if (error) *error = "The deck to export no longer exists.";
    return false;
  }
  const std::string folder = getUniqueFilenameInFolder(_col.tmpDir(), "export");
  const std::string built = folder + "/collection.rivo2";
  std::error_code ec;
  std::string problem;
  try {
    fs::create_directories(folder);
    auto dst = Storage::open(built, true, false, true);
    if (!dst) throw std::runtime_error("a new collection can't be made in " + _col.tmpDir());
    _build(*dst);
    dst->setCrt(_col.crt());
    _count = dst->cardCount();
    dst->setMod();
    dst->close();
    if (!moveFile(built, path, &problem))
      throw std::runtime_error("it can't be saved as " + path + ": " + problem);
  } catch (const std::exception& e) {
    problem = e.what();
  }
  fs::remove_all(folder, ec);
  if (!problem.empty() && error) *error = "The export couldn't be made: " + problem + ".";
  return problem.empty();
}

void RivoExporter::_build(Col& dst) {
  DB& src = *_col.db();
  DB& out = *dst.db();
  const std::vector<Id> cids = cardIds();
  const std::string cardList = ids2str(cids);
  std::vector<Id> nids;
  copyRows(src, out, "select * from cards where id in " + cardList,
           "insert into cards values (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)",
           [&](const Row& card) { nids.push_back(toInt(card[kCardNid])); });
  copyRows(src, out, "select * from notes where id in " + ids2str(nids),
           "insert into notes values (?,?,?,?,?,?,?,?,?,?,?)");
  if (includeSched)
    copyRows(src, out, "select * from revlog where cid in " + cardList,
             "insert into revlog values (?,?,?,?,?,?,?,?,?)");

  // Only the exported note types: the new file's own would rename any of the same name.
  dst.models().models() = Json::object();
  for (const Value& mid : out.list("select distinct mid from notes"))
    if (const Json* model = _col.models().get(toInt(mid))) dst.models().update(*model);
  if (!dst.models().models().empty())
    dst.conf()["curModel"] = dst.models().models().begin().value()["id"];
  dst.models().save();
  _copyDecks(dst);

  Scheduler& sched = dst.sched();
  if (includeSched) {
    // A card shown in a filtered deck that stays behind goes back to its own deck.
    std::vector<Id> away;
    for (const Value& id : out.list("select id from cards where odid and did not in " +
                                    ids2str(dst.decks().allIds())))
      away.push_back(toInt(id));
    if (!away.empty()) sched.remFromDyn(away);
  } else {
    // Every card starts again as new: none stays filtered, suspended or buried.
    sched.remFromDyn(cids);
    out.run("update cards set queue = type where queue in (" + std::to_string(kQueueSuspended) +
            "," + std::to_string(kQueueBuried) + ")");
    sched.resetCards(cids);
  }
  if (includeMedia) _collectMedia(out);
}

void RivoExporter::_copyDecks(Col& dst) {
  const std::vector<Id> wanted = deckIds();
  std::set<std::string> confs;
  for (Json* deck : _col.decks().all()) {
    const Id id = jsonInt((*deck)["id"]);
    if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), id) == wanted.end()) continue;
    const bool dyn = jsonInt(deck->value("dyn", Json(0))) != 0;
    // Without scheduling a filtered deck is empty: it stays behind.
    if (dyn && !includeSched) continue;
    if (!dyn && deck->contains("conf") && idText((*deck)["conf"]) != "1")
      confs.insert(idText((*deck)["conf"]));
    dst.decks().update(*deck);
  }
  for (const std::string& conf : confs)
    if (const Json* group = _col.decks().getConf(Json(conf))) dst.decks().updateConf(*group);
}

void RivoExporter::_collectMedia(DB& dst) {
  MediaManager& media = _col.media();
  std::set<std::string> names;
  dst.execute("select mid, flds from notes", {}, [&](sqlite3_stmt* stmt) {
    const Id mid = toInt(columnValue(stmt, 0));
    const Json* model = _col.models().get(mid);
    // A LaTeX tag shows as a picture made from it.
    const std::string text = toText(columnValue(stmt, 1));
    for (const std::string& name :
         media.filesInStr(mid, model ? Latex::mungeQAForHtml(text, *model) : text))
      names.insert(MediaManager::nfc(name));
  });
  // Files whose names start with "_" belong to the note types' templates and styling.
  std::string templates;
  for (const Value& mid : dst.list("select distinct mid from notes"))
    if (const Json* model = _col.models().get(toInt(mid))) templates += model->dump();
  std::error_code ec;
  for (fs::directory_iterator it(media.dir(), ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.starts_with("_") && templates.find(name) != std::string::npos) names.insert(name);
  }
  for (const std::string& name : names) {
    const std::string path = media.pathOf(name);
    if (!path.empty() && fs::is_regular_file(path, ec)) _mediaFiles.push_back(path);
  }
}

}  // namespace rivo
