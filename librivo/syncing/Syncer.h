#pragma once
// Merges a collection with its copy on the sync service: deletions, then the small objects
// (note types, decks, option groups, tags, settings), then the review log, cards and notes in
// chunks of at most 250 rows, then a comparison of the two sides and a common stamp.
//
// The same rules run at both ends. With the collection's server flag off this is the client,
// which drives the exchange through a RemoteServer; with it on, the operations marked "server
// half" answer a client. A Syncer serves one sync and is then dropped; it is used from one
// thread at a time and holds no lock. The collection stays inside its open transaction
// throughout: only finish() commits, so whoever abandons a sync rolls it back.

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "librivo/Error.h"
#include "librivo/Json.h"

namespace rivo {

class Col;
class RemoteServer;
class ResultSet;

class Syncer {
 public:
  static constexpr int kChunkRows = 250;
  // The largest difference between the two clocks, in seconds, that still lets a sync run.
  static constexpr int64_t kMaxClockSkew = 300;

  // `server` is not owned; a server half has none.
  explicit Syncer(Col& col, RemoteServer* server = nullptr);
  ~Syncer();
  Syncer(const Syncer&) = delete;
  Syncer& operator=(const Syncer&) = delete;

  // Client: the whole protocol. "noChanges", "fullSync" or "success"; nothing, with `err`
  // set, on failure, after which the caller rolls the collection back.
  std::optional<std::string> sync(Error* err);

  // The steps, shared by both halves.
  Json meta();
  Json removed();
  void remove(const Json& graves);
  Json changes();
  void mergeLChanges(const Json& lchg, const Json& rchg);
  void prepareToChunk();
  Json chunk();
  void applyChunk(const Json& chunk);
  // A text naming the first problem, or the list of counts the two sides compare.
  Json sanityCheck();
  // Stamps ls, usn and mod and commits; "0" (the server half) takes the current time.
  std::string finish(const std::string& mod);

  // Server half. These raise std::invalid_argument for a message that can't be applied,
  // before anything of it is written.
  Json start(const Json& args);
  Json applyChanges(const Json& args);
  void applyClientChunk(const Json& args);
  // {"status": "ok"} when the client's counts are the server's own, else "bad".
  Json sanityCheck2(const Json& args);
  std::string finish() { return finish("0"); }

  const std::string& syncMsg() const { return _syncMsg; }
  const std::string& uname() const { return _uname; }

  Col& col;
  RemoteServer* server;
  int64_t lmod = 0, rmod = 0;
  int64_t minUsn = 0, maxUsn = 0;
  int64_t mediaUsn = 0;
  bool lnewer = false;
  Json rchg, lchg;
  std::deque<std::string> tablesLeft;
  std::unique_ptr<ResultSet> cursor;

 private:
  bool _isServer() const;
  std::string _usnLim() const;
  std::unique_ptr<ResultSet> cursorForTable(const std::string& table);
  Json getModels();
  Json getDecks();
  Json getTags();
  void mergeModels(const Json& rchg);
  void mergeDecks(const Json& rchg);
  void mergeTags(const Json& tags);
  void mergeRevLog(const Json& logs);
  void mergeCards(const Json& cards);
  void mergeNotes(const Json& notes);
  Json newerRows(const Json& data, const std::string& table, size_t modIdx);
  bool _fail(Error* err, const Error& error);

  std::string _syncMsg;
  std::string _uname;
};

}  // namespace rivo
