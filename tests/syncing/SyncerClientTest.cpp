// The client against a server that says exactly what each test needs, well or badly: the
// decisions of meta, and replies that can't be used, which must leave the collection as it was.
#include <gtest/gtest.h>
#include <httplib.h>

#include <cstdlib>
#include <map>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/Compression.h"
#include "librivo/DB.h"
#include "librivo/Error.h"
#include "librivo/Note.h"
#include "librivo/ResultSet.h"
#include "librivo/Storage.h"
#include "librivo/syncing/FullSyncer.h"
#include "librivo/syncing/RemoteServer.h"
#include "librivo/syncing/SyncMessages.h"
#include "librivo/syncing/Syncer.h"
#include "tests/support/CollectionDump.h"
#include "tests/support/FakeHttpServer.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

using test::FakeHttpServer;

const std::string kUnusable =
    "The reply from RivoWeb could not be understood. Please check your network connection and "
    "try again.";

class SyncClient : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("SYNC_BASE", server.base().c_str(), 1);
    col = Storage::open(path());
    auto note = col->newNote();
    note->set("Front", "a question");
    col->addNote(*note);
    col->save();
    answerFromReplies();
  }
  // Replies by method; a method with none answers an empty object.
  void answerFromReplies() {
    server.respond([this](const FakeHttpServer::Request& req, httplib::Response& res) {
      std::string method = req.path.substr(req.path.rfind('/') + 1);
      auto it = replies.find(method);
      FakeHttpServer::reply(res, 200, it == replies.end() ? "{}" : it->second);
    });
  }
  std::string path() const { return dir.file("collection.rivo2"); }
  // A server whose collection differs from ours only by its mod.
  Json serverMeta(int64_t tsOffset = 0) {
    return {{"mod", col->mod() + 1},       {"scm", col->scm()}, {"usn", col->_usnValue()},
            {"ts", intTime(1) + tsOffset}, {"msg", ""},         {"cont", true}};
  }
  std::optional<std::string> sync(Error* err) {
    RemoteServer remote("key");
    Syncer syncer(*col, &remote);
    auto result = syncer.sync(err);
    syncMsg = syncer.syncMsg();
    return result;
  }

  test::SavedEnv base{"SYNC_BASE"};
  test::TempDir dir;
  FakeHttpServer server;
  std::unique_ptr<Col> col;
  std::map<std::string, std::string> replies;
  std::string syncMsg;
};

TEST_F(SyncClient, MetaDecidesBeforeAnythingIsExchanged) {
  Error err;
  replies["meta"] = "<html>not json</html>";
  EXPECT_FALSE(sync(&err));
  EXPECT_EQ(err.message, kUnusable);
  // A compressed reply cut short arrives as the part that came, which doesn't parse.
  server.respond([this](const auto&, httplib::Response& res) {
    std::string gz = gzipDeflate(serverMeta().dump(), 6);
    FakeHttpServer::reply(res, 200, gz.substr(0, gz.size() / 2));
    res.set_header("Content-Encoding", "gzip");
  });
  EXPECT_FALSE(sync(&err));
  EXPECT_EQ(err.message, kUnusable);
  answerFromReplies();

  Json meta = serverMeta();
  meta["cont"] = false;
  meta["msg"] = "Down for maintenance.";
  replies["meta"] = meta.dump();
  EXPECT_FALSE(sync(&err));
  EXPECT_EQ(err.domain, "syncCancel");
  EXPECT_EQ(syncMsg, "Down for maintenance.");

  // The clocks may differ by 300 seconds, not 301; equal mods mean no changes, whatever scm.
  Clock::Override clock(Clock::now());
  meta = serverMeta(301);
  replies["meta"] = meta.dump();
  EXPECT_FALSE(sync(&err));
  EXPECT_EQ(err.message,
            "Please ensure your clock is set to the correct date and time, then try again.");
  meta = serverMeta(-300);
  meta["mod"] = col->mod();
  meta["scm"] = col->scm() + 1;
  replies["meta"] = meta.dump();
  EXPECT_EQ(sync(&err), "noChanges");

  // No musn or uname is fine; a different scm asks for a full sync.
  meta = serverMeta();
  meta["scm"] = col->scm() + 1;
  replies["meta"] = meta.dump();
  EXPECT_EQ(sync(&err), "fullSync");
  EXPECT_EQ(server.requests().size(), 6u);  // meta alone, each time

  col->db()->run(
      "insert into cards (id, nid, did, ord, mod, usn, type, queue, due, ivl, factor, "
      "reps, lapses, left, odue, odid, flags, data) values (5, 999, 1, 0, 0, -1, 0, 0, "
      "0, 0, 0, 0, 0, 0, 0, 0, 0, '')");
  replies["meta"] = serverMeta().dump();
  EXPECT_FALSE(sync(&err));
  EXPECT_EQ(err.message,
            "Your collection is in an inconsistent state. Please use the Check Database function "
            "then try again.");
}

