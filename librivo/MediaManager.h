#pragma once
// The collection's media folder and the small database that records changes for media sync:
// adding files under safe names, the references in field text, the folder scan, the zip
// batches that media sync sends and receives, and the media check.

#include <array>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "librivo/Error.h"
#include "librivo/Value.h"

namespace rivo {

class Col;
class DB;

class MediaManager {
 public:
  // The sound reference and the image reference, in that order. Group 1 is the whole
  // reference, group 2 the file name.
  static const std::array<std::string, 2>& regexps();

  // Client side: makes the folder if missing and connects. Server side: opens nothing.
  MediaManager(Col& col, bool server);
  ~MediaManager();
  MediaManager(const MediaManager&) = delete;
  MediaManager& operator=(const MediaManager&) = delete;

  // Opens the media database, creating it when absent and rebuilding it when it can't be
  // read: a fresh database has every file to scan and the sync starting from nothing.
  void connect();
  void close();

  const std::string& dir() const { return _dir; }
  DB* db() const { return _db.get(); }

  // --- Files ---

  // Brings the file at `path` into the folder and returns the name to refer to it by. The
  // name is the source's, without illegal characters, in NFC. A different file already
  // under that name leaves the folder unchanged and gives the next free name (" (1)"
  // appended), under which nothing has been written. Failures are only logged; a source
  // name with nothing usable left gives "".
  std::string addFile(const std::string& path);
  // Whether both files can be read and hold the same bytes.
  bool filesIdentical(const std::string& path1, const std::string& path2);
  // Whether a file of that name is in the folder. Names that would leave it are never there.
  bool have(const std::string& fname);

  // Incoming files, in two steps so that many can be checked before any is in place: stage()
  // writes what `fill` writes to its descriptor into a hidden file in the folder (one the scan
  // and the check pass over) and returns its path, or "" with `problem` set; place() puts it
  // under `fname` (a taken name is overwritten only with `replace`), and removes the staged
  // file either way. A staged file that won't be placed is given to discard().
  using Fill = std::function<bool(int fd, std::string* problem)>;
  std::string stage(const Fill& fill, std::string* problem);
  bool place(const std::string& staged, const std::string& fname, bool replace,
             std::string* problem);
  static void discard(const std::string& staged);
  // The path of the file stored under `fname`: the name itself, or the file whose name is
  // its composed form (names from other systems may be decomposed on disk). Empty when
  // there is none or the name would leave the folder.
  std::string pathOf(const std::string& fname);

  // --- Names ---

  static std::string stripIllegal(const std::string& name);
  static bool hasIllegal(const std::string& name);
  // A plain file name, as names from elsewhere (sync batches, packages) must be: not empty,
  // not "." or "..", and without "/", "\", NUL or other control characters.
  static bool isPlainName(std::string_view name);
  // Unicode NFC; invalid UTF-8 comes back with replacement characters.
  static std::string nfc(const std::string& text);

  // --- References in field text ---

  // Names referred to by sounds and images, sounds first, as written (no de-duplication,
  // percent escapes kept); URLs are left out. The note type id is not used.
  std::vector<std::string> filesInStr(Id mid, const std::string& text, bool remote = false);
  // Every reference removed, sounds first.
  std::string strip(const std::string& text);
  // Image file names percent-escaped (UTF-8), so that a web view finds them; URLs stay.
  std::string escapeImages(const std::string& text);
  // Each match of each expression in turn replaced by what `fn` makes of its groups (0 the
  // whole match, 1 the reference, 2 the name).
  using NameTransform = std::function<std::string(const std::vector<std::string>& groups)>;
  std::string transformNames(const std::string& text, const NameTransform& fn);

  // --- Change log for media sync ---

