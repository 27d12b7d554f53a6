#pragma once
// What a sync tells whoever shows it: status texts and the bytes moving each way. The
// application implements it; every method may be called on any thread, so an implementation
// posts to its own main loop.

#include <cstdint>
#include <string>

namespace rivo {

class SyncListener {
 public:
  virtual ~SyncListener() = default;
  // "syncNotify": a text for the user ("Connecting...", "Uploading to RivoWeb...").
  virtual void syncNotify(const std::string& /*desc*/) {}
  // "sync.receiveddata": this many bytes of a reply just arrived.
  virtual void receivedData(int64_t /*bytes*/) {}
  // "sync.sentdata": this many bytes of a request just went out, and the fraction of the
  // whole request sent so far.
  virtual void sentData(int64_t /*sentBytes*/, float /*uploadProgress*/) {}
};

}  // namespace rivo
