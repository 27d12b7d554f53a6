// The HTTP layer in-process: what gets through, what is refused, and that a refusal changes
// nothing. Requests run on a thread of their own while the test pumps the main loop.
#include "shell/WebServer.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "app/AppDelegate.h"
#include "app/NavigationController.h"
#include "app/WebView.h"
#include "shell/BrowserBridge.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

using namespace std::chrono_literals;

class WebServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    AppDelegate::Options o;
    o.dataDir = dir.file("data");
    o.handleSignals = false;
    o.screens = true;
    app = std::make_unique<AppDelegate>(bridge, o);
    bridge.attach(*app);
    app->launch();
    // The deck list's first load, so that its spinner doesn't come up in the middle of a test.
    app->dispatch().main().runUntil(
        [&] {
          return !bridge.snapshot()["screen"]["sections"].empty() &&
                 !bridge.snapshot()["popup"].is_object();
        },
        10s);
    WebServer::Options options{"127.0.0.1", 0, "s3cret", 0.1};
    options.uploadDir = dir.file("data/tmp");
    options.maxUpload = 64 << 10;
    server = std::make_unique<WebServer>(bridge, options);
    server->start();
    host = "127.0.0.1:" + std::to_string(server->port());
    cookie = server->cookieName() + "=s3cret";
  }
  void TearDown() override {
    bridge.close();
    app->dispatch().shutdown();
    server->stop();
  }

  // Runs the request off the main thread, serving the main loop meanwhile.
  template <class F>
  auto request(F f) {
    auto result = std::async(std::launch::async, f);
    app->dispatch().main().runUntil(
        [&] { return result.wait_for(0s) == std::future_status::ready; }, 10s);
    return result.get();
  }
  httplib::Result get(const std::string& path, httplib::Headers headers) {
    return request([&] {
      httplib::Client c("127.0.0.1", server->port());
      return c.Get(path.c_str(), headers);
    });
  }
  int post(const std::string& body, httplib::Headers headers,
           const char* type = "application/json") {
    return request([&] {
      httplib::Client c("127.0.0.1", server->port());
      auto r = c.Post("/event", headers, body, type);
      return r ? r->status : -1;
    });
  }
  httplib::Headers ours() const { return {{"Host", host}, {"Cookie", cookie}}; }
  int post(const Json& event) { return post(event.dump(), ours()); }
  uint64_t screenId() const { return bridge.snapshot()["screen"]["id"].get<uint64_t>(); }
  Json alerts() const { return bridge.snapshot()["alerts"]; }

  test::SavedEnv tmpdir{"TMPDIR"};
  test::TempDir dir;
  BrowserBridge bridge{{.maxClients = 8, .idleSeconds = 0.2, .evalTimeout = 1, .token = "ab12"}};
  std::unique_ptr<AppDelegate> app;
  std::unique_ptr<WebServer> server;
  std::string host, cookie;
};

TEST_F(WebServerTest, TheSecretBecomesACookieAndNothingGetsInWithoutIt) {
  auto r = get("/?k=s3cret", {{"Host", host}});
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 303);
  EXPECT_EQ(r->get_header_value("Location"), "/");
  EXPECT_EQ(r->get_header_value("Set-Cookie"),
            server->cookieName() + "=s3cret; HttpOnly; SameSite=Strict; Path=/");
  EXPECT_EQ(get("/", ours())->status, 200);
  EXPECT_EQ(get("/rivo.js", ours())->status, 200);
  EXPECT_EQ(post({{"alert", alerts()[0]["id"]}, {"button", 0}}), 200);  // the welcome

  uint64_t screen = screenId();
  Json tap{{"screen", screen}, {"element", "title"}};
  const std::vector<std::pair<std::string, httplib::Headers>> refused = {
      {"no secret", {{"Host", host}}},
      {"wrong secret", {{"Host", host}, {"Cookie", server->cookieName() + "=s3creT"}}},
      {"another program's cookie", {{"Host", host}, {"Cookie", "rivo-1=s3cret"}}},
      {"foreign Host",
       {{"Host", "evil.example:" + std::to_string(server->port())}, {"Cookie", cookie}}},
      {"other port", {{"Host", "127.0.0.1:1"}, {"Cookie", cookie}}},
      {"foreign Origin", {{"Host", host}, {"Cookie", cookie}, {"Origin", "http://evil.example"}}},
      {"sandboxed frame", {{"Host", host}, {"Cookie", cookie}, {"Origin", "null"}}},
  };
  for (const auto& [why, headers] : refused) {
    EXPECT_EQ(get("/", headers)->status, 403) << why;
    EXPECT_EQ(get("/events", headers)->status, 403) << why;
    EXPECT_EQ(post(tap.dump(), headers), 403) << why;
  }
  EXPECT_EQ(get("/?k=wrong", {{"Host", host}})->status, 403);
  EXPECT_EQ(get("/?k=s3cret", {{"Host", "evil.example:" + std::to_string(server->port())}})->status,
            403);
  // None of them opened the profiles.
  EXPECT_EQ(app->nc()->depth(), 1u);
  EXPECT_EQ(post(tap.dump(), {{"Host", host}, {"Cookie", cookie}, {"Origin", "http://" + host}}),
            200);
  EXPECT_EQ(app->nc()->depth(), 2u);
}

