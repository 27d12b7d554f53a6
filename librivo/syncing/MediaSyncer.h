#pragma once
// Brings the media folder and the service's media store into line after the collection's
// sync: the service's changes since the last agreed usn come down in batches of 25 files, the
// local changes go up in batches of 25 rows or about 2.5 MiB, and the two sides compare their
// counts at the end. Progress is committed batch by batch, so an interrupted sync loses at
// most the batch in flight and the next one carries on from there.
//
// One MediaSyncer serves one sync on one thread; the collection's media database is used by
// nothing else meanwhile. Neither the collection nor the server is owned.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "librivo/Error.h"

namespace rivo {

class Col;
class RemoteMediaServer;

class MediaSyncer {
 public:
  static constexpr size_t kDownloadBatch = 25;
  // Restarts after concurrent updates before the sync gives up.
  static constexpr int kMaxRestarts = 5;

  MediaSyncer(Col& col, RemoteMediaServer* server);

  // "noChanges", "OK" or "" (the two sides disagreed and the next sync starts over); nothing,
  // with `err` set, on failure, after which the media database holds what was committed.
  std::optional<std::string> sync(Error* err);

  int64_t dataReceived() const { return _dataReceived; }
  int64_t dataSend() const { return _dataSend; }
  int64_t dataToSend() const { return _dataToSend; }

 private:
  std::optional<std::string> _sync(int restarts, Error* err);
  bool _downloadChanges(int64_t& lastUsn, Error* err);
  // Applies one change of the service; adds the name to `fetch` when the file must come down.
  void _decide(const std::string& fname, const std::string& rsum, int64_t rusn,
               std::vector<std::string>& fetch);
  bool _downloadFiles(std::vector<std::string> fnames, Error* err);
  // False with `err` on failure; `concurrent` set when another client changed the service.
  bool _uploadChanges(int64_t& lastUsn, bool& concurrent, Error* err);
  void _status(const std::string& text);
  void _log(const std::string& text);

  Col& _col;
  RemoteMediaServer* _server;
  int _downloadCnt = 0;
  int64_t _dataReceived = 0, _dataSend = 0, _dataToSend = 0;
};

}  // namespace rivo
