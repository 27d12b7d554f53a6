#include "librivo/Col.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <unordered_map>

#include "librivo/Card.h"
#include "librivo/Checksum.h"
#include "librivo/Clock.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/FieldText.h"
#include "librivo/Finder.h"
#include "librivo/Ids.h"
#include "librivo/Latex.h"
#include "librivo/MediaManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"
#include "librivo/Random.h"
#include "librivo/SaveError.h"
#include "librivo/Scheduler.h"
#include "librivo/StoredCodes.h"
#include "librivo/SysLog.h"
#include "librivo/TagManager.h"
#include "librivo/Template.h"
#include "librivo/Version.h"

namespace fs = std::filesystem;

namespace rivo {

// SQL text here compares stored codes as numbers (names in StoredCodes.h): queue 0 new,
// 1 learning, 2 review, 3 learning on a later day, -1 suspended, -2 buried; type 0 new,
// 1 learning, 2 review.

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
  const std::string conf = savedJson(_conf, "collection settings");
  _db->run("update col set crt=?, mod=?, scm=?, dty=?, usn=?, ls=?, conf=?",
           {_crt, _mod, _scm, _dty, int64_t{_usn}, _ls, conf});
}

void Col::saveName(const std::string& name, int64_t modMs) {
  try {
    _models->flush();
    _decks->flush();
    _tags->flush();
    if (_db->mod) {
      flushAndSetMod(modMs);
      _db->commit();
      _db->mod = false;
      _relock();
    }
  } catch (const SaveError&) {
    // Nothing of a failed save may reach the file with a later commit, and what is held
    // in memory goes back to what the file holds. A disk that fails that too must not hide
    // why the save failed.
    if (_db->inTransaction()) _db->rollback();
    _db->mod = false;
    try {
      load();
      lock();
    } catch (const SaveError&) {
    }
    throw;
  }
  _markOp(name);
  _lastSave = intTime(1);
}

void Col::autosave() {
  if (intTime(1) - _lastSave > 300) save();
}

