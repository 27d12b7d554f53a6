#pragma once
// The client side of the sync service: one call per method of the protocol, each a request
// through HttpSyncer with a JSON payload and a decoded reply. Same threading as HttpSyncer:
// one call at a time, from one thread, which blocks until the reply is in.

#include <optional>
#include <string>

#include "librivo/Error.h"
#include "librivo/syncing/HttpSyncer.h"

namespace rivo {

class RemoteServer : public HttpSyncer {
 public:
  static constexpr int kSyncVersion = 8;

  explicit RemoteServer(std::string hkey = {});
  std::string syncURL() const override { return syncBase() + "sync/"; }

  // The host key for this login; a refused login is an error of the domain "badAuth".
  std::optional<std::string> hostKeyForUser(const std::string& user, const std::string& pass,
                                            Error* err);
  std::optional<Json> meta(Error* err);
  std::optional<Json> start(const Json& args, Error* err) { return _run("start", &args, err); }
  std::optional<Json> applyChanges(const Json& args, Error* err) {
    return _run("applyChanges", &args, err);
  }
  std::optional<Json> chunk(const Json& args, Error* err) { return _run("chunk", &args, err); }
  std::optional<Json> applyChunk(const Json& args, Error* err) {
    return _run("applyChunk", &args, err);
  }
  std::optional<Json> sanityCheck2(const Json& args, Error* err) {
    return _run("sanityCheck2", &args, err);
  }
  // The reply as text: the new mod in milliseconds.
  std::optional<std::string> finish(const Json& args, Error* err);

  // Sends the dictionary (or no payload) and decodes the reply.
  std::optional<Json> _run(const std::string& method, const Json* data, Error* err);

  // "rivomobile,BUILD,MACHINE:OSVERSION".
  static std::string clientVersion();
};

// The error of a reply that came with status 200 but can't be used.
Error badReplyError(const std::string& detail);
// A reply of `method` as JSON; nothing, with `err` set, when it isn't JSON or is nested deeper
// than any message of the protocol.
std::optional<Json> decodeReply(const std::string& method, const std::string& reply, Error* err);

}  // namespace rivo
