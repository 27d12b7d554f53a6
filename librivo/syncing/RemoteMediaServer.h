#pragma once
// The client of the media service: one call per method, each a request through HttpSyncer. The
// replies of every method but downloadFiles come in an envelope {"data": ..., "err": ""}; a
// non-empty "err" fails the call with the service's own text. begin() carries the host key and
// takes the media session key the service hands back; later calls carry only that key. Same
// threading as HttpSyncer: one call at a time, from one thread, which blocks until the reply.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "librivo/Error.h"
#include "librivo/syncing/HttpSyncer.h"

namespace rivo {

class Col;

class RemoteMediaServer : public HttpSyncer {
 public:
  // `col` is not owned.
  RemoteMediaServer(Col* col, const std::string& hkey);
  std::string syncURL() const override { return syncBase() + "msync/"; }

  Col* col() const { return _col; }
  void setCol(Col* col) { _col = col; }

  struct Begin {
    int64_t usn = 0;
    std::string sk;
  };
  std::optional<Begin> begin(Error* err);
  // The service's changes after `lastUsn`: name, usn, checksum ("" for a deletion).
  struct Change {
    std::string fname;
    int64_t usn = 0;
    std::string csum;
  };
  std::optional<std::vector<Change>> mediaChanges(int64_t lastUsn, Error* err);
  // The zip of the named files (the service may send fewer than asked).
  std::optional<std::string> downloadFiles(const std::vector<std::string>& files, Error* err);
  // How many entries the service took, and its usn afterwards.
  std::optional<std::pair<int64_t, int64_t>> uploadChanges(const std::string& zip, Error* err);
  // "OK" when both sides count the same files.
  std::optional<std::string> mediaSanity(int64_t local, Error* err);

  // The envelope's data, or nothing with `err` set.
  std::optional<Json> _waitForJsonData(const std::string& method, Error* err);

 private:
  std::optional<Json> _call(const std::string& method, const Json& args, Error* err);

  Col* _col;
};

}  // namespace rivo
