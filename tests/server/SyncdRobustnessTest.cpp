// rivo-syncd as a program, fed bad requests of every kind for one account while another
// account syncs: every bad request is refused, nothing is written for it, the good sync goes on.
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "librivo/Col.h"
#include "librivo/Compression.h"
#include "librivo/DB.h"
#include "librivo/Error.h"
#include "librivo/Note.h"
#include "librivo/Storage.h"
#include "librivo/syncing/FullSyncer.h"
#include "librivo/syncing/RemoteServer.h"
#include "librivo/syncing/Syncer.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/CollectionDump.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

// A multipart body as the client builds it; `data` gzipped unless `c` says "0".
std::string body(const std::map<std::string, std::string>& fields, const std::string* data,
                 const std::string& c = "1") {
  std::string out;
  std::map<std::string, std::string> all = fields;
  all["c"] = c;
  for (const auto& [k, v] : all)
    out += "--B\r\nContent-Disposition: form-data; name=\"" + k + "\"\r\n\r\n" + v + "\r\n";
  if (data)
    out += "--B\r\nContent-Disposition: form-data; name=\"data\"; filename=\"data\"\r\n\r\n" +
           (c == "1" ? gzipDeflate(*data, 6) : *data) + "\r\n--B--\r\n";
  return out;
}

class Robustness : public ::testing::Test {
 protected:
  void SetUp() override {
    syncd = std::make_unique<test::SyncdProcess>(RIVO_SYNCD_BINARY, dir.file("srv"));
    syncd->addUser("good", "pw");
    syncd->addUser("bad", "pw");
    setenv("SYNC_BASE", syncd->base().c_str(), 1);
    const std::string hostPort = syncd->base().substr(7, syncd->base().size() - 8);
    port = std::stoi(hostPort.substr(hostPort.rfind(':') + 1));
  }
  int post(const std::string& method, const std::string& payload,
           const std::string& type = "multipart/form-data; boundary=B") {
    httplib::Client client("127.0.0.1", port);
    auto res = client.Post(("/sync/" + method).c_str(), payload, type.c_str());
    return res ? res->status : -1;
  }
  std::string key(const std::string& user) {
    RemoteServer remote;
    Error err;
    return remote.hostKeyForUser(user, "pw", &err).value_or("");
  }

  test::SavedEnv base{"SYNC_BASE"};
  test::TempDir dir;
  std::unique_ptr<test::SyncdProcess> syncd;
  int port = 0;
};

