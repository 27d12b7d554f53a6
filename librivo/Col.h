#pragma once
// One open collection file: its col row, managers, scheduler, undo state and debug log.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "librivo/Files.h"
#include "librivo/Json.h"
#include "librivo/Value.h"

namespace rivo {

class DB;
class Card;
class Note;
class ModelManager;
class DeckManager;
class TagManager;
class MediaManager;
class Scheduler;

// One card rendered: the question and the answer as HTML.
struct RenderedQA {
  Id id = 0;
  std::string q;
  std::string a;
};

class Col {
 public:
  using ProgressBlock = std::function<std::string()>;
  using ProgressSink = std::function<void(const std::string& desc)>;

  // Takes ownership of the DB. Check ok() afterwards: false when the col row can't be read.
  Col(std::unique_ptr<DB> db, bool server, std::string logFolder = {});
  ~Col();
  Col(const Col&) = delete;
  Col& operator=(const Col&) = delete;

  bool ok() const { return _ok; }
  static Json getDefaultConf();

  bool reinit();
  bool load();
  void setMod();
  void flushAndSetMod(int64_t modMs = 0);
  void save() { saveName({}, 0); }
  void saveName(const std::string& name, int64_t modMs);
  void autosave();
  void lock();
  void close() { closeAndSave(true); }
  void closeAndSave(bool save);
  void reopen();
  void rollback();
  void modSchema();
  bool schemaChanged() const { return _scm > _ls; }
  int usn() const { return _server ? _usn : -1; }
  // The change stamp every local change writes: `mod` now in seconds, and usn().
  struct Stamp {
    int64_t mod;
    int64_t usn;
  };
  Stamp stamp() const;
  // Writes the stamp into the "mod" and "usn" keys of a deck, group or note type.
  void stamp(Json& obj) const;
  void beforeUpload();

  // Read-only test of the relations between cards, notes and note types (before a sync).
  bool basicCheck();
  // Repairs what it can, vacuums and analyzes; one line per kind of damage, or empty.
  std::string fixIntegrity();

  std::unique_ptr<Card> getCard(Id id);
  std::unique_ptr<Note> getNote(Id id);
  // A new, unsaved note of the current note type; null (and a log line) when there is none.
  std::unique_ptr<Note> newNote();
  int64_t nextID(const std::string& type, bool inc = true);
  void _setNextID(const std::string& type, int64_t value);
  void reset();
  int64_t noteCount();
  int64_t cardCount();
  bool isEmpty();

  void remNotes(const std::vector<Id>& ids);
  void remCards(const std::vector<Id>& ids);
  void _remNotes(const std::vector<Id>& ids);
  void _logRem(const std::vector<Id>& ids, int type);

  // Card generation.
  // Saves the note with one card per applicable template, all at one due position; returns
  // the number of cards, 0 (and nothing saved) when no template applies.
  int addNote(Note& note);
  // The templates the note's current fields call for.
  std::vector<Json> findTemplates(const Note& note);
  std::vector<Json> _tmplsFromOrds(const std::vector<int>& ords, const Json& model);
  // Inserts the cards these notes call for and don't have, in one batch. Returns the ids of
  // cards whose template no longer applies, for remEmptyCards, which keeps them.
  std::vector<Id> genCards(const std::vector<Id>& nids);
  void remEmptyCards(const std::vector<Id>& ids);
  // Inserts new cards: seven values each (id, nid, did, ord, mod, usn, due).
  void _insertCards(const std::vector<int64_t>& values);
  // Unsaved cards: those the fields call for, the note's own cards, or one per template.
  enum PreviewType { kPreviewApplicable = 0, kPreviewExisting = 1, kPreviewAll = 2 };
  std::vector<Card> previewCards(Note& note, int type = kPreviewApplicable);
  Card _newCard(Note& note, const Json& tmpl, int64_t due, bool flush = true);
  // The new card's row alone: _newCard without the copy of the note or the write. `ord` is
  // the card's, which for a cloze type isn't the template's.
  Card _newCardRow(const Note& note, int ord, const Json& tmpl, int64_t due);
  int64_t _dueForDid(Id did, int64_t due);
  // Recomputes the notes' sort field and checksum from their fields.
  void updateFieldCache(const std::vector<Id>& nids);
  std::vector<Row> _fieldData(const std::vector<Id>& nids);

  // Rendering. A render row is: card id, note id, model id, deck id, ord, tags, field string.
  // A template string that is passed replaces the template's "qfmt" or "afmt", even when empty.
  RenderedQA _renderQA(const Row& row, const std::optional<std::string>& qfmt = std::nullopt,
                       const std::optional<std::string>& afmt = std::nullopt);
  // `type` picks what the ids are: "card", "note" or "all" (ids unused). "model" can't run
  // and renders nothing; any other type renders everything.
  // Searching: each call runs a new Finder.
  std::vector<Id> findCards(const std::string& query,
                            const std::optional<std::string>& order = std::nullopt);
  std::vector<Id> findNotes(const std::string& query);

