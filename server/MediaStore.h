#pragma once
// One account's media on the server: the files in DIR/users/NAME/media/ and, in media.db
// beside them, the latest change of each name with the usn it was made under (a deletion keeps
// its row with no checksum) and the account's media usn. Every change takes the next usn, so
// a client asks for what happened after the usn it last saw.
//
// Not thread-safe: the server opens one at a time per account, under that account's lock.
// Names from clients must be plain file names; anything else refuses the whole request.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "librivo/Json.h"

namespace rivo {

class DB;

class MediaStore {
 public:
  // Rows of mediaChanges per reply.
  static constexpr int kChangesPerReply = 250;
  // A download zip stops after the file that brings it to this size, or at 25 files.
  static constexpr int64_t kDownloadBytes = 0x280000;
  static constexpr size_t kDownloadFiles = 25;

  // `folder` is the account's; the media folder and database are made when missing.
  explicit MediaStore(const std::string& folder);
  ~MediaStore();
  MediaStore(const MediaStore&) = delete;
  MediaStore& operator=(const MediaStore&) = delete;

  // The media usn of an account, 0 when it has no media yet; opens nothing when absent.
  static int64_t usnOf(const std::string& folder);

  int64_t usn();
  // Files the store holds.
  int64_t count();
  // [name, usn, checksum] after `lastUsn`, oldest first; "" as the checksum of a deletion.
  Json changesAfter(int64_t lastUsn);
  // Writes a zip of a prefix of `names` (stored entries "0", "1", ... and a "_meta" object of
  // entry to name) to `zipPath`. Refuses (false, `problem`) a name that isn't plain, and a
  // first name the store doesn't hold; stops before any later one it doesn't hold.
  bool zipFiles(const Json& names, const std::string& zipPath, std::string* problem);
  // Applies an upload batch: every entry checked first, then the files put in place and the
  // rows committed. The number of changes taken and the usn afterwards.
  std::optional<std::pair<int64_t, int64_t>> applyUpload(const std::string& zipPath,
                                                         std::string* problem);

 private:
  std::string _dir;
  std::unique_ptr<DB> _db;
};

}  // namespace rivo