TEST_F(WebServerTest, MalformedAndStaleEventsAreRefusedAndChangeNothing) {
  uint64_t screen = screenId();
  // The screen below an open alert can't be touched.
  EXPECT_EQ(post({{"screen", screen}, {"element", "title"}}), 409);
  EXPECT_EQ(post({{"alert", alerts()[0]["id"]}, {"button", 0}}), 200);
  const std::vector<std::string> malformed = {
      "not json",
      "[1, 2]",
      "{}",
      "null",
      R"({"screen": 1, "alert": 1, "element": "title", "button": 0})",
      R"({"screen": "1", "element": "title"})",
      R"({"screen": -3, "element": "title"})",
      R"({"screen": 1, "element": "explode"})",
      R"({"screen": 1, "element": "row", "id": 5})",
      R"({"alert": 1, "button": "OK"})",
      R"({"alert": 1, "button": 0, "texts": [1]})",
      R"({"web": "w1", "kind": "result", "call": 1})",
      R"({"screen": 1, "element": "row", "value": [[[[[[[[[[[[1]]]]]]]]]]]]})",
  };
  for (const std::string& body : malformed) EXPECT_EQ(post(body, ours()), 400) << body;
  EXPECT_EQ(post(Json{{"screen", screen}, {"element", "title"}}.dump(), ours(), "text/plain"), 400);
  EXPECT_EQ(post(std::string(300 * 1024, ' '), ours()), 413);

  // A screen that is gone, a row that isn't there, a button no screen has.
  EXPECT_EQ(post({{"screen", screen + 1000}, {"element", "title"}}), 409);
  EXPECT_EQ(post({{"screen", screen}, {"element", "row"}, {"id", "Nope"}, {"kind", "select"}}),
            409);
  EXPECT_EQ(post({{"screen", screen}, {"element", "button"}, {"id", "nope"}}), 409);
  EXPECT_EQ(app->nc()->depth(), 1u);
  EXPECT_EQ(screenId(), screen);
}

TEST_F(WebServerTest, AnUploadIsStoredWithinItsLimitsAndHandedToItsScreen) {
  EXPECT_EQ(post({{"alert", alerts()[0]["id"]}, {"button", 0}}), 200);
  const std::string tmp = dir.file("data/tmp");
  const auto upload = [&](const std::string& name, const std::string& body,
                          httplib::Headers headers) {
    return request([&] {
      httplib::Client c("127.0.0.1", server->port());
      const std::string query = "/upload?screen=" + std::to_string(screenId()) +
                                "&button=import&name=" + httplib::detail::encode_query_param(name);
      auto r = c.Post(query.c_str(), headers, body, "application/octet-stream");
      return r ? r->status : -1;
    });
  };
  EXPECT_EQ(upload("a.rpkg", "x", {{"Host", host}}), 403);
  EXPECT_EQ(upload("../a.rpkg", "x", ours()), 400);
  EXPECT_EQ(upload("big.rpkg", std::string(65 << 10, 'x'), ours()), 413);
  ASSERT_TRUE(app->dispatch().main().runUntil([&] { return !alerts().empty(); }, 5s));
  EXPECT_EQ(alerts()[0]["title"], "Upload Failed");
  EXPECT_EQ(post({{"alert", alerts()[0]["id"]}, {"button", 0}}), 200);
  // Only the server says a file was uploaded, with the path where it put it.
  EXPECT_EQ(post({{"screen", screenId()},
                  {"element", "button"},
                  {"id", "import"},
                  {"kind", "upload"},
                  {"value", {{"name", "x.rpkg"}, {"path", "/etc/passwd"}}}}),
            400);
  EXPECT_TRUE(std::filesystem::is_empty(tmp));

  // Stored, handed to the deck list, imported (it isn't a package) and removed.
  EXPECT_EQ(upload("junk.rpkg", "junk", ours()), 200);
  ASSERT_TRUE(app->dispatch().main().runUntil([&] { return alerts().size() == 2; }, 10s));
  EXPECT_EQ(alerts()[1]["text"], "Import complete.");
  EXPECT_TRUE(std::filesystem::is_empty(tmp));
}

