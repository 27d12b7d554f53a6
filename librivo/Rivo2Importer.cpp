#include "librivo/Rivo2Importer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/FieldText.h"
#include "librivo/Files.h"
#include "librivo/MediaManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Scheduler.h"
#include "librivo/Storage.h"
#include "librivo/StoredCodes.h"
#include "librivo/TagManager.h"

namespace rivo {

namespace {

// An import of at least this many notes, and at least a tenth of what the collection then
// holds, also refreshes the planner's statistics (see _postImport).
constexpr int64_t kAnalyzeAfterNotes = 1000;

// Columns of a notes row.
enum NoteColumn {
  kNoteId = 0,
  kNoteGuid = 1,
  kNoteMid = 2,
  kNoteMod = 3,
  kNoteUsn = 4,
  kNoteFlds = 6,
  kNoteColumns = 11
};
// Columns of a cards row.
enum CardColumn {
  kCardId = 0,
  kCardNid = 1,
  kCardDid = 2,
  kCardOrd = 3,
  kCardMod = 4,
  kCardUsn = 5,
  kCardType = 6,
  kCardQueue = 7,
  kCardDue = 8,
  kCardOdue = 14,
  kCardOdid = 15,
  kCardColumns = 18
};
// Columns of a revlog row.
enum RevlogColumn { kRevlogCid = 1, kRevlogUsn = 2, kRevlogColumns = 9 };

// A clashing id moves up by this much until it is free.
constexpr Id kIdStep = 999;
constexpr size_t kBatchRows = 1000;

const char* const kInsertNote = "insert or replace into notes values (?,?,?,?,?,?,?,?,?,?,?)";
const char* const kInsertCard =
    "insert or ignore into cards values (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
const char* const kInsertRevlog = "insert or ignore into revlog values (?,?,?,?,?,?,?,?,?)";

Row rowOf(sqlite3_stmt* stmt, int first, int count) {
  Row row;
  row.reserve(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) row.push_back(columnValue(stmt, first + i));
  return row;
}

Id freeId(Id id, std::unordered_set<Id>& taken) {
  while (taken.count(id)) id += kIdStep;
  taken.insert(id);
  return id;
}

std::string textOf(const Json& obj, const char* key) {
  if (!obj.is_object()) return {};
  auto it = obj.find(key);
  if (it == obj.end()) return {};
  if (it->is_string()) return it->get<std::string>();
  return it->is_number() ? it->dump() : std::string();
}

// "stem_mid.ext", or "name_mid" for a name without an extension.
std::string alternativeName(const std::string& fname, Id mid) {
  const size_t dot = fname.rfind('.');
  if (dot == std::string::npos || dot == 0) return fname + "_" + std::to_string(mid);
  return fname.substr(0, dot) + "_" + std::to_string(mid) + fname.substr(dot);
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

// A card in a filtered deck comes home, as emptying that deck would bring it: the filtered
// deck and its position numbers mean nothing in the target. Suspended and buried cards stay so.
void returnHome(Row& card) {
  const int64_t type = toInt(card[kCardType]);
  const int64_t home = type == kTypeLearning ? kTypeNew : type;
  card[kCardDid] = card[kCardOdid];
  card[kCardType] = home;
  if (toInt(card[kCardQueue]) >= kQueueNew) card[kCardQueue] = home;
  card[kCardDue] = card[kCardOdue];
  card[kCardOdue] = int64_t{0};
  card[kCardOdid] = int64_t{0};
}

bool copyInto(int from, int to) {
  char buffer[1 << 16];
  for (;;) {
    const ssize_t n = read(from, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n == 0;
    if (!writeAll(to, std::string_view(buffer, static_cast<size_t>(n)))) return false;
  }
}

}  // namespace

Rivo2Importer::Rivo2Importer(Col& col, std::string file) : Importer(col, std::move(file)) {}

Rivo2Importer::~Rivo2Importer() {
  _closeSource();
}

// --- Source ---

void Rivo2Importer::_prepareFiles() {
  _dst = &_col;
  if (_src) return;
  std::error_code ec;
  if (!std::filesystem::is_regular_file(_file, ec))
    throw ImportError("There is no collection to import at " + _file + ".");
  // The open collection holds its file locked: opening it again would wait for ever.
  if (std::filesystem::equivalent(_file, _col.path(), ec))
    throw ImportError("The collection can't be imported into itself.");
  std::unique_ptr<Col> src;
  try {
    src = Storage::open(_file, true, true, true);
  } catch (const std::exception&) {
    src.reset();
  }
  if (!src)
    throw ImportError("The collection to import can't be opened: it is not a Rivo collection.");
  _src = std::move(src);
  DB& db = *_src->db();
  auto check = db.scalar("pragma quick_check");
  std::string problem;
  if (!check || toText(*check) != "ok")
    problem = "The collection to import is damaged" +
              (check ? " (" + toText(*check) + ")." : std::string("."));
  const std::pair<const char*, int64_t> tables[] = {
      {"notes", kNoteColumns}, {"cards", kCardColumns}, {"revlog", kRevlogColumns}};
  for (const auto& [table, columns] : tables) {
    if (!problem.empty()) break;
    if (db.scalarInt("select count() from pragma_table_info(?)", {std::string(table)}) != columns)
      problem = std::string("The collection to import has no ") + table +
                " table of the shape Rivo reads.";
  }
  // Text that isn't UTF-8 could be neither shown nor saved in the collection's tag list.
  if (problem.empty() && !Storage::notesAreUtf8(db))
    problem = "The collection to import is damaged: a note holds text that isn't valid UTF-8.";
  if (!problem.empty()) {
    _closeSource();
    throw ImportError(problem);
  }
}

void Rivo2Importer::_closeSource() {
  if (!_src) return;
  // Nothing is ever written to the source.
  try {
    _src->closeAndSave(false);
  } catch (const std::exception&) {
  }
  _src.reset();
}

void Rivo2Importer::runWithMedia(const std::string& mediaDir) {
  _prepareFiles();
  _srcMediaDir = mediaDir;
  // The state a failure goes back to.
  _col.save();
  try {
    _import();
  } catch (...) {
    try {
      _col.rollback();
    } catch (const std::exception&) {
      // The database refuses even that; it goes back at its next open.
    }
    _removeWritten();
    _closeSource();
    throw;
  }
  _closeSource();
}

void Rivo2Importer::_import() {
  _decks.clear();
  _prepareTS();
  _modelMap.clear();
  _importNotes();
  _importCards();
  _postImport();
}

void Rivo2Importer::_insert(const std::string& sql, std::vector<Row>& rows) {
  if (rows.empty()) return;
  for (bool ok : _dst->db()->executeMany(sql, rows))
    if (!ok)
      throw ImportError("The collection to import holds rows that can't be stored (" +
                        sql.substr(0, sql.find(" values")) + ").");
  rows.clear();
}

// --- Note types and decks ---

Id Rivo2Importer::_mid(Id srcMid) {
  if (auto it = _modelMap.find(srcMid); it != _modelMap.end()) return it->second;
  const Json* srcModel = _src->models().get(srcMid);
  if (!srcModel || !srcModel->is_object()) return _modelMap[srcMid] = 0;
  const std::string hash = ModelManager::scmhash(*srcModel);
  Id mid = srcMid;
  for (;; ++mid) {
    const Json* existing = _dst->models().get(mid);
    if (!existing) {
      Json model = *srcModel;
      model["id"] = std::to_string(mid);
      model["mod"] = intTime();
      model["usn"] = _dst->usn();
      _dst->models().update(std::move(model));
      break;
    }
    // The same structure under this id: the target's type is used as it is.
    if (ModelManager::scmhash(*existing) == hash) break;
  }
  return _modelMap[srcMid] = mid;
}

Id Rivo2Importer::_did(Id srcDid) {
  if (auto it = _decks.find(srcDid); it != _decks.end()) return it->second;
  const Json* srcDeck = _src->decks().getDeck(Json(srcDid));
  const Json source = srcDeck ? *srcDeck : Json::object();
  DeckManager& dm = _dst->decks();
  std::string name = textOf(source, "name");
  Id did = dm.getID(name.empty() ? "Default" : name);
  // Cards of a normal deck never land in a filtered one of the same name: they'd have no home.
  while (did && dm.isDyn(Json(did))) {
    name += " (imported)";
    did = dm.getID(name);
  }
  if (!did) did = 1;
  const std::string confId = textOf(source, "conf");
  if (!confId.empty() && confId != "1") {
    if (const Json* conf = _src->decks().getConf(Json(confId))) {
      dm.updateConf(*conf);
      dm.setConf(*dm.getDeck(Json(did)), jsonInt(Json(confId)));
    }
  }
  Json* deck = dm.getDeck(Json(did));
  (*deck)["desc"] = textOf(source, "desc");
  dm.save(deck);
  return _decks[srcDid] = did;
}

// --- Notes ---

void Rivo2Importer::_importNotes() {
  std::unordered_set<Id> existing;
  _dst->db()->execute("select id, guid, mod, mid from notes", {}, [&](sqlite3_stmt* stmt) {
    const Id id = toInt(columnValue(stmt, 0));
    existing.insert(id);
    _notes[toText(columnValue(stmt, 1))] = {id, toInt(columnValue(stmt, 2)),
                                            toInt(columnValue(stmt, 3))};
  });
  const int64_t usn = _dst->usn();
  std::vector<Row> rows;
  std::vector<Id> dirty;
  _src->db()->execute("select * from notes", {}, [&](sqlite3_stmt* stmt) {
    Row row = rowOf(stmt, 0, kNoteColumns);
    // A note whose type the source lacks has nothing to be shown by.
    const Id mid = _mid(toInt(row[kNoteMid]));
    if (!mid) return;
    row[kNoteMid] = mid;
    const std::string guid = toText(row[kNoteGuid]);
    const int64_t mod = toInt(row[kNoteMod]);
    auto known = _notes.find(guid);
    if (known == _notes.end()) {
      row[kNoteId] = freeId(toInt(row[kNoteId]), existing);
    } else {
      // Another type under the same guid is left alone; so is a target note as new or newer.
      if (known->second.mid != mid || known->second.mod >= mod) return;
      row[kNoteId] = known->second.id;
    }
    row[kNoteUsn] = usn;
    row[kNoteFlds] = _mungeMedia(toText(row[kNoteFlds]), mid);
    const Id id = toInt(row[kNoteId]);
    _notes[guid] = {id, mod, mid};
    dirty.push_back(id);
    rows.push_back(std::move(row));
    if (rows.size() == kBatchRows) _insert(kInsertNote, rows);
  });
  _insert(kInsertNote, rows);
  _notesImported = static_cast<int64_t>(dirty.size());
  if (dirty.empty()) return;
  _dst->updateFieldCache(dirty);
  _dst->tags().registerNotes(dirty);
}

// --- Cards and their history ---

void Rivo2Importer::_importCards() {
  std::unordered_set<Id> existing;
  _dst->db()->execute("select f.guid, c.ord, c.id from cards c left join notes f on c.nid = f.id",
                      {}, [&](sqlite3_stmt* stmt) {
                        existing.insert(toInt(columnValue(stmt, 2)));
                        const Value guid = columnValue(stmt, 0);
                        if (!isNull(guid))
                          _cards.insert(toText(guid) + ":" + toText(columnValue(stmt, 1)));
                      });
  const int64_t usn = _dst->usn();
  const int64_t shift = _dst->sched().today() - _src->sched().today();
  const int64_t now = intTime();
  std::unordered_map<Id, Id> newIds;
  std::vector<Row> rows;
  _src->db()->execute("select f.guid, f.mid, c.* from cards c, notes f where c.nid = f.id", {},
                      [&](sqlite3_stmt* stmt) {
                        const std::string guid = toText(columnValue(stmt, 0));
                        auto note = _notes.find(guid);
                        if (note == _notes.end()) return;
                        Row card = rowOf(stmt, 2, kCardColumns);
                        // A card of this note and template is there already.
                        if (!_cards.insert(guid + ":" + toText(card[kCardOrd])).second) return;
                        const Id old = toInt(card[kCardId]);
                        card[kCardId] = freeId(old, existing);
                        card[kCardNid] = note->second.id;
                        if (toInt(card[kCardOdid])) returnHome(card);
                        card[kCardDid] = _did(toInt(card[kCardDid]));
                        card[kCardMod] = now;
                        card[kCardUsn] = usn;
                        // Review days keep their distance from today.
                        const int64_t queue = toInt(card[kCardQueue]);
                        if (queue == kQueueReview || queue == kQueueDayLearning)
                          card[kCardDue] = toInt(card[kCardDue]) + shift;
                        newIds[old] = toInt(card[kCardId]);
                        rows.push_back(std::move(card));
                        if (rows.size() == kBatchRows) _insert(kInsertCard, rows);
                      });
  _insert(kInsertCard, rows);
  if (!newIds.empty()) {
    _src->db()->execute("select * from revlog", {}, [&](sqlite3_stmt* stmt) {
      Row entry = rowOf(stmt, 0, kRevlogColumns);
      auto card = newIds.find(toInt(entry[kRevlogCid]));
      if (card == newIds.end()) return;
      entry[kRevlogCid] = card->second;
      entry[kRevlogUsn] = usn;
      rows.push_back(std::move(entry));
      if (rows.size() == kBatchRows) _insert(kInsertRevlog, rows);
    });
    _insert(kInsertRevlog, rows);
  }
  _total = static_cast<int64_t>(newIds.size());
  _log.push_back(std::to_string(_total) + " cards imported.");
}

// --- Media ---

std::string Rivo2Importer::_mungeMedia(const std::string& flds, Id mid) {
  if (flds.find('[') == std::string::npos && flds.find('<') == std::string::npos) return flds;
  std::vector<std::string> fields = splitFields(flds);
  for (std::string& field : fields)
    field = _dst->media().transformNames(field, [&](const std::vector<std::string>& groups) {
      const std::string& name = groups[2];
      const std::string to = _mediaName(name, mid);
      return to == name ? groups[0] : replaceAll(groups[0], name, to);
    });
  return joinFields(fields);
}

std::string Rivo2Importer::_mediaName(const std::string& fname, Id mid) {
  const std::string key = std::to_string(mid) + "/" + fname;
  if (auto it = _mediaNames.find(key); it != _mediaNames.end()) return it->second;
  std::string result = fname;
  const std::string staged = _srcMediaData(fname);
  if (!staged.empty()) {
    const std::string local = _dstMediaData(fname);
    const std::string alt = alternativeName(MediaManager::nfc(fname), mid);
    if (!_dstMediaData(alt).empty()) {
      // Brought in under this name before: the bytes aren't compared again.
      MediaManager::discard(staged);
      result = alt;
    } else if (local.empty()) {
      _writeDstMedia(MediaManager::nfc(fname), staged);
    } else if (!_dst->media().filesIdentical(staged, local)) {
      _writeDstMedia(alt, staged);
      result = alt;
    } else {
      MediaManager::discard(staged);
    }
  }
  _mediaNames[key] = result;
  return result;
}

std::string Rivo2Importer::_srcMediaData(const std::string& fname) {
  if (_srcMediaDir.empty() || !MediaManager::isPlainName(fname)) return {};
  const std::string path = _srcMediaDir + "/" + fname;
  const int in = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (in < 0) return {};
  std::string problem;
  const std::string staged = _dst->media().stage(
      [&](int fd, std::string* why) {
        if (copyInto(in, fd)) return true;
        *why = "can't copy " + path + ": " + std::strerror(errno);
        return false;
      },
      &problem);
  close(in);
  if (staged.empty()) throw ImportError("A media file couldn't be brought in: " + problem);
  return staged;
}

std::string Rivo2Importer::_dstMediaData(const std::string& fname) {
  return _dst->media().pathOf(fname);
}

void Rivo2Importer::_writeDstMedia(const std::string& fname, const std::string& staged) {
  std::string problem;
  if (!_dst->media().place(staged, fname, false, &problem))
    throw ImportError("A media file couldn't be stored: " + problem);
  _written.push_back(fname);
}

void Rivo2Importer::_removeWritten() {
  const std::string dir = _col.media().dir();
  for (const std::string& fname : _written) unlink((dir + "/" + fname).c_str());
  _written.clear();
}

// --- After ---

void Rivo2Importer::_postImport() {
  for (const auto& [srcDid, did] : _decks) _dst->sched().maybeRandomizeDeck(did);
  // Positions for new cards added later follow those imported. A run that brought nothing
  // leaves the setting alone, so that importing a file again changes nothing at all.
  if (_notesImported || _total) {
    auto next = _dst->db()->scalar("select max(due)+1 from cards where type = 0");
    if (next && !isNull(*next))
      _dst->conf()["nextPos"] = toInt(*next);
    else
      _dst->conf()["nextPos"] = "0";
  }
  // A collection without "newBury" unburies at every open and close with "update cards set
  // queue=type where queue=-2", kept exactly as it is. Without statistics that reads every card;
  // with them the planner skips through ix_cards_sched by deck. The check and a full sync
  // analyze; so does an import that has just rewritten much of the file, where the analysis
  // costs a small part of what the import did.
  if (_notesImported >= kAnalyzeAfterNotes &&
      _notesImported * 10 >= _dst->db()->scalarInt("select count() from notes"))
    _dst->db()->run("analyze");
  _dst->save();
}

}  // namespace rivo
