#include "librivo/Col.h"

#include <sys/stat.h>

#include <cstring>
#include <ctime>
#include <filesystem>

#include "librivo/Card.h"
#include "librivo/Clock.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/MediaManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"
#include "librivo/Scheduler.h"
#include "librivo/SysLog.h"
#include "librivo/TagManager.h"
#include "librivo/Utils.h"
#include "librivo/Version.h"

namespace fs = std::filesystem;

namespace rivo {

namespace {

const char* const kDefaultConf =
    "{\"activeDecks\": [1], \"sortType\": \"noteFld\", \"curDeck\": 1, \"dueCounts\": true, "
    "\"curModel\": null, \"newSpread\": 0, \"nextPos\": 1, \"estTimes\": true, \"timeLim\": 0, "
    "\"sortBackwards\": false, \"collapseTime\": 1200, \"addToCur\": true, \"replayBoth\": 1 }";

constexpr int64_t kMaxLogSize = 10485760;

// Day zero: 04:00 GMT of the local date of (now - 4 hours), with the zone offset in hours.
int64_t computeCrt() {
  time_t now = static_cast<time_t>(intTime(1));
  time_t shifted = now - 4 * 3600;
  struct tm local {};
  localtime_r(&shifted, &local);
  struct tm midnight {};
  midnight.tm_year = local.tm_year;
  midnight.tm_mon = local.tm_mon;
  midnight.tm_mday = local.tm_mday;
  midnight.tm_isdst = -1;
  time_t start = mktime(&midnight);
  struct tm current {};
  localtime_r(&now, &current);
  long offsetHours = current.tm_gmtoff / 3600;
  return static_cast<int64_t>(start) + (offsetHours + 4) * 3600;
}

bool newBury(const Json& conf) {
  return conf.contains("newBury") && conf["newBury"].is_boolean() && conf["newBury"].get<bool>();
}

}  // namespace

Col::Col(std::unique_ptr<DB> db, bool server, std::string logFolder)
    : _db(std::move(db)), _server(server), _logFolder(std::move(logFolder)) {
  _path = _db->path();
  _ok = reinit();
}

Col::~Col() {
  // Whoever owns the collection closes it deliberately; here only resources are released.
  _sched.reset();
  _media.reset();
  if (_logHnd) std::fclose(_logHnd);
}

Json Col::getDefaultConf() {
  return decodeJson(kDefaultConf);
}

bool Col::reinit() {
  log({"reinit", kBundleVersion});
  _lastSave = intTime(1000);
  clearUndo();
  _media = std::make_unique<MediaManager>(*this, _server);
  _models = std::make_unique<ModelManager>(*this);
  _decks = std::make_unique<DeckManager>(*this);
  _tags = std::make_unique<TagManager>(*this);
  if (!load()) return false;
  if (_crt == 0) _crt = computeCrt();
  _sched = std::make_unique<Scheduler>(*this);
  if (!newBury(_conf)) _unburyWithoutChange();
  return true;
}

void Col::_unburyWithoutChange() {
  bool mod = _db->mod;
  _sched->unburyCards();
  _db->mod = mod;
}

bool Col::load() {
  auto row =
      _db->first("select crt, mod, scm, dty, usn, ls, conf, models, decks, dconf, tags from col");
  if (!row || row->size() < 11) return false;
  const Row& r = *row;
  _crt = toInt(r[0]);
  _mod = toInt(r[1]);
  _scm = toInt(r[2]);
  _dty = toInt(r[3]);
  _usn = static_cast<int>(toInt(r[4]));
  _ls = toInt(r[5]);
  _confJSON = toText(r[6]);
  _modelsJSON = toText(r[7]);
  _decksJSON = toText(r[8]);
  _deckConfJSON = toText(r[9]);
  _tagsJSON = toText(r[10]);
  Json conf = _confJSON.empty() ? Json::object() : decodeJson(_confJSON);
  setConf(conf.is_object() ? conf : Json::object());
  _models->load(_modelsJSON);
  _decks->loadDecks(_decksJSON, _deckConfJSON);
  _tags->load(_tagsJSON);
  return true;
}

void Col::setConf(const Json& conf) {
  _conf = conf;
}

void Col::setMod() {
  _db->mod = true;
}

void Col::flushAndSetMod(int64_t modMs) {
  _mod = modMs ? modMs : intTime(1000);
  std::string error;
  std::string conf = jsonString(_conf, &error);
  if (!error.empty()) {
    log({"error serializing conf JSON: " + error});
    return;
  }
  _db->run("update col set crt=?, mod=?, scm=?, dty=?, usn=?, ls=?, conf=?",
           {_crt, _mod, _scm, _dty, int64_t{_usn}, _ls, conf});
}

void Col::saveName(const std::string& name, int64_t modMs) {
  _models->flush();
  _decks->flush();
  _tags->flush();
  if (_db->mod) {
    flushAndSetMod(modMs);
    _db->commit();
    lock();
    _db->mod = false;
  }
  _markOp(name);
  _lastSave = intTime(1);
}

void Col::autosave() {
  if (intTime(1) - _lastSave > 300) save();
}

void Col::lock() {
  bool mod = _db->mod;
  _db->run("update col set mod=mod");
  _db->mod = mod;
}

void Col::closeAndSave(bool saveFirst) {
  if (!_db) return;
  if (!newBury(_conf)) _unburyWithoutChange();
  if (saveFirst)
    save();
  else
    rollback();
  if (!_server) _db->scalar("pragma journal_mode = delete");
  _db->close();
  _db.reset();
  _media->close();
  std::lock_guard guard(_logMutex);
  if (_logHnd) {
    std::fclose(_logHnd);
    _logHnd = nullptr;
  }
}

void Col::reopen() {
  if (_db) return;
  _db = std::make_unique<DB>(_path);
  _media->connect();
  _ok = reinit();
}

void Col::rollback() {
  _db->rollback();
  load();
  lock();
}

void Col::modSchema() {
  _scm = intTime(1000);
  setMod();
}

void Col::beforeUpload() {
  for (const char* table : {"notes", "cards", "revlog"})
    _db->run(std::string("update ") + table + " set usn=0 where usn=-1");
  _db->run("delete from graves");
  _usn += 1;
  _models->beforeUpload();
  _tags->beforeUpload();
  _decks->beforeUpload();
  modSchema();
  _ls = _scm;
  _db->commit();
  _db->run("vacuum");
  _db->run("analyze");
  saveName({}, _scm);
  close();
}

std::unique_ptr<Card> Col::getCard(Id id) {
  return std::make_unique<Card>(*this, id);
}

std::unique_ptr<Note> Col::getNote(Id id) {
  return std::make_unique<Note>(*this, id);
}

std::unique_ptr<Note> Col::newNote() {
  const Json* model = _models->current();
  if (!model) {
    log({"newNote: the collection has no note type"});
    return nullptr;
  }
  return std::make_unique<Note>(*this, *model);
}

int64_t Col::nextID(const std::string& type, bool inc) {
  std::string key = "next" + type;
  if (!key.empty() && key.size() > 4) key[4] = static_cast<char>(std::toupper(key[4]));
  int64_t value = _conf.contains(key) ? jsonInt(_conf[key]) : 0;
  if (inc) _conf[key] = value + 1;
  return value;
}

void Col::reset() {
  _sched->reset();
}

int64_t Col::noteCount() {
  return _db->scalarInt("select count() from notes");
}
int64_t Col::cardCount() {
  return _db->scalarInt("select count() from cards");
}
bool Col::isEmpty() {
  return !_db->scalar("select 1 from cards limit 1");
}

namespace {
std::vector<Id> idsOf(const std::vector<Value>& values) {
  std::vector<Id> ids;
  ids.reserve(values.size());
  for (const Value& v : values) ids.push_back(toInt(v));
  return ids;
}
}  // namespace

void Col::remCards(const std::vector<Id>& ids) {
  if (ids.empty()) return;
  std::string sids = ids2str(ids);
  std::vector<Id> nids = idsOf(_db->list("select nid from cards where id in " + sids));
  _logRem(ids, 0);
  _db->run("delete from cards where id in " + sids);
  std::vector<Id> orphans = idsOf(_db->list("select id from notes where id in " + ids2str(nids) +
                                            " and id not in (select nid from cards)"));
  _remNotes(orphans);
}

void Col::remNotes(const std::vector<Id>& ids) {
  remCards(idsOf(_db->list("select id from cards where nid in " + ids2str(ids))));
}

void Col::_remNotes(const std::vector<Id>& ids) {
  if (ids.empty()) return;
  _logRem(ids, 1);
  _db->run("delete from notes where id in " + ids2str(ids));
}

void Col::_logRem(const std::vector<Id>& ids, int type) {
  std::vector<Row> rows;
  rows.reserve(ids.size());
  for (Id id : ids) rows.push_back({id});
  _db->executeMany(
      "insert into graves values (" + std::to_string(usn()) + ", ?, " + std::to_string(type) + ")",
      rows);
}

// Undo.

void Col::clearUndo() {
  _undo = UndoState{};
}

bool Col::canUndo() const {
  return !_undo.cards.empty();
}

std::string Col::undoName() const {
  return _undo.kind ? _undo.name : std::string();
}

void Col::markReview(const Card& card) {
  if (_undo.kind != 1) {
    _undo = UndoState{};
    _undo.kind = 1;
    _undo.name = "Review";
  }
  _undo.cards.push_back(std::make_unique<Card>(card.copy()));
}

void Col::_markOp(const std::string& name) {
  if (!name.empty()) {
    _undo = UndoState{};
    _undo.kind = 2;
    _undo.name = name;
  } else if (_undo.kind == 2) {
    clearUndo();
  }
}

std::optional<Id> Col::undoSavingCurrentCard(const Card* current) {
  if (_undo.kind == 1) return _undoReviewSavingCurrentCard(current);
  _undoOp();
  return std::nullopt;
}

void Col::_undoOp() {
  rollback();
  clearUndo();
}

std::optional<Id> Col::_undoReviewSavingCurrentCard(const Card* current) {
  if (_undo.cards.empty()) {
    clearUndo();
    return std::nullopt;
  }
  Card card = *_undo.cards.back();
  _undo.cards.pop_back();
  if (_undo.cards.empty()) clearUndo();
  card.col = this;
  card.flush();
  auto last =
      _db->scalar("select id from revlog where cid = ? order by id desc limit 1", {card.id});
  if (last) _db->run("delete from revlog where id = ?", {*last});
  _db->run("update cards set queue=type,mod=?,usn=? where queue=-2 and nid=?",
           {static_cast<int64_t>(intTime(1)), int64_t{usn()}, card.nid});
  if (current) _sched->undoQueue().push_back(*current);
  _sched->undoQueue().push_back(card);
  return card.id;
}

// The debug log.

void Col::log(const std::vector<std::string>& items) {
  if (_logFolder.empty()) return;
  std::string text;
  for (const std::string& item : items) {
    if (!text.empty()) text += ' ';
    text += item;
  }
  for (char& c : text)
    if (c == '\n') c = ' ';
  std::string single;
  single.reserve(text.size());
  for (char c : text) {
    if (c == ' ' && !single.empty() && single.back() == ' ') continue;
    single += c;
  }
  _writeLogLine("[" + std::to_string(intTime(1)) + "]: " + single + "\n");
}

void Col::_writeLogLine(const std::string& line) {
  // The work queue and the main loop both log.
  std::lock_guard guard(_logMutex);
  std::string path = _logFolder + "/debug.log";
  struct stat st {};
  bool exists = ::stat(path.c_str(), &st) == 0;
  if (exists && st.st_size > kMaxLogSize) {
    std::string old = _logFolder + "/debug.log.old";
    std::error_code ec;
    fs::remove(old, ec);
    fs::rename(path, old, ec);
    exists = false;
    // An open handle stays on the renamed file, as it would with any file handle.
  }
  if (!exists) {
    if (std::FILE* f = std::fopen(path.c_str(), "w")) {
      std::fwrite(line.data(), 1, line.size(), f);
      std::fclose(f);
    }
    return;
  }
  if (!_logHnd) _logHnd = std::fopen(path.c_str(), "a");
  if (!_logHnd) return;
  std::fwrite(line.data(), 1, line.size(), _logHnd);
  std::fflush(_logHnd);
}

void Col::updateProgressWithBlock(const ProgressBlock& block) {
  {
    std::lock_guard guard(_progressMutex);
    double now = Clock::now();
    if (now - _lastUpdate < 0.25) return;
    _lastUpdate = now;
  }
  std::string desc = block();
  if (_progressSink) _progressSink(desc);
}

}  // namespace rivo
