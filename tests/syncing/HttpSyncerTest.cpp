// The transport against a test server: the bytes of each request, the status texts, and
// failures of the connection itself.
#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "librivo/Compression.h"
#include "librivo/Error.h"
#include "librivo/Files.h"
#include "librivo/syncing/HttpSyncer.h"
#include "librivo/syncing/SyncListener.h"
#include "tests/support/FakeHttpServer.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

using test::FakeHttpServer;

const std::string kDelim = "--Rivo-sync-boundary\r\n";
const std::string kDataHead = kDelim +
                              "Content-Disposition: form-data; name=\"data\"; filename=\"data\"\r\n"
                              "Content-Type: application/octet-stream\r\n\r\n";
const std::string kTail = "\r\n--Rivo-sync-boundary--\r\n";

std::string field(const std::string& name, const std::string& value) {
  return kDelim + "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
}

struct Counter : SyncListener {
  int64_t received = 0, sent = 0;
  float progress = 0;
  void receivedData(int64_t n) override { received += n; }
  void sentData(int64_t n, float p) override {
    sent += n;
    progress = p;
  }
};

class Transport : public ::testing::Test {
 protected:
  void SetUp() override { setenv("SYNC_BASE", server.base().c_str(), 1); }
  // The data part of the last request.
  std::string dataPart() {
    std::string body = server.requests().back().body;
    size_t start = body.find(kDataHead);
    if (start == std::string::npos) return {};
    start += kDataHead.size();
    return body.substr(start, body.size() - start - kTail.size());
  }
  test::SavedEnv base{"SYNC_BASE"};
  FakeHttpServer server;
};

TEST_F(Transport, RequestBodiesAreBuiltAsTheProtocolSays) {
  Counter counter;
  HttpSyncer http("key", Json{{"k", "key"}});
  http.listener = &counter;
  server.respond(
      [](const auto&, httplib::Response& res) { FakeHttpServer::reply(res, 200, "OK!"); });

  // No payload: the fields alone, without a closing delimiter.
  http.reqWithMethod("download");
  ASSERT_TRUE(http.waitForCompletion());
  auto req = server.requests().back();
  EXPECT_EQ(req.path, "/download");
  EXPECT_EQ(req.contentType, "multipart/form-data; boundary=Rivo-sync-boundary");
  EXPECT_EQ(req.body, field("c", "1") + field("k", "key"));
  EXPECT_EQ(counter.received, 3);

  // An empty JSON object is a payload, gzipped; its temporary file goes.
  std::string tmp = tmpFileFromData(kDefaultTmpDir, std::string("{}"));
  http.reqWithMethod("meta", tmp, 6);
  EXPECT_EQ(http.waitForReqData(), "OK!");
  EXPECT_FALSE(std::filesystem::exists(tmp));
  EXPECT_FALSE(std::filesystem::exists(http.downloadPath));
  EXPECT_EQ(server.requests().back().body.substr(0, field("c", "1").size()), field("c", "1"));
  EXPECT_EQ(gzipInflate(dataPart()), "{}");
  EXPECT_FLOAT_EQ(counter.progress, 1.0f);
  EXPECT_EQ(counter.sent, static_cast<int64_t>(server.requests()[0].body.size() +
                                               server.requests()[1].body.size()));

  // Without compression the bytes go as they are, from a handle that stays open.
  test::TempDir dir;
  test::writeFile(dir.file("p"), "raw \x01 bytes");
  std::FILE* f = std::fopen(dir.file("p").c_str(), "rb");
  http.reqWithMethod("uploadChanges", f, 0);
  ASSERT_TRUE(http.waitForCompletion());
  EXPECT_EQ(server.requests().back().body,
            field("c", "0") + field("k", "key") + kDataHead + "raw \x01 bytes" + kTail);
  EXPECT_EQ(std::fseek(f, 0, SEEK_SET), 0);
  std::fclose(f);

  // Above one slice: one gzip member per MiB, one after the other.
  std::string big(0x180000, '\0');
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>((i * 7919) % 251);
  http.reqWithMethod("upload", tmpFileFromData(kDefaultTmpDir, big), 6);
  ASSERT_TRUE(http.waitForCompletion());
  EXPECT_EQ(dataPart(),
            gzipDeflate(big.substr(0, 0x100000), 6) + gzipDeflate(big.substr(0x100000), 6));
}

