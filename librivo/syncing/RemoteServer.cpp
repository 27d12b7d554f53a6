#include "librivo/syncing/RemoteServer.h"

#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>

#include "librivo/Error.h"
#include "librivo/SysLog.h"
#include "librivo/Version.h"
#include "librivo/syncing/SyncMessages.h"

namespace rivo {

namespace {

// Deep enough for any message of the protocol; deeper text is refused before parsing.
constexpr int kMaxReplyDepth = 64;

}  // namespace

Error badReplyError(const std::string& detail) {
  sysLog("unusable reply: " + detail);
  return makeError("syncError",
                   "The reply from RivoWeb could not be understood. Please check your network "
                   "connection and try again.");
}

RemoteServer::RemoteServer(std::string hkey) : HttpSyncer(std::move(hkey)) {}

std::string RemoteServer::clientVersion() {
  utsname info{};
  std::string machine, release;
  if (uname(&info) == 0) {
    machine = info.machine;
    release = info.release;
  }
  for (char& c : machine)
    if (c == ',') c = '.';
  char os[32];
  std::snprintf(os, sizeof os, "%0.1f", std::strtod(release.c_str(), nullptr));
  return std::string("rivomobile,") + kBundleVersion + "," + machine + ":" + os;
}

std::optional<Json> decodeReply(const std::string& method, const std::string& reply, Error* err) {
  std::string problem;
  Json decoded;
  if (SyncMessages::nestingDepth(reply) > kMaxReplyDepth)
    problem = "nested too deeply";
  else
    decoded = decodeJson(reply, &problem);
  if (!problem.empty()) {
    if (err) *err = badReplyError(method + ": " + problem);
    return std::nullopt;
  }
  return decoded;
}

std::optional<Json> RemoteServer::_run(const std::string& method, const Json* data, Error* err) {
  if (data)
    reqWithMethod(method, jsonTmpFile(tmpDir, *data));
  else
    reqWithMethod(method);
  std::optional<std::string> reply = waitForReqData(err);
  if (!reply) return std::nullopt;
  return decodeReply(method, *reply, err);
}

std::optional<std::string> RemoteServer::hostKeyForUser(const std::string& user,
                                                        const std::string& pass, Error* err) {
  _postVars = Json::object();
  Json args = {{"u", user}, {"p", pass}};
  std::optional<Json> reply = _run("hostKey", &args, err);
  if (!reply) return std::nullopt;
  if (!reply->is_object() || !reply->value("key", Json()).is_string()) {
    if (err) *err = badReplyError("hostKey: no key");
    return std::nullopt;
  }
  return (*reply)["key"].get<std::string>();
}

std::optional<Json> RemoteServer::meta(Error* err) {
  _postVars = {{"k", hkey}, {"s", skey()}};
  Json args = {{"v", kSyncVersion}, {"cv", clientVersion()}};
  return _run("meta", &args, err);
}

std::optional<std::string> RemoteServer::finish(const Json& args, Error* err) {
  reqWithMethod("finish", jsonTmpFile(tmpDir, args));
  return waitForReqData(err);
}

}  // namespace rivo
