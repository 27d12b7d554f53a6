// Real profiles synced by the real `rivo` against a real rivo-syncd over HTTP on 127.0.0.1.
// Profiles are changed between syncs through the collection core, as the application would.
#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "bench/CollectionGenerator.h"
#include "librivo/Card.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Error.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"
#include "librivo/Scheduler.h"
#include "librivo/Storage.h"
#include "librivo/TagManager.h"
#include "librivo/syncing/RemoteServer.h"
#include "librivo/syncing/Syncer.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/CollectionDump.h"
#include "tests/support/FakeHttpServer.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

using test::dumpCollection;
using test::ProcessResult;

const std::string kFullNeeded = "can't be merged together";

class SyncE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    server = std::make_unique<test::SyncdProcess>(
        RIVO_SYNCD_BINARY, dir.file("srv"),
        std::vector<std::string>{"--idle-timeout", "1", "--login-failures", "2"});
    server->addUser("ann", "secret");
    base = server->base();
  }

  std::string data(int p) const { return dir.file("p" + std::to_string(p)); }
  std::string colPath(int p) const { return data(p) + "/profiles/User 1/collection.rivo2"; }
  std::string serverCol() const { return dir.file("srv/users/ann/collection.rivo2"); }

  ProcessResult rivo(int p, std::vector<std::string> args) {
    std::vector<std::string> argv = {RIVO_BINARY, "--data", data(p)};
    argv.insert(argv.end(), args.begin(), args.end());
    return test::runProcess(argv, {"SYNC_BASE=" + base, "RIVO_PASSWORD=secret"});
  }
  // p1 uploads a fresh collection; p2 downloads it.
  void twoProfiles() {
    for (int p : {1, 2}) ASSERT_EQ(rivo(p, {"init"}).status, 0);
    edit(1, [](Col& col) { addNote(col, "first", "start"); });
    ASSERT_EQ(rivo(1, {"sync", "--user", "ann", "--full", "upload"}).status, 0);
    ASSERT_EQ(rivo(2, {"sync", "--user", "ann", "--full", "download"}).status, 0);
  }
  void edit(int p, const std::function<void(Col&)>& change) {
    auto col = Storage::open(colPath(p));
    ASSERT_TRUE(col);
    change(*col);
    col->save();
    col->close();
  }
  static Id addNote(Col& col, const std::string& front, const std::string& tags = "") {
    auto note = col.newNote();
    note->set("Front", front);
    note->setTagsFromStr(tags);
    col.addNote(*note);
    return note->id;
  }
  int64_t count(const std::string& path, const std::string& sql) {
    DB db(path);
    int64_t n = db.scalarInt(sql);
    db.close();
    return n;
  }
  // Three sides with the same content.
  void expectSame() {
    const std::string one = dumpCollection(colPath(1));
    EXPECT_EQ(one, dumpCollection(colPath(2)));
    EXPECT_EQ(one, dumpCollection(serverCol()));
  }

  test::TempDir dir;
  std::unique_ptr<test::SyncdProcess> server;
  std::string base;
};