// The save is done whatever happens here: a lock the disk refuses now is taken by the next
// write instead.
void Col::_relock() {
  try {
    lock();
  } catch (const SaveError&) {
  }
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

// Checking the database.

namespace {

std::string modelIds(Json& models) {
  std::vector<std::string> ids;
  for (auto& [key, model] : models.items()) ids.push_back(key);
  return ids2str(ids);
}

// Ords of the templates of each note type that lacks a "type" key, which files from
// elsewhere may; such a type's cards must have a template of their own.
std::vector<std::pair<std::string, std::string>> untypedModelOrds(Json& models) {
  std::vector<std::pair<std::string, std::string>> out;
  for (auto& [key, model] : models.items()) {
    if (!model.is_object() || model.contains("type")) continue;
    std::vector<int64_t> ords;
    if (model.contains("tmpls") && model["tmpls"].is_array())
      for (auto& t : model["tmpls"]) ords.push_back(jsonInt(t.value("ord", Json())));
    out.emplace_back(key, ids2str(ords));
  }
  return out;
}

}  // namespace

Col::Stamp Col::stamp() const {
  return {static_cast<int64_t>(intTime(1)), int64_t{usn()}};
}

void Col::stamp(Json& obj) const {
  const Stamp now = stamp();
  obj["mod"] = now.mod;
  obj["usn"] = now.usn;
}

bool Col::basicCheck() {
  const std::string orphanCards =
      "select 1 from cards where nid not in (select id from notes) limit 1";
  if (_db->scalar(orphanCards)) return false;
  if (_db->scalar("select 1 from notes where id not in (select distinct nid from cards)  or mid "
                  "not in " +
                  modelIds(_models->models()) + " limit 1"))
    return false;
  // The first test again, meant: the check runs this sequence wherever it runs.
  if (_db->scalar(orphanCards)) return false;
  for (const auto& [mid, ords] : untypedModelOrds(_models->models())) {
    if (_db->scalar("select 1 from cards where ord not in " + ords +
                        " and nid in (select id from notes where mid = ?) limit 1",
                    {std::string(mid)}))
      return false;
  }
  return true;
}

std::string Col::fixIntegrity() {
  // Opening leaves the decks as text; a damaged blob must fail the check, not pass it.
  _decks->parseNow();
  auto ok = _db->scalar("pragma integrity_check");
  if (!ok || toText(*ok) != "ok")
    return "Your collection is corrupt. Please post on the support site for help.";
  std::vector<std::string> problems;

  std::vector<Id> ids = _db->ids(
      "select id from notes where id not in (select distinct nid from cards)  or mid not in " +
      modelIds(_models->models()));
  if (!ids.empty()) {
    problems.push_back("Deleted " + std::to_string(ids.size()) +
                       " notes with missing cards or note types.");
    _db->run("delete from notes where id in " + ids2str(ids));
    _db->run("delete from cards where nid in " + ids2str(ids));
  }

  for (const auto& [mid, ords] : untypedModelOrds(_models->models())) {
    ids = _db->ids("select id from cards where ord not in " + ords +
                       " and nid in (select id from notes where mid = ?)",
                   {std::string(mid)});
    if (!ids.empty()) {
      problems.push_back("Deleted " + std::to_string(ids.size()) + " cards with missing template.");
      remCards(ids);
    }
  }

  ids = _db->ids("select id from notes where guid = 'b'");
  if (!ids.empty()) {
    problems.push_back("Fixed " + std::to_string(ids.size()) + " notes with invalid ID.");
    for (Id id : ids) _db->run("update notes set guid=? where id=?", {guid64(), id});
  }

  ids = _db->ids("select id from cards where nid not in (select id from notes)");
  if (!ids.empty()) {
    problems.push_back("Deleted " + std::to_string(ids.size()) + " cards with missing note.");
    remCards(ids);
  }

  _tags->registerNotes(std::nullopt);
  // The repairs and the new schema time reach the file in one commit: a repaired file that
  // would still sync as if nothing had changed can't be left behind.
  if (!problems.empty()) {
    modSchema();
    save();
  }
  _db->commit();
  _db->run("vacuum");
  _db->run("analyze");

  if (problems.empty()) return {};
  lock();
  std::string text;
  for (const std::string& line : problems) text += (text.empty() ? "" : "\n") + line;
  return text;
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

namespace {
// "pos" is kept under "nextPos".
std::string nextKey(const std::string& type) {
  std::string key = "next" + type;
  if (key.size() > 4) key[4] = static_cast<char>(std::toupper(key[4]));
  return key;
}
}  // namespace

int64_t Col::nextID(const std::string& type, bool inc) {
  const std::string key = nextKey(type);
  int64_t value = _conf.contains(key) ? jsonInt(_conf[key]) : 0;
  if (inc) _setNextID(type, value + 1);
  return value;
}

void Col::_setNextID(const std::string& type, int64_t value) {
  _conf[nextKey(type)] = value;
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

void Col::remCards(const std::vector<Id>& ids) {
  if (ids.empty()) return;
  std::string sids = ids2str(ids);
  std::vector<Id> nids = _db->ids("select nid from cards where id in " + sids);
  _logRem(ids, kGraveCard);
  _db->run("delete from cards where id in " + sids);
  std::vector<Id> orphans = _db->ids("select id from notes where id in " + ids2str(nids) +
                                     " and id not in (select nid from cards)");
  _remNotes(orphans);
}

void Col::remNotes(const std::vector<Id>& ids) {
  remCards(_db->ids("select id from cards where nid in " + ids2str(ids)));
}

void Col::_remNotes(const std::vector<Id>& ids) {
  if (ids.empty()) return;
  _logRem(ids, kGraveNote);
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
  const Col::Stamp now = stamp();
  _db->run("update cards set queue=type,mod=?,usn=? where queue=-2 and nid=?",
           {now.mod, now.usn, card.nid});
  if (current) _sched->undoQueue().push_back(*current);
  _sched->undoQueue().push_back(card);
  return card.id;
}

// The debug log.

void Col::log(const std::vector<std::string>& items) {
  if (!logging()) return;
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

// Card generation.

namespace {
const Json& modelOf(Col& col, const Note& note) {
  const Json* m = col.models().get(note.mid);
  return m ? *m : note.model();
}
bool isCloze(const Json& model) {
  return model.is_object() && model.contains("type") && jsonInt(model["type"]) == kModelCloze;
}
Json deckOf(const Json& obj) {
  return obj.is_object() && obj.contains("did") ? obj["did"] : Json();
}
}  // namespace

std::vector<Json> Col::findTemplates(const Note& note) {
  const Json& model = modelOf(*this, note);
  return _tmplsFromOrds(ModelManager::availOrds(model, note.joinedFields()), model);
}

namespace {

// The template of each ord that applies, in the order _tmplsFromOrds gives them, without a
// copy: a cloze type's one template stands for every ord.
std::vector<std::pair<int, const Json*>> templatesFor(const std::vector<int>& ords,
                                                      const Json& model) {
  std::vector<std::pair<int, const Json*>> out;
  if (!model.is_object() || !model.contains("tmpls") || !model["tmpls"].is_array()) return out;
  const Json& tmpls = model["tmpls"];
  if (isCloze(model)) {
    if (tmpls.empty()) return out;
    for (int ord : ords) out.emplace_back(ord, &tmpls[0]);
    return out;
  }
  for (const Json& t : tmpls) {
    const int64_t ord = t.contains("ord") ? jsonInt(t["ord"], -1) : -1;
    if (std::find(ords.begin(), ords.end(), ord) != ords.end())
      out.emplace_back(static_cast<int>(ord), &t);
  }
  return out;
}

// Lists longer than this reach SQLite as one bound JSON array rather than as SQL text to parse.
constexpr size_t kLongIdList = 1000;

// What follows "in" for these ids, and the value to bind for it, if any.
std::pair<std::string, Row> idsIn(const std::vector<Id>& ids) {
  std::string list = ids2str(ids);
  if (ids.size() <= kLongIdList) return {list, {}};
  list.front() = '[';
  list.back() = ']';
  return {"(select value from json_each(?))", {list}};
}

// New cards' rows go in a hundred to a statement: one statement start for many rows.
constexpr size_t kCardsPerInsert = 100;
const char* const kCardRow = "(?,?,?,?,?,?,0,0,?,0,0,0,0,0,0,0,0,'')";

std::string cardInsert(size_t rows) {
  std::string sql = "insert into cards values ";
  for (size_t i = 0; i < rows; ++i) sql += i ? std::string(",") + kCardRow : kCardRow;
  return sql;
}

}  // namespace

int Col::addNote(Note& note) {
  const Json& model = modelOf(*this, note);
  const auto tmpls = templatesFor(ModelManager::availOrds(model, note.joinedFields()), model);
  if (tmpls.empty()) return 0;
  note.flush();
  // All cards of one note share its due position.
  const int64_t due = nextID("pos");
  // The cards are written and dropped, so they need no copy of the note.
  for (const auto& [ord, t] : tmpls) _newCardRow(note, ord, *t, due).flush();
  return static_cast<int>(tmpls.size());
}

std::vector<Json> Col::_tmplsFromOrds(const std::vector<int>& ords, const Json& model) {
  std::vector<Json> out;
  for (const auto& [ord, t] : templatesFor(ords, model)) {
    out.push_back(*t);
    // One template serves every cloze number.
    if (isCloze(model)) out.back()["ord"] = ord;
  }
  return out;
}

std::vector<Id> Col::genCards(const std::vector<Id>& nids) {
  const auto [in, inValue] = idsIn(nids);
  // Existing cards by note (ord and card id, the last card of an ord winning), and the deck a
  // note's cards agree on.
  std::unordered_map<Id, std::vector<std::pair<int, Id>>> have;
  std::unordered_map<Id, Id> dids;
  _db->execute(
      "select id, nid, ord, did from cards where nid in " + in, inValue, [&](sqlite3_stmt* st) {
        const Id cid = sqlite3_column_int64(st, 0);
        const Id nid = sqlite3_column_int64(st, 1);
        const int ord = sqlite3_column_int(st, 2);
        const Id did = sqlite3_column_int64(st, 3);
        auto& cards = have[nid];
        auto same =
            std::find_if(cards.begin(), cards.end(), [&](const auto& c) { return c.first == ord; });
        if (same != cards.end())
          same->second = cid;
        else
          cards.emplace_back(ord, cid);
        auto it = dids.find(nid);
        if (it == dids.end())
          dids.emplace(nid, did);
        else if (it->second != did)
          dids.erase(it);
      });
  int64_t ts = std::stoll(maxID(*_db));
  const int64_t now = intTime(1);
  const int64_t usnValue = usn();
  // Each card takes the next due position; conf is written once at the end.
  const int64_t firstPos = nextID("pos", false);
  int64_t pos = firstPos;
  // Where a card asked for a deck goes: a filtered deck sends it to the default one.
  std::unordered_map<Id, Id> deckByNumber;
  auto deckFor = [&](const Json& wanted) {
    const bool number = wanted.is_number_integer();
    if (number) {
      auto found = deckByNumber.find(wanted.get<Id>());
      if (found != deckByNumber.end()) return found->second;
    }
    const Json* deck = _decks->getDeck(_decks->isDyn(wanted) ? Json(1) : wanted);
    const Id id = deck && deck->contains("id") ? jsonInt((*deck)["id"], 1) : 1;
    if (number) deckByNumber.emplace(wanted.get<Id>(), id);
    return id;
  };
  std::vector<int64_t> values;  // seven to a card
  std::vector<Id> rem;
  _db->execute("select id, mid, flds from notes where id in " + in, inValue, [&](sqlite3_stmt* st) {
    const Id nid = sqlite3_column_int64(st, 0);
    const Json* model = _models->get(sqlite3_column_int64(st, 1));
    if (!model) return;
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(st, 2));
    const std::string flds(text ? text : "", static_cast<size_t>(sqlite3_column_bytes(st, 2)));
    const std::vector<int> avail = ModelManager::availOrds(*model, flds);
    auto known = dids.find(nid);
    const Json did = known != dids.end() ? Json(known->second) : deckOf(*model);
    auto cards = have.find(nid);
    auto hasCard = [&](int ord) {
      return cards != have.end() && std::any_of(cards->second.begin(), cards->second.end(),
                                                [&](const auto& c) { return c.first == ord; });
    };
    for (const auto& [ord, t] : templatesFor(avail, *model)) {
      if (hasCard(ord)) continue;
      const Json tdid = deckOf(*t);
      for (int64_t v :
           {ts, nid, deckFor(tdid.is_null() ? did : tdid), int64_t{ord}, now, usnValue, pos++})
        values.push_back(v);
      ++ts;
    }
    if (cards != have.end()) {
      std::sort(cards->second.begin(), cards->second.end());
      for (const auto& [ord, cid] : cards->second)
        if (std::find(avail.begin(), avail.end(), ord) == avail.end()) rem.push_back(cid);
    }
  });
  if (pos != firstPos) _setNextID("pos", pos);
  _insertCards(values);
  return rem;
}

void Col::_insertCards(const std::vector<int64_t>& values) {
  constexpr size_t kColumns = 7;
  const size_t cards = values.size() / kColumns;
  const size_t whole = cards / kCardsPerInsert * kCardsPerInsert;
  auto rows = [&](size_t from, size_t to) {
    return Row(values.begin() + from * kColumns, values.begin() + to * kColumns);
  };
  std::vector<Row> chunks, singles;
  for (size_t c = 0; c < whole; c += kCardsPerInsert)
    chunks.push_back(rows(c, c + kCardsPerInsert));
  for (size_t c = whole; c < cards; ++c) singles.push_back(rows(c, c + 1));
  if (!chunks.empty()) _db->executeMany(cardInsert(kCardsPerInsert), chunks);
  // The rest one by one, as are the cards of a single note.
  if (chunks.empty() || !singles.empty()) _db->executeMany(cardInsert(1), singles);
}

void Col::remEmptyCards(const std::vector<Id>&) {
  // Generation never deletes: a card whose template no longer applies stays, and shows as
  // empty when it comes up.
}

std::vector<Card> Col::previewCards(Note& note, int type) {
  std::vector<Json> tmpls;
  if (type == kPreviewApplicable) {
    tmpls = findTemplates(note);
  } else if (type == kPreviewExisting) {
    for (Card& c : note.cards()) {
      if (const Json* t = c.template_()) tmpls.push_back(*t);
    }
  } else {
    const Json& model = modelOf(*this, note);
    if (model.contains("tmpls") && model["tmpls"].is_array())
      for (const Json& t : model["tmpls"]) tmpls.push_back(t);
  }
  std::vector<Card> cards;
  for (const Json& t : tmpls) cards.push_back(_newCard(note, t, 1, false));
  return cards;
}

Card Col::_newCard(Note& note, const Json& tmpl, int64_t due, bool flush) {
  const int ord = static_cast<int>(jsonInt(tmpl.contains("ord") ? tmpl["ord"] : Json()));
  Card card = _newCardRow(note, ord, tmpl, due);
  card.setNote(std::make_shared<Note>(note));
  if (flush) card.flush();
  return card;
}

Card Col::_newCardRow(const Note& note, int ord, const Json& tmpl, int64_t due) {
  Card card(*this);
  card.nid = note.id;
  card.ord = ord;
  Json did = deckOf(modelOf(*this, note));
  if (did.is_null()) did = 1;
  const Json tdid = deckOf(tmpl);
  if (!tdid.is_null() && _decks->getDeck(tdid, false)) did = tdid;
  // New cards never go to a filtered deck.
  const Json* deck = _decks->getDeck(did);
  const bool dyn = deck && deck->contains("dyn") && jsonInt((*deck)["dyn"]) != 0;
  card.did = dyn || !deck || !deck->contains("id") ? 1 : jsonInt((*deck)["id"], 1);
  card.due = _dueForDid(card.did, due);
  return card;
}

int64_t Col::_dueForDid(Id did, int64_t due) {
  const Json* conf = _decks->confForDid(Json(did));
  // Only the key's presence counts, whatever its value: every group written here has it.
  if (conf && conf->contains("new") && (*conf)["new"].is_object() &&
      (*conf)["new"].contains("order"))
    return due;
  srandom(static_cast<unsigned>(due));
  return static_cast<int64_t>(random()) % std::max<int64_t>(due, 1000);
}

void Col::updateFieldCache(const std::vector<Id>& nids) {
  constexpr size_t kBatch = 1000;
  std::vector<Row> batch;
  batch.reserve(kBatch);
  const std::string sql = "update notes set sfld=?, csum=? where id=?";
  for (const Row& r : _fieldData(nids)) {
    const Json* model = _models->get(toInt(r[1]));
    if (!model) continue;
    const std::vector<std::string> fields = splitFields(toText(r[2]));
    const int idx = ModelManager::sortIdx(*model);
    const std::string sort =
        idx >= 0 && static_cast<size_t>(idx) < fields.size() ? fields[idx] : std::string();
    batch.push_back({stripHTML(sort), fieldChecksum(fields[0]), r[0]});
    if (batch.size() == kBatch) {
      _db->executeMany(sql, batch);
      batch.clear();
    }
  }
  _db->executeMany(sql, batch);
}

std::vector<Row> Col::_fieldData(const std::vector<Id>& nids) {
  return _db->all("select id, mid, flds from notes where id in " + ids2str(nids));
}

}  // namespace rivo

// Rendering questions and answers.

namespace rivo {

namespace {

// Every occurrence of `from` replaced, ignoring ASCII case: users type "{{Cloze:" too.
std::string replaceIgnoringCase(const std::string& in, std::string_view from,
                                const std::string& to) {
  auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  std::string out;
  out.reserve(in.size());
  size_t i = 0;
  while (i < in.size()) {
    bool hit = i + from.size() <= in.size();
    for (size_t k = 0; hit && k < from.size(); ++k) hit = lower(in[i + k]) == from[k];
    if (hit) {
      out += to;
      i += from.size();
    } else {
      out += in[i++];
    }
  }
  return out;
}

// Points the template's cloze tags at one deletion number, for one side: kind "cq" hides
// that deletion, "ca" reveals it.
std::string forClozeNumber(const std::string& fmt, const char* kind, int64_t number) {
  if (fmt.find(':') == std::string::npos) return fmt;
  const std::string n = std::to_string(number);
  std::string out = replaceIgnoringCase(fmt, "{{cloze:", "{{" + std::string(kind) + ":" + n + ":");
  return replaceIgnoringCase(out, "<%cloze:", "<%" + std::string(kind) + ":" + n + ":");
}

std::string trimBlanks(const std::string& text) {
  const char* blanks = " \t\n\r\f\v";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

}  // namespace

RenderedQA Col::_renderQA(const Row& row, const std::optional<std::string>& qfmt,
                          const std::optional<std::string>& afmt) {
  RenderedQA out;
  out.id = toInt(row.at(0));
  const int64_t ord = toInt(row.at(4));
  const Json* model = _models->get(toInt(row.at(2)));
  const Json* tmpls = nullptr;
  bool cloze = false;
  if (model) {
    auto t = model->find("tmpls");
    if (t != model->end()) tmpls = &*t;
    // A cloze type has one template for every deletion number. Any type but standard counts
    // here, unlike isCloze above: meant, as the card's own template lookup reads it so.
    auto type = model->find("type");
    cloze = type != model->end() && jsonInt(*type) != kModelStandard;
  }
  const int64_t ti = cloze ? 0 : ord;
  if (!tmpls || !tmpls->is_array() || ti < 0 || static_cast<size_t>(ti) >= tmpls->size()) {
    out.q = out.a = kInvalidCardMessage;
    return out;
  }
  const Json& tmpl = (*tmpls)[static_cast<size_t>(ti)];

  TemplateContext context;
  const std::vector<std::string> fields = splitFields(toText(row.at(6)));
  auto flds = model->find("flds");
  if (flds != model->end() && flds->is_array()) {
    for (const Json& fld : *flds) {
      const int64_t i = jsonInt(fld.value("ord", Json()), -1);
      context[jsonText(fld, "name")] = i >= 0 && static_cast<size_t>(i) < fields.size()
                                           ? fields[static_cast<size_t>(i)]
                                           : std::string();
    }
  }
  context["Tags"] = trimBlanks(toText(row.at(5)));
  context["Type"] = jsonText(*model, "name");
  context["Deck"] = _decks->name(Json(toInt(row.at(3))));
  context["Card"] = jsonText(tmpl, "name");
  context["c" + std::to_string(ord + 1)] = "1";

  // The question, then the answer, which may show the question without its sounds.
  const std::string q = qfmt ? *qfmt : jsonText(tmpl, "qfmt");
  out.q =
      Latex::mungeQAForHtml(Template(forClozeNumber(q, "cq", ord + 1), context).render(), *model);
  context["FrontSide"] = stripSounds(out.q);
  const std::string a = afmt ? *afmt : jsonText(tmpl, "afmt");
  out.a = Latex::mungeQAForHtml(
      Template(forClozeNumber(a, "ca", ord + 1), std::move(context)).render(), *model);
  return out;
}

std::vector<Id> Col::findCards(const std::string& query, const std::optional<std::string>& order) {
  return Finder(*this).findCards(query, order);
}

std::vector<Id> Col::findNotes(const std::string& query) {
  return Finder(*this).findNotes(query);
}

std::vector<RenderedQA> Col::renderQAWithIds(const std::vector<Id>& ids, const std::string& type) {
  std::string where;
  if (type == "card") {
    where = "and c.id in " + ids2str(ids);
  } else if (type == "note") {
    where = "and f.id in " + ids2str(ids);
  } else if (type == "model") {
    // The query has no alias m, so this fails and renders nothing; kept for the callers'
    // sake, of which there are none.
    where = "and m.id in " + ids2str(ids);
  } else if (type != "all") {
    sysLog("Cannot render QA: invalid type " + type);
  }
  std::vector<RenderedQA> out;
  for (const Row& row : _qaDataWhere(where)) out.push_back(_renderQA(row));
  return out;
}

std::vector<Row> Col::_qaDataWhere(const std::string& where) {
  return _db->all(
      "select c.id, f.id, f.mid, c.did, c.ord, f.tags, f.flds from cards c, notes f where "
      "c.nid == f.id " +
      where);
}

}  // namespace rivo
