#pragma once
// The server's side of one incremental sync: the account's collection, open inside one
// transaction from `start` to `finish`, and the Syncer (server flag on) that answers each
// call in the protocol's order. Nothing is committed before `finish`; a call that fails, a
// failed comparison or abort() rolls everything back and ends the session.
//
// Calls come from the request threads, one at a time: the holder of `mutex` may call.

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "librivo/Json.h"

namespace rivo {

class Col;
class Syncer;

class SyncSession {
 public:
  // Opens the collection; raises std::runtime_error when it can't be opened.
  SyncSession(std::string user, std::string skey, const std::string& collectionPath);
  // Rolls back whatever is not finished.
  ~SyncSession();
  SyncSession(const SyncSession&) = delete;
  SyncSession& operator=(const SyncSession&) = delete;

  // One protocol call; the reply body. Raises std::invalid_argument for a call out of order
  // or a message that can't be applied; then, as after any exception, the caller aborts.
  std::string call(const std::string& method, const Json& args);
  // Rolls back and closes; the session is over.
  void abort();
  // Finished, failed its comparison, or aborted: the account is free again.
  bool over() const { return _step == Step::Over; }
  // mod, scm and usn of the collection as it was when the sync began; set once.
  const Json& committedMeta() const { return _committed; }

  const std::string user;
  const std::string skey;
  std::mutex mutex;

 private:
  enum class Step { New, Started, Changes, ServerChunksSent, ClientChunksIn, Checked, Over };
  void _expect(Step step, const std::string& method) const;
  void _close();

  std::unique_ptr<Col> _col;
  std::unique_ptr<Syncer> _syncer;
  Step _step = Step::New;
  Json _committed;
};

}  // namespace rivo