TEST_F(WebServerTest, AnAlertIsAnsweredOnceAndInputWaitsForTheSpinner) {
  // The welcome of the first run is open.
  ASSERT_EQ(alerts().size(), 1u);
  uint64_t welcome = alerts()[0]["id"];
  EXPECT_EQ(post({{"alert", welcome}, {"button", 1}}), 400);  // it has one button
  EXPECT_EQ(alerts().size(), 1u);
  EXPECT_EQ(post({{"alert", welcome}, {"button", 0}}), 200);
  EXPECT_EQ(post({{"alert", welcome}, {"button", 0}}), 409);  // a second tab, or a double click
  EXPECT_TRUE(alerts().empty());

  int answers = 0;
  app->showSpinner("Working...");
  EXPECT_EQ(post({{"screen", screenId()}, {"element", "title"}}), 409);
  app->askUser("Sure?", "", [&](bool) { ++answers; });
  uint64_t question = alerts()[0]["id"];
  EXPECT_EQ(post({{"alert", question}, {"button", 1}}), 409);
  app->hideSpinner();
  EXPECT_EQ(post({{"alert", question}, {"button", 1}, {"texts", Json::array()}}), 200);
  EXPECT_EQ(post({{"alert", question}, {"button", 1}}), 409);
  EXPECT_EQ(answers, 1);
}

TEST_F(WebServerTest, ATabGetsTheWholeStateFirstAndTheLastTabGoneSavesAsInTheBackground) {
  std::string first = request([&] {
    std::string received;
    httplib::Client c("127.0.0.1", server->port());
    c.Get("/events", ours(), [&](const char* data, size_t n) {
      received.append(data, n);
      return received.find("\n\n") == std::string::npos;
    });
    return received;
  });
  ASSERT_EQ(first.rfind("event: state\ndata: ", 0), 0u) << first;
  Json state = Json::parse(first.substr(first.find('{')));
  EXPECT_EQ(state["screen"]["title"], "Decks");
  EXPECT_EQ(state["alerts"][0]["title"], "Welcome!");

  // The tab has gone: after the idle time the program saves and stops its timer, as when
  // put in the background; a tab coming back starts it again.
  EXPECT_TRUE(app->timerRunning());
  app->dispatch().main().runUntil([&] { return !app->timerRunning(); }, 5s);
  EXPECT_FALSE(app->timerRunning());
  auto client = bridge.connect();
  app->dispatch().main().runUntil([&] { return app->timerRunning(); }, 5s);
  EXPECT_TRUE(app->timerRunning());
  bridge.disconnect(client);
}

TEST_F(WebServerTest, AnOfferedFileDownloadsUnderItsNameOnlyWithTheSecret) {
  auto tab = bridge.connect();
  std::string message;
  ASSERT_TRUE(tab->next(message, 1));  // the state
  test::writeFile(dir.file("Lang - French.rpkg"), "package bytes");
  bridge.offerDownload(dir.file("Lang - French.rpkg"), "Lang - Français.rpkg");
  ASSERT_TRUE(tab->next(message, 1));
  ASSERT_EQ(message.rfind("event: download\ndata: ", 0), 0u) << message;
  const std::string url = Json::parse(message.substr(message.find('{')))["url"];

  auto r = get(url, ours());
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 200);
  EXPECT_EQ(r->body, "package bytes");
  // A plain name for old clients, the UTF-8 one escaped (which the HTTP client decodes).
  EXPECT_EQ(r->get_header_value("Content-Disposition"),
            "attachment; filename=\"Lang - Fran__ais.rpkg\"; "
            "filename*=UTF-8''Lang - Fran\u00e7ais.rpkg");
  EXPECT_EQ(get(url, {{"Host", host}})->status, 403);
  EXPECT_EQ(get("/download/0123456789abcdef0123456789abcdef", ours())->status, 404);
  std::filesystem::remove(dir.file("Lang - French.rpkg"));
  EXPECT_EQ(get(url, ours())->status, 404);
  bridge.disconnect(tab);
}