TEST_F(SyncClient, AReplyThatCantBeUsedLeavesTheCollectionAsItWas) {
  const Json emptyChanges = {{"models", Json::array()},
                             {"decks", {Json::array(), Json::array()}},
                             {"tags", Json::array()}};
  const Json graves = {{"cards", Json::array()}, {"notes", Json::array()}, {"decks", {"1"}}};
  const std::vector<std::map<std::string, std::string>> cases = {
      {{"start", "[1, 2]"}},
      {{"start", graves.dump()}, {"applyChanges", "{\"models\": 7}"}},
      {{"start", graves.dump()},
       {"applyChanges", emptyChanges.dump()},
       {"chunk", R"({"cards": [[1, 2, 3]], "done": true})"}},
      {{"start", graves.dump()},
       {"applyChanges", emptyChanges.dump()},
       {"chunk", R"({"done": true})"},
       {"sanityCheck2", R"({"status": "ok"})"},
       {"finish", "<h1>oops</h1>"}},
  };
  col->close();
  const std::string before = test::dumpCollection(path());
  for (const auto& steps : cases) {
    SCOPED_TRACE(steps.rbegin()->first);
    col->reopen();
    replies = steps;
    replies["meta"] = serverMeta().dump();
    Error err;
    EXPECT_FALSE(sync(&err));
    EXPECT_EQ(err.message, kUnusable);
    // What the sync flow does after any sync.
    col->closeAndSave(false);
    EXPECT_EQ(test::dumpCollection(path()), before);
  }
}

TEST_F(SyncClient, ADifferentCountAfterTheMergeRollsBackAndAsksForAFullSync) {
  replies["meta"] = serverMeta().dump();
  replies["start"] = R"({"cards": [], "notes": [], "decks": []})";
  replies["applyChanges"] = R"({"models": [], "decks": [[], []], "tags": []})";
  replies["chunk"] = R"({"done": true})";
  replies["sanityCheck2"] = R"({"status": "bad"})";
  const int64_t scm = col->scm();
  Error err;
  EXPECT_FALSE(sync(&err));
  EXPECT_EQ(err.message,
            "After syncing, the collection was in an inconsistent state. Please use the Check "
            "Database feature and then try again.");
  EXPECT_NE(col->scm(), scm);
  EXPECT_EQ(col->db()->scalarInt("select count() from notes where usn = -1"), 1);
}

