#include "librivo/syncing/MediaSyncer.h"

#include <algorithm>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Error.h"
#include "librivo/MediaManager.h"
#include "librivo/syncing/RemoteMediaServer.h"
#include "librivo/syncing/SyncListener.h"

namespace rivo {

namespace {

std::string shortSum(const std::string& csum) {
  return csum.substr(0, 4);
}

Error stopped(const std::string& text) {
  return makeError("syncError", text);
}

}  // namespace

MediaSyncer::MediaSyncer(Col& col, RemoteMediaServer* server) : _col(col), _server(server) {}

void MediaSyncer::_status(const std::string& text) {
  if (_server->listener) _server->listener->syncNotify(text);
}

void MediaSyncer::_log(const std::string& text) {
  _col.log({text});
}

std::optional<std::string> MediaSyncer::sync(Error* err) {
  MediaManager& media = _col.media();
  media.setStatusSink([this](const std::string& text) { _status(text); });
  std::optional<std::string> result = _sync(0, err);
  media.setStatusSink(nullptr);
  // What a failed batch wrote uncommitted is dropped; committed batches stand.
  if (!result && media.db()) media.db()->rollback();
  return result;
}

std::optional<std::string> MediaSyncer::_sync(int restarts, Error* err) {
  MediaManager& media = _col.media();
  _status("Checking media...");
  _log("findChanges");
  media.findChanges();
  int64_t lastUsn = media.lastUsn();
  std::optional<RemoteMediaServer::Begin> begun = _server->begin(err);
  if (!begun) return std::nullopt;
  if (begun->usn == lastUsn && !media.haveDirty()) return "noChanges";

  _status("Downloading changes...");
  _log("last local usn in " + std::to_string(lastUsn));
  _downloadCnt = 0;
  if (!_downloadChanges(lastUsn, err)) return std::nullopt;

  _status("Uploading changes...");
  bool concurrent = false;
  if (!_uploadChanges(lastUsn, concurrent, err)) return std::nullopt;
  if (concurrent) {
    _log("restart sync due to concurrent update");
    if (restarts >= kMaxRestarts) {
      if (err)
        *err = stopped("Other devices keep changing the media on RivoWeb. Please try again later.");
      return std::nullopt;
    }
    return _sync(restarts + 1, err);
  }
  std::optional<std::string> sanity = _server->mediaSanity(media.mediaCount(), err);
  if (!sanity) return std::nullopt;
  if (*sanity == "OK") return sanity;
  media.forceResync();
  return "";
}

bool MediaSyncer::_downloadChanges(int64_t& lastUsn, Error* err) {
  MediaManager& media = _col.media();
  for (;;) {
    std::optional<std::vector<RemoteMediaServer::Change>> changes =
        _server->mediaChanges(lastUsn, err);
    if (!changes) return false;
    if (changes->empty()) return true;
    _log("mediaChanges resp count: " + std::to_string(changes->size()));
    const int64_t newUsn = changes->back().usn;
    // A service that doesn't move forward would be asked the same question for ever.
    if (newUsn <= lastUsn) {
      if (err)
        *err = stopped(
            "RivoWeb keeps sending the same media changes; the media sync was "
            "stopped. Please try again later.");
      return false;
    }
    std::vector<std::string> fetch;
    for (const RemoteMediaServer::Change& change : *changes)
      _decide(change.fname, change.csum, change.usn, fetch);
    if (!_downloadFiles(std::move(fetch), err)) return false;
    _log("update last usn to " + std::to_string(newUsn));
    media.setLastUsn(newUsn);
    lastUsn = newUsn;
  }
}

void MediaSyncer::_decide(const std::string& fname, const std::string& rsum, int64_t rusn,
                          std::vector<std::string>& fetch) {
  MediaManager& media = _col.media();
  auto [lsum, ldirty] = media.syncInfo(fname);
  const std::string check = "check: lsum=" + shortSum(lsum) + " rsum=" + shortSum(rsum) +
                            " ldirty=" + std::to_string(ldirty) + " rusn=" + std::to_string(rusn) +
                            " fname=" + fname;
  _log(check);
  if (!rsum.empty()) {
    if (lsum == rsum) {
      _log("have same already");
    } else {
      _log("will fetch");
      fetch.push_back(fname);
    }
    // In a conflict of two changed files the service's file wins.
    if (ldirty) media.markClean({fname});
  } else if (!lsum.empty()) {
    if (!ldirty) {
      _log("delete local");
      media.syncDelete(fname);
    } else {
      // A local change beats a deletion elsewhere: the row stays dirty and goes up.
      _log("conflict; will send");
    }
  } else {
    _log("both sides deleted");
    if (ldirty) media.markClean({fname});
  }
}

bool MediaSyncer::_downloadFiles(std::vector<std::string> fnames, Error* err) {
  MediaManager& media = _col.media();
  _log(std::to_string(fnames.size()) + " files to fetch");
  size_t next = 0;
  while (next < fnames.size()) {
    const size_t take = std::min(kDownloadBatch, fnames.size() - next);
    std::vector<std::string> batch(fnames.begin() + next, fnames.begin() + next + take);
    std::string names;
    for (const std::string& name : batch) names += (names.empty() ? "" : ", ") + name;
    _log("fetch " + names);
    std::optional<std::string> zip = _server->downloadFiles(batch, err);
    if (!zip) return false;
    Error zipError;
    const int count = media.addFilesFromZip(*zip, &zipError);
    if (count <= 0) {
      // An empty answer to a non-empty request would be asked again for ever.
      if (err)
        *err = !zipError.message.empty()
                   ? zipError
                   : stopped(
                         "RivoWeb sent none of the media files asked for; the media sync "
                         "was stopped. Please try again later.");
      return false;
    }
    _downloadCnt += count;
    _status(std::to_string(_downloadCnt) + " media file(s) downloaded...");
    next += std::min(static_cast<size_t>(count), take);
  }
  return true;
}

bool MediaSyncer::_uploadChanges(int64_t& lastUsn, bool& concurrent, Error* err) {
  MediaManager& media = _col.media();
  int64_t left = media.dirtyCount();
  for (;;) {
    std::optional<MediaManager::Batch> batch = media.mediaChangesZip(err);
    if (!batch) return false;
    if (batch->names.empty()) return true;
    _status(std::to_string(left) + " media change(s) to upload...");
    std::optional<std::pair<int64_t, int64_t>> reply = _server->uploadChanges(batch->zip, err);
    if (!reply) return false;
    auto [processed, serverUsn] = *reply;
    if (processed <= 0 || processed > static_cast<int64_t>(batch->names.size())) {
      if (err)
        *err = stopped("RivoWeb took " + std::to_string(processed) + " of " +
                       std::to_string(batch->names.size()) +
                       " media changes sent; the media sync was stopped.");
      return false;
    }
    media.markClean(
        std::vector<std::string>(batch->names.begin(), batch->names.begin() + processed));
    _log("processed " + std::to_string(processed) + ", serverUsn " + std::to_string(serverUsn) +
         ", clientUsn " + std::to_string(lastUsn));
    if (serverUsn - processed == lastUsn) {
      _log("lastusn in sync, updating local");
      media.setLastUsn(serverUsn);
      lastUsn = serverUsn;
    } else {
      _log("concurrent update, skipping usn update");
      concurrent = true;
      media.db()->commit();
    }
    left -= processed;
  }
}

}  // namespace rivo