  // Scans the folder when its modification time moved since the last scan.
  void findChanges();
  bool haveDirty();
  int64_t dirtyCount();
  int64_t mediaCount();
  int64_t lastUsn();
  // Commits.
  void setLastUsn(int64_t usn);
  // The stored checksum ("" for unknown or deleted) and dirty flag of a name.
  std::pair<std::string, int64_t> syncInfo(const std::string& fname);
  // No commit: the sync owns the transaction.
  void markClean(const std::vector<std::string>& fnames);
  void syncDelete(const std::string& fname);
  // Forgets every row, the usn and the folder time: the next scan finds every file new.
  void forceResync();

  // One upload batch: at most 25 rows, and stops after the file that brings the size to
  // 2.5 MiB. `zip` holds stored entries "0", "1", ... and a "_meta" list of [name, entry]
  // pairs ("" for a deletion); `names` are the rows covered, in order.
  struct Batch {
    std::string zip;
    std::vector<std::string> names;
  };
  std::optional<Batch> mediaChangesZip(Error* error = nullptr);
  // Writes the files of a server batch and records them clean, without committing; returns
  // how many entries it took. A batch that isn't a sound zip, or holds an entry its "_meta"
  // map doesn't name, is refused whole before anything is written: 0 and an error. An entry
  // whose name isn't plain is counted but not written, so a sync moves past it.
  int addFilesFromZip(std::string_view data, Error* error = nullptr);

  // Texts such as "Scanned 1 media file(s)..." for the sync status line.
  using StatusSink = std::function<void(const std::string& text)>;
  void setStatusSink(StatusSink sink) { _statusSink = std::move(sink); }

  // --- Media check ---

  struct CheckResult {
    std::vector<std::string> missing;  // referenced by notes, not in the folder
    std::vector<std::string> unused;   // in the folder (names as on disk), not referenced
    bool haveLatex = false;
    // The text the user is shown.
    std::string report() const;
  };
  // Called with progress texts; returning false cancels the check.
  using CheckProgress = std::function<bool(const std::string& text)>;
  // Also rewrites notes whose text isn't NFC, and saves them. Nothing when cancelled.
  std::optional<CheckResult> check(const CheckProgress& progress);
  // Removes the named files of the folder `dir` straight from the disk (the next scan tells
  // the media database), with "Deleted %d files..." at every 20th; a failed removal is
  // skipped. Returns how many were removed before the progress asked to stop.
  static int removeUnused(const std::string& dir, const std::vector<std::string>& names,
                          const CheckProgress& progress);

  // --- Internals of the scan ---

  struct Change {
    std::string fname;
    std::string csum;
    int64_t mtime = 0;
  };
  // The folder's modification time when a scan is due, nothing when it isn't.
  std::optional<int64_t> _changed();
  // Added or changed files, and the names of removed ones.
  std::pair<std::vector<Change>, std::vector<std::string>> _changes();
  void _logChanges();
  // Whole seconds, truncated; 0 (logged) when the path can't be read.
  int64_t _mtime(const std::string& path);

 private:
  struct CacheEntry {
    std::string csum;
    int64_t mtime = 0;
    bool seen = false;
  };

  void _initDB();
  bool _dbUsable();
  DB& _mdb();
  void _notify(const std::string& text);
  // Writes `bytes` to `target` by way of a temporary file in the folder, so a failure never
  // leaves a half-written file. With `replace` false an existing target is left alone.
  bool _writeFile(const std::string& target, std::string_view bytes, bool replace,
                  std::string* problem);
  bool _copyFile(const std::string& source, const std::string& target, std::string* problem);
  std::string _tempPath(int* fd);

  Col& _col;
  bool _server;
  std::string _dir;
  std::unique_ptr<DB> _db;
  std::unordered_map<std::string, CacheEntry> _cache;
  StatusSink _statusSink;
  // Decomposed (or otherwise non-NFC) names on disk by their NFC form, valid while the
  // folder's modification time stays `_variantsStamp`.
  std::unordered_map<std::string, std::string> _variants;
  std::optional<timespec> _variantsStamp;
};

}  // namespace rivo
