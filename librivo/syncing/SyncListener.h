#pragma once
// What a sync tells whoever shows it: status texts and the bytes moving each way. The
// application implements it; every method may be called on any thread, so an implementation
// posts to its own main loop.

#include <cstdint>
#include <cstdio>
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

  // An amount moved as the user sees it: "%llu kB" below 1,049,600 bytes, "%.02f MB" from
  // there on, both from the whole kilobytes.
  static std::string amountText(int64_t bytes) {
    const uint64_t kb = static_cast<uint64_t>(bytes) / 1024;
    char text[32];
    if (bytes < 1049600)
      std::snprintf(text, sizeof text, "%llu kB", static_cast<unsigned long long>(kb));
    else
      std::snprintf(text, sizeof text, "%.02f MB", static_cast<double>(kb) * 0.0009765625);
    return text;
  }
};

}  // namespace rivo