TEST_F(SyncE2E, ProfilesMergeEveryKindOfChangeThroughTheServer) {
  ASSERT_EQ(rivo(1, {"init"}).status, 0);
  ProcessResult r = rivo(1, {"sync", "--user", "ann"});
  EXPECT_EQ(r.status, 3) << r.err;
  EXPECT_NE(r.err.find(kFullNeeded), std::string::npos);
  r = rivo(1, {"sync", "--full", "upload"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Uploaded the collection to RivoWeb.\n");
  ASSERT_EQ(rivo(2, {"init"}).status, 0);
  r = rivo(2, {"sync", "--user", "ann", "--full", "download"});
  ASSERT_EQ(r.status, 0) << r.err;
  expectSame();

  // Decks and note types carry their mod in seconds and a tie keeps what the receiver has:
  // the edits come a few seconds after the profiles were made.
  edit(1, [](Col& col) {
    Clock::Override later(Clock::now() + 2);
    col.decks().getID("Languages::French");
    addNote(col, "bonjour", "french");
    col.decks().confIdForName("Slow and steady");
    col.models().copy(*col.models().byName("Basic"));
    col.reset();
    auto card = col.sched().getCard();
    ASSERT_TRUE(card);
    col.sched().answerCard(*card, 3);
  });
  edit(2, [](Col& col) {
    Clock::Override later(Clock::now() + 5);
    addNote(col, "hola", "spanish");
    Json* conf = col.decks().getConf(Json(1));
    (*conf)["maxTaken"] = 90;
    col.decks().save(conf);
    Json* basic = col.models().byName("Basic");
    (*basic)["css"] = ".card { color: navy; }";
    col.models().save(basic);
  });
  for (int p : {1, 2, 1}) {
    r = rivo(p, {"sync"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "Sync complete.\n");
  }
  expectSame();
  const std::string merged = dumpCollection(colPath(1));
  for (const char* expected : {"bonjour", "hola", "french", "spanish", "Languages::French",
                               "Slow and steady", "Basic copy", "color: navy", "\"maxTaken\": 90"})
    EXPECT_NE(merged.find(expected), std::string::npos) << expected;
  EXPECT_EQ(count(colPath(2), "select count() from revlog"), 1);
  // Every finished sync stamps the server anew, so only the last to sync is current.
  EXPECT_EQ(rivo(1, {"sync"}).out, "No changes to sync.\n");
  EXPECT_EQ(rivo(2, {"sync"}).out, "Sync complete.\n");
  EXPECT_EQ(rivo(2, {"sync"}).out, "No changes to sync.\n");
}

TEST_F(SyncE2E, EqualModsKeepEachSidesOwnAndDeletionsTravelAsGraves) {
  twoProfiles();
  Id nid = 0;
  edit(1, [&](Col& col) { nid = addNote(col, "short-lived"); });
  ASSERT_EQ(rivo(1, {"sync"}).status, 0);
  ASSERT_EQ(rivo(2, {"sync"}).status, 0);
  const Id cid = count(colPath(1), "select min(id) from cards");
  // The same card changed on both sides in the same second.
  for (int p : {1, 2})
    edit(p, [&](Col& col) {
      col.db()->run("update cards set ivl = ?, mod = 1700000000, usn = -1 where id = ?",
                    {int64_t{10 * p}, cid});
    });
  edit(1, [&](Col& col) { col.remNotes({nid}); });
  ASSERT_EQ(rivo(1, {"sync"}).status, 0);
  ASSERT_EQ(rivo(2, {"sync"}).status, 0);
  const std::string ivl = "select ivl from cards where id = " + std::to_string(cid);
  EXPECT_EQ(count(colPath(1), ivl), 10);
  EXPECT_EQ(count(serverCol(), ivl), 10);
  EXPECT_EQ(count(colPath(2), ivl), 20);
  const std::string notes = "select count() from notes where id = " + std::to_string(nid);
  EXPECT_EQ(count(colPath(2), notes), 0);
  EXPECT_EQ(count(serverCol(), notes), 0);
  EXPECT_EQ(count(colPath(2), "select count() from graves"),
            count(serverCol(), "select count() from graves"));
  EXPECT_GT(count(colPath(2), "select count() from graves"), 0);
}

TEST_F(SyncE2E, ASchemaChangeForcesAFullSyncInEachDirection) {
  twoProfiles();
  edit(1, [](Col& col) {
    Json* basic = col.models().byName("Basic");
    col.models().addField(*basic, col.models().newField("Extra"));
    col.models().save(basic);
  });
  edit(2, [](Col& col) { addNote(col, "lost when p2 downloads"); });
  ProcessResult r = rivo(1, {"sync"});
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.err.find("--full upload"), std::string::npos);
  ASSERT_EQ(rivo(1, {"sync", "--full", "upload"}).status, 0);
  r = rivo(2, {"sync"});
  EXPECT_EQ(r.status, 3);
  r = rivo(2, {"sync", "--full", "download"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Downloaded the collection from RivoWeb.\n");
  expectSame();
  EXPECT_NE(dumpCollection(colPath(2)).find("\"Extra\""), std::string::npos);
  EXPECT_EQ(dumpCollection(colPath(2)).find("lost when"), std::string::npos);
  EXPECT_EQ(rivo(2, {"sync"}).out, "No changes to sync.\n");
}

TEST_F(SyncE2E, TheClockTestAndTheComparisonGuardTheMerge) {
  twoProfiles();
  edit(1, [](Col& col) { addNote(col, "changed"); });
  RemoteServer login;
  Error err;
  ASSERT_EQ(setenv("SYNC_BASE", base.c_str(), 1), 0);
  std::optional<std::string> hkey = login.hostKeyForUser("ann", "secret", &err);
  ASSERT_TRUE(hkey) << err.message;
  // The client's clock stands still while the server's runs on, so the accepted offset keeps
  // a margin for a slow machine.
  for (int offset : {320, -270}) {
    SCOPED_TRACE(offset);
    Clock::Override clock(Clock::now() + offset);
    auto col = Storage::open(colPath(1));
    RemoteServer remote(*hkey);
    Syncer syncer(*col, &remote);
    auto result = syncer.sync(&err);
    if (offset > 0) {
      EXPECT_FALSE(result);
      EXPECT_EQ(err.message,
                "Please ensure your clock is set to the correct date and time, then try again.");
    } else {
      EXPECT_EQ(result, "success") << err.message;
    }
    col->closeAndSave(false);
  }

  // A review row the server never gets makes the counts differ after the merge.
  edit(1, [](Col& col) {
    addNote(col, "another");
    col.db()->run("insert into revlog values (1, 1, 0, 3, 1, 0, 2500, 1000, 1)");
  });
  const std::string serverBefore = dumpCollection(serverCol(), true);
  ProcessResult r = rivo(1, {"sync"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("After syncing, the collection was in an inconsistent state."),
            std::string::npos)
      << r.err;
  EXPECT_EQ(dumpCollection(serverCol(), true), serverBefore);
  EXPECT_EQ(count(colPath(1), "select count() from notes where usn = -1"), 1);
  EXPECT_EQ(rivo(1, {"sync"}).status, 3);
}

// A proxy in front of rivo-syncd that cuts the connection of one chosen call.
class CuttingProxy {
 public:
  explicit CuttingProxy(const std::string& target) {
    const std::string hostPort = target.substr(7, target.size() - 8);
    const size_t colon = hostPort.rfind(':');
    _host = hostPort.substr(0, colon);
    _port = std::stoi(hostPort.substr(colon + 1));
    _fake.respond([this](const test::FakeHttpServer::Request& req, httplib::Response& res) {
      const bool cut = !_method.empty() && req.path == "/sync/" + _method;
      if (cut) _method.clear();
      if (cut && !_afterForwarding) return test::FakeHttpServer::cut(res);
      httplib::Client client(_host, _port);
      client.set_read_timeout(60);
      auto reply = client.Post(req.path.c_str(), req.body, req.contentType.c_str());
      if (!reply) return test::FakeHttpServer::reply(res, 502, "");
      if (cut) return test::FakeHttpServer::cut(res);
      test::FakeHttpServer::reply(res, reply->status, reply->body);
    });
  }
  std::string base() const { return _fake.base(); }
  void cutAt(const std::string& method, bool afterForwarding) {
    _afterForwarding = afterForwarding;
    _method = method;
  }

 private:
  std::string _host;
  int _port = 0;
  std::string _method;
  std::atomic<bool> _afterForwarding{false};
  test::FakeHttpServer _fake;
};

TEST_F(SyncE2E, ACutConnectionLeavesBothSidesAsTheyWereAndTheNextSyncCompletes) {
  twoProfiles();
  CuttingProxy proxy(base);
  const std::string direct = base;
  base = proxy.base();
  auto rollbacks = [this] {
    const std::string log = server->log();
    size_t n = 0;
    for (size_t at = log.find("rolled back"); at != std::string::npos;
         at = log.find("rolled back", at + 1))
      ++n;
    return n;
  };
  int round = 0;
  for (const char* method :
       {"start", "applyChanges", "chunk", "applyChunk", "sanityCheck2", "finish"}) {
    SCOPED_TRACE(method);
    edit(1, [&](Col& col) { addNote(col, "round " + std::to_string(++round)); });
    const std::string clientBefore = dumpCollection(colPath(1), true);
    const std::string serverBefore = dumpCollection(serverCol(), true);
    const size_t rolledBack = rollbacks();
    proxy.cutAt(method, false);
    ProcessResult r = rivo(1, {"sync"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(dumpCollection(colPath(1), true), clientBefore);
    // The server lets go of the sync after its idle time-out.
    if (std::string(method) != "start")
      for (int i = 0; i < 100 && rollbacks() == rolledBack; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(dumpCollection(serverCol(), true), serverBefore);
    r = rivo(1, {"sync"});
    EXPECT_EQ(r.status, 0) << r.err;
  }

  // The server finished but its answer was lost: the next sync brings the two together.
  edit(1, [&](Col& col) { addNote(col, "finished, unheard"); });
  proxy.cutAt("finish", true);
  EXPECT_EQ(rivo(1, {"sync"}).status, 1);
  EXPECT_EQ(rivo(1, {"sync"}).status, 0);
  EXPECT_EQ(rivo(2, {"sync"}).status, 0);
  EXPECT_EQ(rivo(1, {"sync"}).status, 0);
  expectSame();

  // Full syncs: a cut download changes nothing; a cut upload leaves the server as it was.
  const std::string two = dumpCollection(colPath(2), true);
  const std::string serverBefore = dumpCollection(serverCol(), true);
  proxy.cutAt("download", false);
  EXPECT_EQ(rivo(2, {"sync", "--full", "download"}).status, 1);
  proxy.cutAt("upload", false);
  EXPECT_EQ(rivo(1, {"sync", "--full", "upload"}).status, 1);
  EXPECT_EQ(dumpCollection(serverCol(), true), serverBefore);
  EXPECT_EQ(rivo(1, {"sync", "--full", "upload"}).status, 0);
  EXPECT_EQ(rivo(2, {"sync", "--full", "download"}).status, 0);
  expectSame();
  base = direct;
}

TEST_F(SyncE2E, LoginFailuresAndLostKeysSayWhatHappened) {
  ASSERT_EQ(rivo(1, {"init"}).status, 0);
  ProcessResult r = rivo(1, {"sync"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Not logged in"), std::string::npos);
  r = test::runProcess({RIVO_BINARY, "--data", data(1), "sync", "--user", "ann"},
                       {"SYNC_BASE=" + base, "RIVO_PASSWORD=wrong"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "rivo: Incorrect username or password. Please try again.\n");
  // The password can come from standard input too.
  r = test::runProcess(
      {RIVO_BINARY, "--data", data(1), "sync", "--user", "ann", "--full", "upload"},
      {"SYNC_BASE=" + base, "RIVO_PASSWORD="}, "secret\n");
  EXPECT_EQ(r.status, 0) << r.err;
  // Guessing stops after two failures for a name, even the right password then, while other
  // accounts log in as before.
  server->addUser("bob", "secret");
  for (const char* password : {"guess1", "guess2", "secret"})
    r = test::runProcess({RIVO_BINARY, "--data", data(1), "sync", "--user", "bob"},
                         {"SYNC_BASE=" + base, std::string("RIVO_PASSWORD=") + password});
  EXPECT_EQ(r.err, "rivo: RivoWeb is too busy at the moment. Please try again in a few minutes.\n");
  EXPECT_EQ(rivo(1, {"sync", "--user", "ann"}).status, 0);
  // A new password ends the old key: the profile must log in again.
  ASSERT_EQ(test::runProcess({RIVO_SYNCD_BINARY, "--data", dir.file("srv"), "passwd", "ann"}, {},
                             "changed\n")
                .status,
            0);
  r = rivo(1, {"sync"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "rivo: Authentication failed. Please log in again.\n");
  EXPECT_NE(rivo(1, {"sync"}).err.find("Not logged in"), std::string::npos);
}

}  // namespace
}  // namespace rivo

namespace rivo {
namespace {

#ifndef RIVO_SANITIZED
// Both directions of a full sync of a 200 MB collection, measured by the kernel's own
// accounting of each process's peak resident memory.
TEST(SyncMemory, AFullSyncOfA200MbCollectionStaysUnder64MbOnBothSides) {
  constexpr long kLimitKb = 64 * 1024;
  test::TempDir dir;
  GeneratorOptions options;
  options.notes = 180000;
  options.cards = 360000;
  options.revlog = 1800000;
  CollectionGenerator(options).generate(dir.file("p1"), "User 1");
  const std::string path = dir.file("p1/profiles/User 1/collection.rivo2");
  ASSERT_GT(std::filesystem::file_size(path), 200000000u);

  auto server = std::make_unique<test::SyncdProcess>(RIVO_SYNCD_BINARY, dir.file("srv"));
  server->addUser("ann", "secret");
  const std::vector<std::string> env = {"SYNC_BASE=" + server->base(), "RIVO_PASSWORD=secret"};
  ASSERT_EQ(test::runProcess({RIVO_BINARY, "--data", dir.file("p2"), "init"}).status, 0);
  for (const auto& [profile, direction] : {std::pair{"p1", "upload"}, {"p2", "download"}}) {
    SCOPED_TRACE(direction);
    ProcessResult r = test::runProcess(
        {RIVO_BINARY, "--data", dir.file(profile), "sync", "--user", "ann", "--full", direction},
        env);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_LT(r.maxRssKb, kLimitKb);
    std::printf("rivo sync --full %s: peak %ld kB\n", direction, r.maxRssKb);
  }
  ProcessResult stopped = server->stop();
  EXPECT_LT(stopped.maxRssKb, kLimitKb);
  std::printf("rivo-syncd: peak %ld kB\n", stopped.maxRssKb);
  DB db(dir.file("p2/profiles/User 1/collection.rivo2"));
  EXPECT_EQ(db.scalarInt("select count() from revlog"), options.revlog);
  db.close();
}
#endif

}  // namespace
}  // namespace rivo