TEST_F(Robustness, BadRequestsAreRefusedWithoutTouchingAnythingWhileAnotherAccountSyncs) {
  // The good account: a collection uploaded, then synced again and again during the storm.
  const std::string goodKey = key("good");
  const std::string path = dir.file("good.rivo2");
  auto col = Storage::open(path);
  Error err;
  ASSERT_TRUE(FullSyncer(col.get(), goodKey).upload(&err)) << err.message;
  col->reopen();
  std::vector<std::string> results;
  std::thread goodSyncs([&] {
    for (int i = 0; i < 6; ++i) {
      auto note = col->newNote();
      note->set("Front", "good " + std::to_string(i));
      col->addNote(*note);
      col->save();
      RemoteServer remote(goodKey);
      Syncer syncer(*col, &remote);
      Error e;
      results.push_back(syncer.sync(&e).value_or(e.message));
      col->closeAndSave(false);
      col->reopen();
    }
  });

  const std::string badKey = key("bad");
  const std::map<std::string, std::string> auth = {{"k", badKey}, {"s", "sess1"}};
  const std::string empty = "{}";
  ASSERT_EQ(post("meta", body(auth, &empty)), 200);  // makes the account's collection
  const std::string badCol = dir.file("srv/users/bad/collection.rivo2");
  const std::string before = test::dumpCollection(badCol, true);

  const Json graves = {{"cards", Json::array()}, {"notes", Json::array()}, {"decks", {"1"}}};
  const std::string start = Json{{"minUsn", 0}, {"lnewer", false}, {"graves", graves}}.dump();
  const std::string noChanges = R"({"changes": {"models": [], "decks": [[], []], "tags": []}})";
  std::string gz = gzipDeflate(start, 6);
  const std::string truncated = body(auth, nullptr) +
                                "--B\r\nContent-Disposition: form-data; name=\"data\"; "
                                "filename=\"data\"\r\n\r\n" +
                                gz.substr(0, gz.size() / 2) + "\r\n--B--\r\n";
  const std::string deep = std::string(5000, '[') + std::string(5000, ']');
  const std::string bomb(40 << 20, '\0');
  const std::string wrongColumns = R"({"chunk": {"cards": [[1, 2, 3]], "done": true}})";
  const std::string notACollection = "SQLite format 3, or so it says";
  {
    auto other = Storage::open(dir.file("not-utf8.rivo2"));
    other->db()->run("insert into notes values (1, 'g', 1, 1, 0, ?, 'a', 'a', 0, 0, '')",
                     {std::string(" x\xff ")});
    other->close();
  }
  const std::string notUtf8 = test::readFile(dir.file("not-utf8.rivo2"));
  const std::string wrongLogin = R"({"u": "bad", "p": "no"})";
  const std::string badGraves = R"({"minUsn": 0, "graves": 7})";

  EXPECT_EQ(post("meta", "garbage, not a form"), 400);
  EXPECT_EQ(post("meta", body(auth, &empty), "application/json"), 400);
  EXPECT_EQ(post("meta", body({{"k", "not a key"}}, &empty)), 403);
  EXPECT_EQ(post("hostKey", body({}, &wrongLogin)), 403);
  EXPECT_EQ(post("nonsense", body(auth, &empty)), 404);
  EXPECT_EQ(post("start", truncated), 400);
  EXPECT_EQ(post("start", body(auth, &deep)), 400);
  EXPECT_EQ(post("start", body(auth, &bomb)), 413);
  EXPECT_EQ(post("chunk", body(auth, &empty)), 400);  // no sync started
  EXPECT_EQ(post("start", body(auth, &badGraves)), 400);
  // Out of order: the failed call ends the sync, so later calls find none.
  EXPECT_EQ(post("start", body(auth, &start)), 200);
  EXPECT_EQ(post("finish", body(auth, &empty)), 400);
  EXPECT_EQ(post("applyChanges", body(auth, &noChanges)), 400);
  // A chunk that doesn't fit the tables, after a proper beginning.
  EXPECT_EQ(post("start", body(auth, &start)), 200);
  EXPECT_EQ(post("applyChanges", body(auth, &noChanges)), 200);
  EXPECT_EQ(post("chunk", body(auth, &empty)), 200);
  EXPECT_EQ(post("applyChunk", body(auth, &wrongColumns)), 400);
  EXPECT_EQ(post("upload", body({{"k", badKey}}, &notACollection)), 400);
  EXPECT_EQ(post("upload", body({{"k", badKey}}, &notUtf8)), 400);

  // A declared size over the limit is refused at once, before any of the body is sent.
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  const std::string head =
      "POST /sync/upload HTTP/1.1\r\nHost: x\r\nContent-Type: multipart/form-data; "
      "boundary=B\r\nContent-Length: 999999999999\r\n\r\n";
  ASSERT_EQ(::send(fd, head.data(), head.size(), 0), static_cast<ssize_t>(head.size()));
  char reply[256] = {0};
  ASSERT_GT(::recv(fd, reply, sizeof reply - 1, 0), 0);
  EXPECT_EQ(std::string(reply).substr(0, 12), "HTTP/1.1 413");
  ::close(fd);

  goodSyncs.join();
  EXPECT_EQ(results, std::vector<std::string>(6, "success"));
  col->close();
  EXPECT_EQ(test::dumpCollection(path),
            test::dumpCollection(dir.file("srv/users/good/collection.rivo2")));
  EXPECT_EQ(test::dumpCollection(badCol, true), before);
  EXPECT_TRUE(std::filesystem::is_empty(dir.file("srv/tmp")));
  const std::string log = syncd->stop().out;
  EXPECT_NE(log.find("POST /sync/applyChunk 400"), std::string::npos) << log;
}

}  // namespace
}  // namespace rivo
