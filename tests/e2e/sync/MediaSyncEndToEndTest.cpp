// Media synced by the real `rivo` between two profiles through a real rivo-syncd on 127.0.0.1.
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <regex>

#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Error.h"
#include "librivo/MediaManager.h"
#include "librivo/Storage.h"
#include "librivo/ZipWriter.h"
#include "librivo/syncing/RemoteMediaServer.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeHttpServer.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

namespace fs = std::filesystem;
using test::ProcessResult;

const std::string kComposed = "caf\xc3\xa9.jpg";     // é as one code point
const std::string kDecomposed = "cafe\xcc\x81.jpg";  // e and a combining accent

class MediaSyncE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    server = std::make_unique<test::SyncdProcess>(RIVO_SYNCD_BINARY, dir.file("srv"),
                                                  std::vector<std::string>{});
    server->addUser("ann", "secret");
    base = server->base();
    for (int p : {1, 2}) ASSERT_EQ(rivo(p, {"init"}).status, 0);
    ASSERT_EQ(rivo(1, {"sync", "--user", "ann", "--full", "upload"}).status, 0);
    ASSERT_EQ(rivo(2, {"sync", "--user", "ann", "--full", "download"}).status, 0);
  }

  std::string media(int p) const {
    return dir.file("p" + std::to_string(p)) + "/profiles/User 1/media";
  }
  std::string serverMedia() const { return dir.file("srv/users/ann/media"); }

  ProcessResult rivo(int p, std::vector<std::string> args) {
    std::vector<std::string> argv = {RIVO_BINARY, "--data", dir.file("p" + std::to_string(p))};
    argv.insert(argv.end(), args.begin(), args.end());
    return test::runProcess(argv, {"SYNC_BASE=" + base, "RIVO_PASSWORD=secret"});
  }
  void sync(int p) {
    ProcessResult r = rivo(p, {"sync"});
    ASSERT_EQ(r.status, 0) << r.err;
  }
  // Writes a file and moves its time and the folder's on, as a later second would: a scan
  // looks only when the folder's time has changed, and at files whose time has.
  void put(int p, const std::string& name, const std::string& bytes) {
    const std::string path = media(p) + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    bump(path);
    bump(media(p));
  }
  void remove(int p, const std::string& name) {
    fs::remove(media(p) + "/" + name);
    bump(media(p));
  }
  void bump(const std::string& path) {
    timespec times[2] = {{++stamp, 0}, {stamp, 0}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
  }
  static std::string read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  // Visible file names of a folder with their bytes.
  static std::map<std::string, std::string> files(const std::string& folder) {
    std::map<std::string, std::string> out;
    for (const auto& e : fs::directory_iterator(folder))
      if (e.path().filename().string()[0] != '.')
        out[MediaManager::nfc(e.path().filename().string())] = read(e.path().string());
    return out;
  }
  size_t calls(const std::string& path) {
    const std::string log = server->log();
    size_t n = 0;
    for (size_t at = log.find(path + " 200"); at != std::string::npos;
         at = log.find(path + " 200", at + 1))
      ++n;
    return n;
  }

  test::TempDir dir;
  std::unique_ptr<test::SyncdProcess> server;
  std::string base;
  time_t stamp = time(nullptr) + 10;
};

TEST_F(MediaSyncE2E, AddedChangedAndDeletedFilesArriveOnTheOtherSide) {
  put(1, "one.jpg", "first bytes");
  put(1, kComposed, "composed");
  put(2, "two.png", "from p2");
  put(2, "nai\xcc\x88ve.png", "decomposed on disk");
  sync(1);
  sync(2);
  sync(1);
  EXPECT_EQ(files(media(1)), files(media(2)));
  EXPECT_EQ(files(media(1)).size(), 4u);
  EXPECT_EQ(files(serverMedia()), files(media(1)));

  put(2, "one.jpg", "changed on p2");
  remove(1, "two.png");
  remove(2, kComposed);
  put(1, "three.gif", "new on p1");
  sync(1);
  sync(2);
  sync(1);
  auto one = files(media(1));
  EXPECT_EQ(one, files(media(2)));
  EXPECT_EQ(one["one.jpg"], "changed on p2");
  EXPECT_EQ(one.count("two.png"), 0u);
  EXPECT_EQ(one.count(kComposed), 0u);
  EXPECT_EQ(one["three.gif"], "new on p1");
  EXPECT_EQ(one[MediaManager::nfc("nai\xcc\x88ve.png")], "decomposed on disk");
  // Nothing left to do: the second sync ends after begin.
  const size_t before = calls("/msync/mediaChanges");
  sync(2);
  EXPECT_EQ(calls("/msync/mediaChanges"), before);
}