TEST_F(WebServerTest, AWebViewRunsScriptsInTheTabAndWaitsBriefly) {
  std::unique_ptr<WebView> view = bridge.makeWebView();
  view->loadHTMLString("<p>page</p>", "");
  EXPECT_EQ(bridge.pageDocument(view->id())->find("<p>page</p>"),
            bridge.pageDocument(view->id())->size() - 11);
  // No tab: nothing to wait for.
  EXPECT_EQ(view->evaluateJavaScript("1 + 1"), "");

  // A tab that answers the call it is sent, as the page's frame does.
  auto client = bridge.connect();
  std::thread tab([&] {
    std::string message;
    while (client->next(message, 5)) {
      if (message.rfind("event: eval", 0) != 0) continue;
      Json call = Json::parse(message.substr(message.find('{')));
      EXPECT_EQ(call["script"], "1 + 1");
      EXPECT_EQ(call["web"], view->id());
      httplib::Client c("127.0.0.1", server->port());
      c.Post("/event", ours(),
             Json{{"web", call["web"]}, {"kind", "result"}, {"call", call["call"]}, {"result", "2"}}
                 .dump(),
             "application/json");
      return;
    }
  });
  EXPECT_EQ(view->evaluateJavaScript("1 + 1"), "2");
  tab.join();
  // One that never answers costs the time-out, then "".
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(view->evaluateJavaScript("while (true) {}"), "");
  EXPECT_GE(std::chrono::steady_clock::now() - start, 900ms);
  bridge.disconnect(client);
}

// The frames have no cookie: their documents, the media and the resources are read with the
// run's token, from our Host only, and nothing else opens to them.
TEST_F(WebServerTest, FramesReadTheirPagesAndMediaByTokenAndNothingElse) {
  std::string media = dir.file("media");
  std::filesystem::create_directories(media);
  { std::ofstream(media + "/clip one.mp3") << "ID3 sound bytes"; }
  { std::ofstream(dir.file("secret.txt")) << "not media"; }
  std::string base = bridge.baseUrlForFolder(media);
  EXPECT_EQ(base, "/m/ab12/");
  std::unique_ptr<WebView> view = bridge.makeWebView();
  view->loadHTMLString("<html><head><title>t</title></head><body>card</body></html>", base);
  std::string src = bridge.snapshot()["web"][view->id()]["src"];
  EXPECT_EQ(src.rfind(base + "?page=" + view->id(), 0), 0u);

  httplib::Headers frame{{"Host", host}, {"Origin", "null"}};
  auto page = get(src, frame);
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  EXPECT_EQ(page->get_header_value("Content-Security-Policy"),
            "sandbox allow-scripts; frame-ancestors 'self'");
  // The frame's own script comes right after <head>, before anything of the page.
  EXPECT_EQ(page->body.find("<html><head><script>"), 0u);
  EXPECT_NE(page->body.find("<body>card</body>"), std::string::npos);

  auto sound = get("/m/ab12/clip%20one.mp3", frame);
  ASSERT_TRUE(sound);
  EXPECT_EQ(sound->status, 200);
  EXPECT_EQ(sound->body, "ID3 sound bytes");
  EXPECT_EQ(sound->get_header_value("Content-Type"), "audio/mpeg");
  auto part = get("/m/ab12/clip%20one.mp3", {{"Host", host}, {"Range", "bytes=4-8"}});
  EXPECT_EQ(part->status, 206);
  EXPECT_EQ(part->body, "sound");
  EXPECT_EQ(get("/r/ab12/reviewer/reviewer.js", frame)->status, 200);

  for (const char* path : {"/m/ab12/..%2Fsecret.txt", "/m/ab12/missing.mp3", "/m/ab12/?page=w999",
                           "/r/ab12/..%2F..%2Fetc%2Fpasswd"})
    EXPECT_EQ(get(path, frame)->status, 404) << path;
  for (const char* path : {"/m/ab13/clip%20one.mp3", "/m/ab1/clip%20one.mp3",
                           "/r/ab13/reviewer/reviewer.js", "/", "/events"})
    EXPECT_EQ(get(path, frame)->status, 403) << path;
  EXPECT_EQ(get("/m/ab12/clip%20one.mp3", {{"Host", "evil.example:1"}})->status, 403);
  EXPECT_EQ(post(Json{{"screen", screenId()}, {"element", "title"}}.dump(), frame), 403);
}

}  // namespace
}  // namespace rivo
