#pragma once
// Merges one collection file (the source) into the open collection (the target). Note types
// are matched by id and the hash of their structure, decks by name, notes by guid (a source note
// changed later than the target's replaces its fields and tags, keeping the target's id), cards
// by note and template, and each card brings its review history. The media that imported notes
// refer to come into the target's folder, under another name when the target holds other bytes
// under theirs. Importing the same file again changes nothing.
//
// All or nothing: a failed run rolls the target back to the save it makes when it starts, and
// removes the media files it added. Nothing is committed before the end, so a process killed
// in the middle leaves the target's file at that save too.
//
// The source is opened as the sync server opens a collection, so that nothing beside the file
// (no media folder, no media database) is made or touched; it is closed unsaved.
//
// One run per object, on the thread that owns the target (the work queue).

#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "librivo/Importer.h"
#include "librivo/Value.h"

namespace rivo {

class Rivo2Importer : public Importer {
 public:
  Rivo2Importer(Col& col, std::string file);
  ~Rivo2Importer() override;

  // Merges and saves the target. Raises ImportError when the file isn't a collection that can
  // be merged, or when the target can't take what it holds; any other exception (SqlError) of
  // the target's database also comes out after the target was put back.
  void run() override { runWithMedia({}); }
  // The same, with the source's media files in `mediaDir`.
  void runWithMedia(const std::string& mediaDir);

  // Opens and checks the source, once: it must open as a collection, pass SQLite's quick check
  // and have the tables a merge reads, in their shape. Raises ImportError.
  void _prepareFiles();

 protected:
  // The source's file `fname` copied into the target's media folder under a staged name (see
  // MediaManager::stage), or "" when the source has none. The bytes travel as a file so that
  // no media file is ever held whole in memory.
  virtual std::string _srcMediaData(const std::string& fname);
  // The path of the target's file `fname`, or "".
  std::string _dstMediaData(const std::string& fname);
  // Places a staged file under `fname`, never over a file already there; a failed run removes
  // it again. Raises ImportError when it can't be stored.
  void _writeDstMedia(const std::string& fname, const std::string& staged);
  // Removes the media files this run added.
  void _removeWritten();
  void _closeSource();

  std::unique_ptr<Col> _src;
  // Media names this run added to the target's folder.
  std::vector<std::string> _written;

 private:
  struct NoteInfo {
    Id id = 0;
    int64_t mod = 0;
    Id mid = 0;
  };

  void _import();
  void _importNotes();
  void _importCards();
  void _postImport();
  // The target's id of a source note type, adding a copy when the target has none of the same
  // structure under that id or the next ones; 0 when the source lacks the type.
  Id _mid(Id srcMid);
  // The target's deck of the source deck's name, found or created.
  Id _did(Id srcDid);
  std::string _mungeMedia(const std::string& flds, Id mid);
  // What a reference to `fname` in a note of type `mid` becomes, bringing the file in.
  std::string _mediaName(const std::string& fname, Id mid);
  void _insert(const std::string& sql, std::vector<Row>& rows);

  std::string _srcMediaDir;
  int64_t _notesImported = 0;
  std::unordered_map<Id, Id> _decks;
  std::unordered_map<std::string, NoteInfo> _notes;
  std::unordered_map<Id, Id> _modelMap;
  // "guid:ord" of every card the target has.
  std::unordered_set<std::string> _cards;
  // The outcome of each media reference already met, by note type and name: a file is read
  // and compared once, however many notes use it.
  std::unordered_map<std::string, std::string> _mediaNames;
};

}  // namespace rivo