TEST_F(Transport, EveryStatusButOkIsAnErrorWithItsText) {
  const std::string busy = "RivoWeb is too busy at the moment. Please try again in a few minutes.";
  const std::vector<std::tuple<int, std::string, std::string>> cases = {
      {403, "badAuth", "badAuth"},
      {405, "syncError", busy},
      {409, "syncError",
       "Only one client can access RivoWeb at a time. If a previous sync failed, please try "
       "again in a few minutes."},
      {500, "syncError",
       "RivoWeb encountered a problem. Please wait a few minutes and try again, and if the "
       "problem persists, please let us know."},
      {501, "syncError", "Please download the free update from the app store to continue syncing."},
      {502, "syncError",
       "An error occurred on RivoWeb. Please wait a few minutes and then try again."},
      {503, "syncError", busy},
      {404, "syncError", "Unknown HTTP response code: 404."},
      {302, "syncError", "Unknown HTTP response code: 302."},
  };
  HttpSyncer http("key");
  for (const auto& [status, domain, text] : cases) {
    SCOPED_TRACE(status);
    int code = status;
    server.respond([code](const auto&, httplib::Response& res) {
      FakeHttpServer::reply(res, code, "{\"status\": \"ok\"}");
    });
    http.reqWithMethod("meta", tmpFileFromData(kDefaultTmpDir, std::string("{}")));
    Error err;
    EXPECT_FALSE(http.waitForReqData(&err));
    EXPECT_EQ(err.domain, domain);
    EXPECT_EQ(err.message, text);
    // The reply stays until the next request replaces it.
    EXPECT_TRUE(std::filesystem::exists(http.downloadPath));
  }
}

TEST_F(Transport, AFailedConnectionIsReportedAsItself) {
  HttpSyncer http("key");
  http.timeout = 1;
  Error err;

  // Nothing listening.
  setenv("SYNC_BASE", "http://127.0.0.1:1/", 1);
  http.reqWithMethod("meta");
  EXPECT_FALSE(http.waitForCompletion(&err));
  EXPECT_EQ(err.domain, "network");
  EXPECT_NE(err.message.find("connect"), std::string::npos) << err.message;

  // A server that never answers, and one that stops half-way through its reply.
  setenv("SYNC_BASE", server.base().c_str(), 1);
  server.respond([this](const auto&, httplib::Response&) { server.hang(); });
  auto started = std::chrono::steady_clock::now();
  http.reqWithMethod("meta");
  EXPECT_FALSE(http.waitForCompletion(&err));
  EXPECT_EQ(err.domain, "network");
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5)) << err.message;

  server.respond([](const auto&, httplib::Response& res) { FakeHttpServer::cut(res); });
  http.reqWithMethod("meta");
  EXPECT_FALSE(http.waitForReqData(&err));
  EXPECT_EQ(err.domain, "network");
  EXPECT_FALSE(std::filesystem::exists(http.downloadPath));
}

TEST(SyncBase, IsTheEnvironmentsAsItStandsElseAnHttpsAddress) {
  test::SavedEnv saved("SYNC_BASE");
  unsetenv("SYNC_BASE");
  EXPECT_EQ(syncBase().rfind("https://", 0), 0u);
  EXPECT_EQ(syncBase().back(), '/');
  setenv("SYNC_BASE", "http://host:1/x", 1);
  EXPECT_EQ(syncBase(), "http://host:1/x");
}

}  // namespace
}  // namespace rivo
