#pragma once
// The numbered backups in the backup folder, which all profiles share. A backup of profile P is
// "backup-P-N.rpkg": a package holding the closed collection file, stored uncompressed, and an
// empty media list, so that it imports anywhere. Numbers rise by one with each backup of the
// profile; the highest is the newest.
//
// A file named like a backup of the profile counts as one only if it is a regular file that
// opens as a zip with a collection in it. Anything else so named (a folder, a file of the
// user's) is never removed or written over, and is reported in Result::foreign.
//
// Plain functions of a folder, no state of their own. backup() and restore() close and reopen
// the collection: the caller runs them where nothing else uses it (the work queue); listing
// only reads the folder.

#include <cstdint>
#include <string>
#include <vector>

#include "librivo/ZipWriter.h"

namespace rivo {

class Col;

class BackupFolder {
 public:
  // "rmBackups" and "rmBackupFreq" (minutes) when col.conf has none.
  static constexpr int64_t kDefaultLimit = 15;
  static constexpr int64_t kDefaultFrequency = 60;

  struct Entry {
    std::string name;
    std::string path;
    int64_t modified = 0;  // seconds
  };

  struct Result {
    enum class Outcome { disabled, notRequired, written, failed };
    Outcome outcome = Outcome::failed;
    std::string path;   // the backup written
    std::string error;  // why it failed, for the user
    // Files named like this profile's backups that aren't backups, left as they were.
    std::vector<std::string> foreign;
  };

  explicit BackupFolder(std::string dir) : _dir(std::move(dir)) {}
  const std::string& dir() const { return _dir; }

  // "backup-P-": every backup of the profile starts so.
  static std::string prefix(const std::string& profile);
  // The number in a name of the form prefix, digits, ".rpkg"; -1 for any other name.
  static int64_t numberOf(const std::string& name, const std::string& prefix);

  // Every regular file starting with "backup-" (those of all profiles), newest first. Empty,
  // with `error` set, when the folder can't be read.
  std::vector<Entry> list(std::string* error) const;

  // A backup of the collection as the profile's next number, unless `force` is off and either
  // the collection's "rmBackups" is 0 or its newest backup is younger than "rmBackupFreq". With
  // `prune` (and a limit, which a forced backup with "rmBackups" 0 lacks) the oldest backups go
  // until the limit is kept, the new one counted. `progress` gets the bytes copied.
  Result backup(Col& col, const std::string& profile, bool force, bool prune = true,
                const ZipWriter::Progress& progress = {}) const;

  // Writes one backup file at `path`: the collection is closed (which saves it), copied, and
  // reopened, also after a failure. False with `error` set to a sentence for the user.
  static bool write(Col& col, const std::string& path, std::string* error,
                    const ZipWriter::Progress& progress = {});

  // Replaces the collection with the one in the backup at `path`, after checking the backup
  // and making a backup of the collection as it is (forced, nothing pruned), whose path goes to
  // `safetyCopy`. False with `error` set, and the collection as it was, on any failure.
  bool restore(Col& col, const std::string& profile, const std::string& path,
               std::string* safetyCopy, std::string* error) const;

  // What the user is told of files left alone.
  std::string foreignMessage(const std::vector<std::string>& names) const;

 private:
  struct Numbered {
    int64_t number = 0;
    std::string path;
  };
  // The profile's genuine backups, lowest number first; the highest number of any file so named
  // goes to `highest`, and the others to `foreign`.
  std::vector<Numbered> _numbered(const std::string& profile, int64_t* highest,
                                  std::vector<std::string>* foreign) const;

  std::string _dir;
};

}  // namespace rivo