TEST_F(SyncClient, FullSyncChecksWhatArrivesAndWhatTheServerSays) {
  FullSyncer down(col.get(), "key");
  replies["download"] = "this is not a collection";
  Error err;
  EXPECT_FALSE(down.download(&err));
  EXPECT_EQ(err.message,
            "Download was corrupt. Please check your network connection and try again.");
  const std::string body = server.requests().back().body;
  EXPECT_NE(body.find("name=\"k\"\r\n\r\nkey\r\n"), std::string::npos);
  EXPECT_NE(body.find("name=\"v\"\r\n\r\nrivomobile,"), std::string::npos);
  EXPECT_EQ(col->noteCount(), 1);
  // A sound file holding a note whose text isn't UTF-8 is as corrupt: nothing could save it.
  {
    auto other = Storage::open(dir.file("other.rivo2"));
    other->db()->run("insert into notes values (1, 'g', 1, 1, 0, ?, 'a', 'a', 0, 0, '')",
                     {std::string(" x\xff ")});
    other->close();
  }
  replies["download"] = test::readFile(dir.file("other.rivo2"));
  EXPECT_FALSE(FullSyncer(col.get(), "key").download(&err));
  EXPECT_EQ(err.message,
            "Download was corrupt. Please check your network connection and try again.");
  EXPECT_EQ(col->noteCount(), 1);

  FullSyncer up(col.get(), "key");
  replies["upload"] = "Not OK";
  EXPECT_FALSE(up.upload(&err));
  EXPECT_EQ(err.message,
            "The upload was corrupt. Please check your internet connection and try again.");
  // beforeUpload ran: clean usns, no graves, ls = mod = scm.
  auto reopened = Storage::open(path());
  ASSERT_TRUE(reopened);
  EXPECT_EQ(reopened->db()->scalarInt("select count() from notes where usn = -1"), 0);
  EXPECT_EQ(reopened->ls(), reopened->scm());
  EXPECT_EQ(reopened->mod(), reopened->scm());
  EXPECT_FALSE(reopened->schemaChanged());
}

TEST_F(SyncClient, HostKeySendsTheLoginAndReadsTheKey) {
  replies["hostKey"] = R"({"key": "abc123"})";
  RemoteServer remote;
  Error err;
  EXPECT_EQ(remote.hostKeyForUser("ann", "pw", &err), "abc123");
  EXPECT_NE(server.requests().back().body.find("Content-Disposition: form-data; name=\"data\""),
            std::string::npos);
  server.respond([](const auto&, httplib::Response& res) { FakeHttpServer::reply(res, 403, ""); });
  EXPECT_FALSE(remote.hostKeyForUser("ann", "wrong", &err));
  EXPECT_EQ(err.domain, "badAuth");
}

}  // namespace
}  // namespace rivo

namespace rivo {
namespace {

// 250 rows are a whole chunk but don't finish their table: the next chunk says so, empty.
TEST(SyncerChunks, WalkEachTableOnceAcrossCallsAndStampItWhenDone) {
  test::TempDir dir;
  auto col = Storage::open(dir.file("c.rivo2"));
  std::vector<Row> reviews;
  for (int64_t i = 1; i <= Syncer::kChunkRows; ++i)
    reviews.push_back({i, int64_t{1}, int64_t{-1}, int64_t{3}, int64_t{1}, int64_t{0},
                       int64_t{2500}, int64_t{1000}, int64_t{1}});
  col->db()->executeMany("insert into revlog values (?,?,?,?,?,?,?,?,?)", reviews);
  auto note = col->newNote();
  note->set("Front", "x");
  col->addNote(*note);
  Syncer syncer(*col);
  syncer.maxUsn = 7;
  syncer.prepareToChunk();
  Json first = syncer.chunk();
  EXPECT_EQ(first["revlog"].size(), 250u);
  EXPECT_EQ(first["revlog"][0][2], 7);
  EXPECT_FALSE(first.contains("cards"));
  EXPECT_FALSE(SyncMessages::isDone(first));
  EXPECT_EQ(col->db()->scalarInt("select count() from revlog where usn = -1"), 250);
  Json second = syncer.chunk();
  EXPECT_EQ(second["revlog"].size(), 0u);
  EXPECT_EQ(second["cards"].size(), 1u);
  EXPECT_EQ(second["notes"][0][7], "");
  EXPECT_TRUE(SyncMessages::isDone(second));
  EXPECT_EQ(col->db()->scalarInt("select count() from revlog where usn = 7"), 250);
  EXPECT_EQ(col->db()->scalarInt("select count() from notes where usn = 7"), 1);

  // Closing the database ends a cursor still open on it.
  auto cursor = col->db()->executeQuery("select id from revlog");
  ASSERT_TRUE(cursor && cursor->next());
  col->close();
  EXPECT_FALSE(cursor->next());
}

}  // namespace
}  // namespace rivo
