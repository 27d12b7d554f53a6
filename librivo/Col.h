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
  void beforeUpload();

  std::unique_ptr<Card> getCard(Id id);
  std::unique_ptr<Note> getNote(Id id);
  // A new, unsaved note of the current note type; null (and a log line) when there is none.
  std::unique_ptr<Note> newNote();
  int64_t nextID(const std::string& type, bool inc = true);
  void reset();
  int64_t noteCount();
  int64_t cardCount();
  bool isEmpty();

  void remNotes(const std::vector<Id>& ids);
  void remCards(const std::vector<Id>& ids);
  void _remNotes(const std::vector<Id>& ids);
  void _logRem(const std::vector<Id>& ids, int type);

  // Undo.
  void clearUndo();
  bool canUndo() const;
  std::string undoName() const;
  void markReview(const Card& card);
  // Returns the id of the card whose review was undone, or nothing for an operation undo.
  std::optional<Id> undoSavingCurrentCard(const Card* current);
  void _markOp(const std::string& name);

  // The debug log: one "[seconds]: text" line per call.
  // Takes a brace list: log({"flush", card.description()}).
  void log(const std::vector<std::string>& items);

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
  ProgressSink _progressSink;
  NotificationSink _notificationSink;
  bool _ok = false;
};

}  // namespace rivo
