#pragma once
// The one HTTP client of the sync: a method name, form fields and an optional payload become
// one multipart POST whose body is built on disk first (the payload gzipped 1 MiB slice by
// slice), streamed from the file, and whose reply is spooled to another file. Subclasses fill
// in the fields, the payload and the base URL.
//
// One object serves one request at a time. reqWithMethod() returns at once; the transfer runs
// on a thread of the object's own, and the caller blocks in waitForCompletion(). Only
// `_completed` is shared between the two threads (guarded by `_completedMutex`); `_lastErr`
// and the files are written by the transfer before it signals, and read after. Certificates
// are always checked.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>

#include "librivo/Error.h"
#include "librivo/Files.h"
#include "librivo/Json.h"

namespace rivo {

class SyncListener;

// The address of the sync service: $SYNC_BASE as it stands, else the built-in HTTPS address.
std::string syncBase();
// An error of this domain with the text, or the domain itself when the text is empty.
Error makeError(const std::string& domain, const std::string& text);
// The error a reply's HTTP status stands for; nothing for 200.
std::optional<Error> errorForStatus(long status);
// A JSON temporary file in `folder` holding the dictionary.
inline std::string jsonTmpFile(const std::string& folder, const Json& dict) {
  return tmpFileFromJSON(folder, dict);
}

class HttpSyncer {
 public:
  // No payload; an open file read from its start and left open; or the path of a temporary
  // file that is read and then deleted.
  using Payload = std::variant<std::monostate, std::FILE*, std::string>;

  static constexpr const char* kBoundary = "Rivo-sync-boundary";
  static constexpr size_t kSliceSize = 0x100000;

  // Keeps the key and makes the session key. Form fields already set by a subclass stay.
  explicit HttpSyncer(std::string hkey, Json postVars = nullptr);
  // Waits for a running transfer; removes a reply nobody took.
  virtual ~HttpSyncer();
  HttpSyncer(const HttpSyncer&) = delete;
  HttpSyncer& operator=(const HttpSyncer&) = delete;

  // Base of the URL; the method name is appended directly.
  virtual std::string syncURL() const { return syncBase(); }

  // Builds the request and starts it; `comp` is a gzip level, 0 for none.
  void reqWithMethod(const std::string& method, const Payload& fobj = {}, int comp = 6);
  // Blocks until the request ended: true if all went well, else false with `err` set.
  bool waitForCompletion(Error* err = nullptr);
  // waitForCompletion(), then the whole reply; the reply file is removed.
  std::optional<std::string> waitForReqData(Error* err = nullptr);
  void setCompleted(bool completed);

  const std::string& skey() const { return _skey; }
  void setSkey(std::string skey) { _skey = std::move(skey); }

  std::string hkey;
  Json _postVars;
  // The reply file; whoever takes it over clears this.
  std::string downloadPath;
  int64_t sentBytes = 0;
  float uploadProgress = 0;
  // Told of status texts and transfer progress; not owned, may be null.
  SyncListener* listener = nullptr;
  // Seconds without progress (or to connect) before a request fails.
  double timeout = 60.0;
  // Where request bodies and replies are spooled. The clients of a collection take the
  // collection's; whoever makes a RemoteServer sets it.
  std::string tmpDir = kDefaultTmpDir;
  // A reply read into memory larger than this is refused rather than read.
  int64_t maxReplyBytes = int64_t{256} << 20;

 protected:
  void notifySyncStatus(const std::string& text);

 private:
  bool _writeBody(const Payload& fobj, int comp, std::string* problem);
  bool _writeSlices(std::FILE* in, int comp);
  void _run(std::string url);
  void _finish(std::optional<Error> error);

  std::string _skey;
  std::string _bodyPath;
  std::FILE* _body = nullptr;
  std::FILE* _download = nullptr;
  int64_t _bodySize = 0;
  int64_t _lastSentTotal = 0;
  int64_t _lastReceivedTotal = 0;
  std::chrono::steady_clock::time_point _lastActivity;
  bool _timedOut = false;
  std::optional<Error> _lastErr;
  std::thread _transfer;
  std::mutex _completedMutex;
  std::condition_variable _completedCond;
  bool _completed = false;  // guarded by _completedMutex
};

}  // namespace rivo