TEST_F(MediaSyncE2E, BatchesStopAt25FilesAnd2Point5MiB) {
  for (int i = 0; i < 25; ++i) put(1, "f" + std::to_string(i) + ".txt", std::to_string(i));
  sync(1);
  EXPECT_EQ(calls("/msync/uploadChanges"), 1u);
  // Two files of 1.25 MiB reach the limit exactly; the third goes in a batch of its own.
  for (int i = 0; i < 3; ++i) put(1, "big" + std::to_string(i), std::string(0x140000, 'a' + i));
  sync(1);
  EXPECT_EQ(calls("/msync/uploadChanges"), 3u);
  sync(2);
  EXPECT_EQ(files(media(2)), files(media(1)));
  EXPECT_EQ(files(media(2)).size(), 28u);
  EXPECT_GE(calls("/msync/downloadFiles"), 3u);
}

// Forwards to rivo-syncd, and cuts the connection of the nth call of one media method.
class CuttingProxy {
 public:
  CuttingProxy(const std::string& target, std::string path, int nth)
      : _path(std::move(path)), _nth(nth) {
    const std::string hostPort = target.substr(7, target.size() - 8);
    const size_t colon = hostPort.rfind(':');
    _fake.respond(
        [this, host = hostPort.substr(0, colon), port = std::stoi(hostPort.substr(colon + 1))](
            const test::FakeHttpServer::Request& req, httplib::Response& res) {
          if (req.path == _path && --_nth == 0) return test::FakeHttpServer::cut(res);
          httplib::Client client(host, port);
          auto reply = client.Post(req.path.c_str(), req.body, req.contentType.c_str());
          if (!reply) return test::FakeHttpServer::reply(res, 502, "");
          test::FakeHttpServer::reply(res, reply->status, reply->body);
        });
  }
  std::string base() const { return _fake.base(); }

 private:
  std::string _path;
  std::atomic<int> _nth;
  test::FakeHttpServer _fake;
};

TEST_F(MediaSyncE2E, AnInterruptedSyncIsResumedByTheNextOne) {
  for (int i = 0; i < 40; ++i) put(1, "f" + std::to_string(i) + ".txt", "up " + std::to_string(i));
  const std::string direct = base;
  {
    CuttingProxy proxy(direct, "/msync/uploadChanges", 2);
    base = proxy.base();
    EXPECT_EQ(rivo(1, {"sync"}).status, 1);
  }
  EXPECT_EQ(files(serverMedia()).size(), 25u);
  for (int i = 0; i < 40; ++i)
    put(2, "g" + std::to_string(i) + ".txt", "down " + std::to_string(i));
  base = direct;
  sync(2);
  {
    CuttingProxy proxy(direct, "/msync/downloadFiles", 2);
    base = proxy.base();
    EXPECT_EQ(rivo(1, {"sync"}).status, 1);
  }
  base = direct;
  sync(1);
  sync(2);
  EXPECT_EQ(files(media(1)).size(), 80u);
  EXPECT_EQ(files(media(1)), files(media(2)));
  EXPECT_EQ(files(serverMedia()), files(media(1)));
}

TEST_F(MediaSyncE2E, WithDownloadMediaOffTheMediaIsLeftAlone) {
  put(1, "kept.jpg", "local only");
  const std::string prefs = dir.file("p1/Preferences.json");
  std::string text = read(prefs);
  text = std::regex_replace(text, std::regex("\"User 1_downloadMedia\": true"),
                            "\"User 1_downloadMedia\": false");
  std::ofstream(prefs) << text;
  const size_t before = calls("/msync/begin");
  sync(1);
  EXPECT_EQ(calls("/msync/begin"), before);
  EXPECT_TRUE(files(serverMedia()).empty() || !fs::exists(serverMedia()));
}

// The server checks names as strictly as the client does: a batch naming a path is refused
// whole and nothing is written.
TEST_F(MediaSyncE2E, TheServerRefusesABatchWithANameThatLeavesTheFolder) {
  const std::string hkey = read(dir.file("p1/Preferences.json"));
  std::smatch m;
  ASSERT_TRUE(std::regex_search(hkey, m, std::regex("\"User 1_hkey\": \"([^\"]+)\"")));
  setenv("SYNC_BASE", base.c_str(), 1);
  for (const std::string& bad : {std::string("../escape.txt"), std::string("a/b.txt"),
                                 std::string(".."), std::string("x\ny")}) {
    SCOPED_TRACE(bad);
    RemoteMediaServer remote(nullptr, m[1].str());
    Error err;
    ASSERT_TRUE(remote.begin(&err)) << err.message;
    const std::string path = dir.file("batch.zip");
    ZipWriter zip(path);
    zip.add("0", "fine", 0);
    zip.add("1", "evil", 0);
    zip.add("_meta", Json::array({{"ok.txt", "0"}, {bad, "1"}}).dump());
    zip.close();
    EXPECT_FALSE(remote.uploadChanges(read(path), &err));
    EXPECT_NE(err.message.find("refused"), std::string::npos) << err.message;
  }
  EXPECT_FALSE(fs::exists(dir.file("srv/users/ann/escape.txt")));
  EXPECT_TRUE(files(serverMedia()).empty());
  unsetenv("SYNC_BASE");
}

}  // namespace
}  // namespace rivo
