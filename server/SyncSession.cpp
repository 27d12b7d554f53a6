#include "server/SyncSession.h"

#include <stdexcept>

#include "librivo/Col.h"
#include "librivo/Storage.h"
#include "librivo/syncing/SyncMessages.h"
#include "librivo/syncing/Syncer.h"

namespace rivo {

namespace {

Json metaOf(const Col& col) {
  return {{"mod", col.mod()}, {"scm", col.scm()}, {"usn", col._usnValue()}};
}

}  // namespace

SyncSession::SyncSession(std::string u, std::string s, const std::string& collectionPath)
    : user(std::move(u)), skey(std::move(s)) {
  _col = Storage::open(collectionPath, true, true);
  if (!_col) throw std::runtime_error("the collection of " + user + " can't be opened");
  _committed = metaOf(*_col);
  _syncer = std::make_unique<Syncer>(*_col);
}

SyncSession::~SyncSession() {
  abort();
}

void SyncSession::_expect(Step step, const std::string& method) const {
  if (_step != step) throw std::invalid_argument(method + " out of order");
}

std::string SyncSession::call(const std::string& method, const Json& args) {
  if (_step == Step::Over) throw std::invalid_argument(method + " after the sync ended");
  if (method == "start") {
    _expect(Step::New, method);
    Json reply = _syncer->start(args);
    _step = Step::Started;
    return reply.dump();
  }
  if (method == "applyChanges") {
    _expect(Step::Started, method);
    Json reply = _syncer->applyChanges(args);
    _step = Step::Changes;
    return reply.dump();
  }
  if (method == "chunk") {
    _expect(Step::Changes, method);
    Json reply = _syncer->chunk();
    if (SyncMessages::isDone(reply)) _step = Step::ServerChunksSent;
    return reply.dump();
  }
  if (method == "applyChunk") {
    _expect(Step::ServerChunksSent, method);
    _syncer->applyClientChunk(args);
    if (SyncMessages::isDone(args["chunk"])) _step = Step::ClientChunksIn;
    return "null";
  }
  if (method == "sanityCheck2") {
    _expect(Step::ClientChunksIn, method);
    Json reply = _syncer->sanityCheck2(args);
    if (reply["status"] == "ok")
      _step = Step::Checked;
    else
      abort();
    return reply.dump();
  }
  if (method == "finish") {
    _expect(Step::Checked, method);
    std::string mod = _syncer->finish();
    _close();
    return mod;
  }
  throw std::invalid_argument("unknown method " + method);
}

void SyncSession::_close() {
  _syncer.reset();
  if (_col) _col->closeAndSave(false);
  _col.reset();
  _step = Step::Over;
}

void SyncSession::abort() {
  _close();
}

}  // namespace rivo