  std::vector<RenderedQA> renderQAWithIds(const std::vector<Id>& ids,
                                          const std::string& type = "card");
  std::vector<RenderedQA> renderQAWithType(const std::string& type) {
    return renderQAWithIds({}, type);
  }
  // Render rows of the cards joined with their notes; `where` is empty or starts with "and".
  std::vector<Row> _qaDataWhere(const std::string& where);
  std::vector<Row> _qaData() { return _qaDataWhere({}); }

  // Undo.
  void clearUndo();
  bool canUndo() const;
  std::string undoName() const;
  void markReview(const Card& card);
  // Returns the id of the card whose review was undone, or nothing for an operation undo.
  std::optional<Id> undoSavingCurrentCard(const Card* current);
  void _markOp(const std::string& name);

  // The debug log: one "[seconds]: text" line per call, when there is a log (logging()).
  // Takes a brace list: log({"flush", card.description()}).
  void log(const std::vector<std::string>& items);
  bool logging() const { return !_logFolder.empty(); }

  // Throttled to four a second; the sink (set by the application) shows the text.
  void updateProgressWithBlock(const ProgressBlock& block);
  void setProgressSink(ProgressSink sink) { _progressSink = std::move(sink); }
  // Where the collection announces events such as "leech" (set by the application).
  using NotificationSink = std::function<void(const std::string& name)>;
  void setNotificationSink(NotificationSink sink) { _notificationSink = std::move(sink); }
  void postNotification(const std::string& name) {
    if (_notificationSink) _notificationSink(name);
  }

  // Accessors.
  DB* db() const { return _db.get(); }
  const std::string& path() const { return _path; }
  const std::string& name() const { return _path; }
  bool server() const { return _server; }
  void setServer(bool server) { _server = server; }
  Json& conf() { return _conf; }
  void setConf(const Json& conf);
  int64_t crt() const { return _crt; }
  void setCrt(int64_t crt) { _crt = crt; }
  int64_t mod() const { return _mod; }
  int64_t scm() const { return _scm; }
  int64_t ls() const { return _ls; }
  void setLs(int64_t ls) { _ls = ls; }
  int64_t dty() const { return _dty; }
  int _usnValue() const { return _usn; }
  void setUsn(int usn) { _usn = usn; }
  int64_t lastSave() const { return _lastSave; }
  const std::string& logFolder() const { return _logFolder; }
  // Where imports, exports and media batches make their temporary files (kDefaultTmpDir until
  // the owner sets another, before the collection is used).
  const std::string& tmpDir() const { return _tmpDir; }
  void setTmpDir(std::string dir) { _tmpDir = std::move(dir); }

  ModelManager& models() { return *_models; }
  DeckManager& decks() { return *_decks; }
  TagManager& tags() { return *_tags; }
  MediaManager& media() { return *_media; }
  Scheduler& sched() { return *_sched; }

  // Undo state as stored: kind 1 review (with card copies) or 2 operation; 0 when none.
  struct UndoState {
    int kind = 0;
    std::string name;
    std::vector<std::unique_ptr<Card>> cards;
  };
  const UndoState& undoState() const { return _undo; }

 private:
  void _unburyWithoutChange();
  // lock() after a save that is done: a failure is left to the next write.
  void _relock();
  std::optional<Id> _undoReviewSavingCurrentCard(const Card* current);
  void _undoOp();
  void _writeLogLine(const std::string& line);

  Json _conf = Json::object();
  double _lastUpdate = 0;
  std::mutex _progressMutex;
  std::mutex _logMutex;
  std::FILE* _logHnd = nullptr;
  std::unique_ptr<DB> _db;
  int _usn = 0;
  std::string _path;
  bool _server = false;
  int64_t _lastSave = 0;
  int64_t _crt = 0, _mod = 0, _scm = 0, _dty = 0, _ls = 0;
  std::string _confJSON, _modelsJSON, _decksJSON, _deckConfJSON, _tagsJSON;
  std::unique_ptr<TagManager> _tags;
  std::unique_ptr<ModelManager> _models;
  std::unique_ptr<MediaManager> _media;
  std::unique_ptr<DeckManager> _decks;
  std::unique_ptr<Scheduler> _sched;
  UndoState _undo;
  std::string _logFolder;
  std::string _tmpDir = kDefaultTmpDir;
  ProgressSink _progressSink;
  NotificationSink _notificationSink;
  bool _ok = false;
};

}  // namespace rivo
