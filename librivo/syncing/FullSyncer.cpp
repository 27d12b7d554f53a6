#include "librivo/syncing/FullSyncer.h"

#include <cstdio>
#include <stdexcept>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Error.h"
#include "librivo/Files.h"
#include "librivo/Platform.h"
#include "librivo/Storage.h"
#include "librivo/Version.h"

namespace rivo {

namespace {

bool integrityOk(DB& db) {
  auto answer = db.scalar("pragma integrity_check");
  return answer && toText(*answer) == "ok";
}

}  // namespace

std::string FullSyncer::clientVersion() {
  return std::string("rivomobile,") + kVersion + " (b" + kBundleVersion + ")," + platformDesc();
}

FullSyncer::FullSyncer(Col* c, const std::string& key)
    : HttpSyncer(key, Json{{"k", key}, {"v", clientVersion()}}), col(c) {
  if (c) tmpDir = c->tmpDir();
}

bool FullSyncer::download(Error* err) {
  notifySyncStatus("Downloading from RivoWeb...");
  reqWithMethod("download");
  if (!waitForCompletion(err)) return false;
  const std::string path = downloadPath;
  {
    DB db(path);
    bool sound = db.isOpen() && integrityOk(db) && Storage::notesAreUtf8(db) &&
                 db.runWithResult("update col set ls=mod") &&
                 db.scalarInt("select count() from col") == 1;
    if (sound) db.commit();
    db.close();
    if (!sound) {
      std::remove(path.c_str());
      if (err)
        *err = makeError("syncError",
                         "Download was corrupt. Please check your network connection and try "
                         "again.");
      return false;
    }
  }
  col->close();
  const std::string colPath = col->path();
  // The old file goes as the new one arrives, in one step.
  std::string problem;
  if (!moveFile(path, colPath, &problem))
    throw std::logic_error("could not move the download: " + problem);
  downloadPath.clear();
  col = nullptr;
  return true;
}

bool FullSyncer::upload(Error* err) {
  notifySyncStatus("Uploading to RivoWeb...");
  // The check and the vacuum below walk the whole file: with a small page cache and the
  // vacuum's copy on disk rather than in memory, a large collection costs no more memory
  // than a small one.
  col->db()->scalar("pragma cache_size = -2000");
  col->db()->scalar("pragma temp_store = file");
  if (!integrityOk(*col->db())) {
    if (err)
      *err = makeError("syncError",
                       "Your collection is corrupt. Please post on the support site for help.");
    return false;
  }
  if (!col->basicCheck()) {
    if (err)
      *err = makeError("syncError",
                       "Your collection is in an inconsistent state. Please use the Check "
                       "Database feature, then try again.");
    return false;
  }
  col->beforeUpload();
  std::FILE* file = std::fopen(col->path().c_str(), "rb");
  if (!file) {
    if (err) *err = makeError("syncError", "Could not read " + col->path() + ".");
    return false;
  }
  reqWithMethod("upload", file, 6);
  std::optional<std::string> reply = waitForReqData(err);
  std::fclose(file);
  if (!reply) return false;
  if (*reply != "OK") {
    if (err)
      *err = makeError("syncError",
                       "The upload was corrupt. Please check your internet connection and try "
                       "again.");
    return false;
  }
  return true;
}

}  // namespace rivo
