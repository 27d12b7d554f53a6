#include "librivo/syncing/RemoteMediaServer.h"

#include "librivo/Col.h"
#include "librivo/Error.h"
#include "librivo/Files.h"
#include "librivo/syncing/FullSyncer.h"
#include "librivo/syncing/RemoteServer.h"

namespace rivo {

namespace {

bool isCount(const Json& value) {
  return value.is_number_integer() && value.get<int64_t>() >= 0;
}

}  // namespace

RemoteMediaServer::RemoteMediaServer(Col* col, const std::string& hkey)
    : HttpSyncer(hkey), _col(col) {
  if (col) tmpDir = col->tmpDir();
}

std::optional<Json> RemoteMediaServer::_waitForJsonData(const std::string& method, Error* err) {
  std::optional<std::string> reply = waitForReqData(err);
  if (!reply) return std::nullopt;
  std::optional<Json> decoded = decodeReply(method, *reply, err);
  if (!decoded) return std::nullopt;
  if (!decoded->is_object() || !decoded->contains("data")) {
    if (err) *err = badReplyError(method + ": no data");
    return std::nullopt;
  }
  const Json errText = decoded->value("err", Json(""));
  if (errText.is_string() && !errText.get<std::string>().empty()) {
    if (err) *err = makeError("syncError", errText.get<std::string>());
    return std::nullopt;
  }
  return (*decoded)["data"];
}

std::optional<Json> RemoteMediaServer::_call(const std::string& method, const Json& args,
                                             Error* err) {
  reqWithMethod(method, jsonTmpFile(tmpDir, args));
  return _waitForJsonData(method, err);
}

std::optional<RemoteMediaServer::Begin> RemoteMediaServer::begin(Error* err) {
  _postVars = {{"k", hkey}, {"v", FullSyncer::clientVersion()}};
  std::optional<Json> data = _call("begin", Json::object(), err);
  if (!data) return std::nullopt;
  if (!data->is_object() || !isCount(data->value("usn", Json())) ||
      !data->value("sk", Json()).is_string() || (*data)["sk"].get<std::string>().empty()) {
    if (err) *err = badReplyError("begin: no usn or session key");
    return std::nullopt;
  }
  Begin result{(*data)["usn"].get<int64_t>(), (*data)["sk"].get<std::string>()};
  setSkey(result.sk);
  _postVars = {{"sk", result.sk}};
  return result;
}

std::optional<std::vector<RemoteMediaServer::Change>> RemoteMediaServer::mediaChanges(
    int64_t lastUsn, Error* err) {
  std::optional<Json> data = _call("mediaChanges", {{"lastUsn", lastUsn}}, err);
  if (!data) return std::nullopt;
  std::vector<Change> changes;
  const bool array = data->is_array();
  if (array) {
    for (const Json& item : *data) {
      if (!item.is_array() || item.size() != 3 || !item[0].is_string() || !isCount(item[1]) ||
          !(item[2].is_string() || item[2].is_null()))
        break;
      changes.push_back({item[0].get<std::string>(), item[1].get<int64_t>(),
                         item[2].is_null() ? std::string() : item[2].get<std::string>()});
    }
  }
  if (!array || changes.size() != data->size()) {
    if (err) *err = badReplyError("mediaChanges: not a list of changes");
    return std::nullopt;
  }
  return changes;
}

std::optional<std::string> RemoteMediaServer::downloadFiles(const std::vector<std::string>& files,
                                                            Error* err) {
  reqWithMethod("downloadFiles", jsonTmpFile(tmpDir, {{"files", files}}));
  std::optional<std::string> reply = waitForReqData(err);
  if (!reply) return std::nullopt;
  // A refusal comes in the envelope instead of a zip.
  if (!reply->empty() && reply->front() == '{') {
    std::string problem;
    Json decoded = decodeJson(*reply, &problem);
    const Json errText =
        problem.empty() && decoded.is_object() ? decoded.value("err", Json("")) : Json("");
    if (errText.is_string() && !errText.get<std::string>().empty()) {
      if (err) *err = makeError("syncError", errText.get<std::string>());
      return std::nullopt;
    }
  }
  return reply;
}

std::optional<std::pair<int64_t, int64_t>> RemoteMediaServer::uploadChanges(const std::string& zip,
                                                                            Error* err) {
  reqWithMethod("uploadChanges", tmpFileFromData(tmpDir, zip), 0);
  std::optional<Json> data = _waitForJsonData("uploadChanges", err);
  if (!data) return std::nullopt;
  if (!data->is_array() || data->size() != 2 || !isCount((*data)[0]) || !isCount((*data)[1])) {
    if (err) *err = badReplyError("uploadChanges: not a pair of numbers");
    return std::nullopt;
  }
  return std::make_pair((*data)[0].get<int64_t>(), (*data)[1].get<int64_t>());
}

std::optional<std::string> RemoteMediaServer::mediaSanity(int64_t local, Error* err) {
  std::optional<Json> data = _call("mediaSanity", {{"local", local}}, err);
  if (!data) return std::nullopt;
  if (!data->is_string()) {
    if (err) *err = badReplyError("mediaSanity: not a text");
    return std::nullopt;
  }
  return data->get<std::string>();
}

}  // namespace rivo
