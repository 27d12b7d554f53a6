// The media sync client against a scripted service that misbehaves: whatever it sends, nothing
// is written outside the media folder, the sync stops with a clear message, and the media
// database stays fit for the next sync.
#include <gtest/gtest.h>
#include <httplib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Error.h"
#include "librivo/MediaManager.h"
#include "librivo/Storage.h"
#include "librivo/ZipWriter.h"
#include "librivo/syncing/MediaSyncer.h"
#include "librivo/syncing/RemoteMediaServer.h"
#include "tests/support/FakeHttpServer.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

namespace fs = std::filesystem;

class MediaSyncerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("SYNC_BASE", server.base().c_str(), 1);
    fs::create_directories(dir.file("p"));
    col = Storage::open(dir.file("p/collection.rivo2"));
    ASSERT_TRUE(col);
    server.respond([this](const test::FakeHttpServer::Request& req, httplib::Response& res) {
      const std::string method = req.path.substr(req.path.rfind('/') + 1);
      if (method == "begin") return reply(res, {{"usn", 9}, {"sk", "abc"}});
      if (method == "mediaChanges") return reply(res, changes(++changeCalls));
      if (method == "downloadFiles") return test::FakeHttpServer::reply(res, 200, zip);
      if (method == "mediaSanity") return reply(res, "OK");
      reply(res, Json::array({0, 9}));
    });
  }
  void TearDown() override {
    col->close();
    unsetenv("SYNC_BASE");
  }
  static void reply(httplib::Response& res, const Json& data) {
    test::FakeHttpServer::reply(res, 200, Json{{"data", data}, {"err", ""}}.dump());
  }
  std::string makeZip(const std::vector<std::pair<std::string, std::string>>& entries,
                      const Json& meta) {
    const std::string path = dir.file("batch.zip");
    ZipWriter writer(path);
    for (const auto& [name, bytes] : entries) writer.add(name, bytes, 0);
    writer.add("_meta", meta.dump());
    writer.close();
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  std::optional<std::string> runSync(Error& err) {
    RemoteMediaServer remote(col.get(), "key");
    MediaSyncer syncer(*col, &remote);
    return syncer.sync(&err);
  }

  test::TempDir dir;
  test::FakeHttpServer server;
  std::unique_ptr<Col> col;
  std::function<Json(int call)> changes = [](int call) {
    return call == 1 ? Json::array({{"a.jpg", 5, "aaaa"}, {"b.jpg", 9, "bbbb"}}) : Json::array();
  };
  int changeCalls = 0;
  std::string zip;
};

TEST_F(MediaSyncerTest, ABadBatchIsRefusedWholeAndTheUsnStays) {
  struct Case {
    const char* what;
    std::vector<std::pair<std::string, std::string>> entries;
    Json meta;
    const char* message;
  };
  const std::vector<Case> cases = {
      {"a file listed but missing", {{"0", "A"}}, {{"0", "a.jpg"}, {"1", "b.jpg"}}, "doesn't hold"},
      {"an entry not listed", {{"0", "A"}, {"7", "B"}}, {{"0", "a.jpg"}}, "doesn't name"},
      {"not a zip", {}, nullptr, "readable"},
      {"no files at all", {}, Json::object(), "none of the media files"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    changeCalls = 0;
    zip = c.meta.is_null() ? std::string("PK but not really") : makeZip(c.entries, c.meta);
    Error err;
    EXPECT_FALSE(runSync(err));
    EXPECT_NE(err.message.find(c.message), std::string::npos) << err.message;
    EXPECT_EQ(col->media().lastUsn(), 0);
    EXPECT_FALSE(col->media().have("a.jpg"));
    EXPECT_EQ(col->media().syncInfo("a.jpg").first, "");
  }
}

TEST_F(MediaSyncerTest, NamesThatLeaveTheFolderAreNeverWritten) {
  changes = [](int call) {
    return call == 1
               ? Json::array(
                     {{"../up.jpg", 3, "aaaa"}, {"/abs.jpg", 4, "bbbb"}, {"ok.jpg", 9, "cccc"}})
               : Json::array();
  };
  zip = makeZip({{"0", "U"}, {"1", "A"}, {"2", "fine"}},
                {{"0", "../up.jpg"}, {"1", "/abs.jpg"}, {"2", "ok.jpg"}});
  Error err;
  ASSERT_TRUE(runSync(err)) << err.message;
  EXPECT_FALSE(fs::exists(dir.file("p/up.jpg")));
  EXPECT_FALSE(fs::exists("/abs.jpg"));
  EXPECT_TRUE(col->media().have("ok.jpg"));
  EXPECT_EQ(col->media().lastUsn(), 9);
}

TEST_F(MediaSyncerTest, AServiceRepeatingItselfIsStopped) {
  changes = [](int) { return Json::array({{"a.jpg", 0, ""}}); };
  Error err;
  EXPECT_FALSE(runSync(err));
  EXPECT_NE(err.message.find("keeps sending the same"), std::string::npos) << err.message;
  // An upload the service says it took none of would be sent for ever.
  changes = [](int) { return Json::array(); };
  fs::create_directories(col->media().dir());
  std::ofstream(col->media().dir() + "/new.jpg") << "x";
  col->media().forceResync();
  EXPECT_FALSE(runSync(err));
  EXPECT_NE(err.message.find("took 0 of 1"), std::string::npos) << err.message;
  EXPECT_EQ(col->media().dirtyCount(), 1);
}

}  // namespace
}  // namespace rivo
