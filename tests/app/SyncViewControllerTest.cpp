// The sync flow's decisions against a service that answers what each test needs: the login's
// refusals, errors by domain, the direction question, the server's message after the dismissal,
// the sync button's colour, and the settings' two buttons. The whole road through a real
// rivo-syncd is the browser test's.
#include "app/SyncViewController.h"

#include <httplib.h>

#include "app/DecksViewController.h"
#include "app/NavigationController.h"
#include "app/ProfileManager.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "tests/app/ScreenFixture.h"
#include "tests/support/FakeHttpServer.h"

namespace rivo {
namespace {

using Strings = std::vector<std::string>;
using namespace std::chrono_literals;

class SyncViewControllerTest : public test::ScreenFixture {
 protected:
  void SetUp() override {
    setenv("SYNC_BASE", server.base().c_str(), 1);
    ScreenFixture::SetUp();
    app->pm().setBool(false, "downloadMedia");  // no media: those requests are another test's
    serve();
  }
  void serve() {
    server.respond([this](const test::FakeHttpServer::Request& req, httplib::Response& res) {
      const std::string method = req.path.substr(req.path.rfind('/') + 1);
      if (method == "hostKey") {
        test::FakeHttpServer::reply(res, 200, R"({"key": "k1"})");
      } else if (method == "meta") {
        test::FakeHttpServer::reply(res, metaStatus, metaReply().dump());
      } else {
        test::FakeHttpServer::reply(res, 500, "not in this test");
      }
    });
  }
  Json metaReply() {
    Col& col = *app->col();
    return {{"mod", col.mod() + remoteModOffset},
            {"scm", col.scm() + remoteScmOffset},
            {"usn", 0},
            {"ts", intTime(1)},
            {"msg", message},
            {"cont", cont}};
  }
  Strings methods() {
    Strings out;
    for (const auto& r : server.requests()) out.push_back(r.path.substr(r.path.rfind('/') + 1));
    return out;
  }
  Strings alerts() const {
    Strings out;
    for (const std::string& e : ui.events)
      if (e.rfind("alert:", 0) == 0 || e.rfind("sheet:", 0) == 0) out.push_back(e);
    return out;
  }
  void loggedIn() { app->pm().setObject("k1", "hkey"); }
  // Runs the main loop until `done` holds (the sync job may be waiting for an answer).
  void until(const std::function<bool()>& done) {
    ASSERT_TRUE(app->dispatch().main().runUntil(done, 10s));
  }
  bool onDeckList() const { return app->nc()->depth() == 1; }

  test::SavedEnv base{"SYNC_BASE"};
  test::FakeHttpServer server;
  int metaStatus = 200;
  int64_t remoteModOffset = 0, remoteScmOffset = 0;
  std::string message;
  bool cont = true;
};

TEST_F(SyncViewControllerTest, AnEmptyPasswordStaysHereAndAGoodLoginGoesStraightIntoTheSync) {
  DecksViewController& dvc = *app->dvc();
  dvc.launchSync();
  ASSERT_EQ(ui.events.back(), "text:Login||[]|[]|Cancel|Login");
  ui.textAnswers.back()(1, {"ann", ""});
  settle();
  EXPECT_EQ(alerts().back(), "alert:Invalid login|Both username and password are required.");
  EXPECT_TRUE(methods().empty());  // an empty password never reaches the network

  message = "Maintenance at 22:00.";
  dvc.getHkeyForUsername("ann", "secret");
  until([&] { return !onDeckList(); });
  EXPECT_EQ(app->pm().stringForKey("hkey"), "k1");
  EXPECT_TRUE(ui.screen.value("modal", false));
  EXPECT_FALSE(ui.screen.contains("back"));
  // No way back from the sync screen while it runs.
  EXPECT_FALSE(app->nc()->dispatch(ui.screen["id"], {"back", "", "", nullptr}));
  until([&] { return onDeckList(); });
  settle();
  EXPECT_EQ(methods(), (Strings{"hostKey", "meta"}));  // no changes on either side
  // The server's message comes after the screen has gone.
  EXPECT_EQ(alerts().back(), "alert:|Maintenance at 22:00.");
}

TEST_F(SyncViewControllerTest, ErrorsByDomain) {
  loggedIn();
  metaStatus = 403;  // the host key is refused
  app->dvc()->launchSync();
  until([&] { return onDeckList(); });
  settle();
  EXPECT_EQ(alerts(), (Strings{"alert:|Authentication failed. Please log in again."}));
  EXPECT_EQ(app->pm().stringForKey("hkey"), "");  // the next tap asks for a login

  // The server asks to stop: only its message.
  loggedIn();
  ui.events.clear();
  metaStatus = 200;
  cont = false;
  message = "Down for an upgrade.";
  app->dvc()->launchSync();
  until([&] { return onDeckList(); });
  settle();
  EXPECT_EQ(alerts(), (Strings{"alert:|Down for an upgrade."}));
  EXPECT_EQ(app->pm().stringForKey("hkey"), "k1");
}

TEST_F(SyncViewControllerTest, TheDirectionQuestionTakesTheFirstAnswerAndCancelLeavesAllAlone) {
  loggedIn();
  remoteModOffset = remoteScmOffset = 1;  // can't be merged
  const int64_t mod = app->col()->mod();
  app->dvc()->launchSync();
  until([&] { return !ui.sheetAnswers.empty(); });
  auto* svc = dynamic_cast<SyncViewController*>(app->nc()->top());
  ASSERT_NE(svc, nullptr);
  EXPECT_EQ(alerts().back(), std::string("sheet:") + SyncViewController::kFullSyncQuestion +
                                 "|Upload to RivoWeb|Download from RivoWeb|Cancel");
  ui.sheetAnswers.back()(-1);
  svc->actionSheetDidDismissWithButtonIndex(0);  // delivered twice: the first answer stands
  EXPECT_EQ(svc->fullSyncChoice(), SyncFlow::kCancel);
  until([&] { return onDeckList(); });
  settle();
  EXPECT_EQ(alerts().size(), 1u);  // a cancel shows nothing
  EXPECT_EQ(methods(), (Strings{"meta"}));
  EXPECT_EQ(app->col()->mod(), mod);
}

TEST_F(SyncViewControllerTest, TheSyncButtonAsksTheServiceOnlyWhenLoggedInAndUnchanged) {
  DecksViewController& dvc = *app->dvc();
  dvc.updateSyncLabel();
  loggedIn();
  app->col()->setMod();
  dvc.updateSyncLabel();
  EXPECT_EQ(dvc.syncTone(), DecksViewController::kSyncChanged);
  settle();
  EXPECT_TRUE(methods().empty());  // neither without a key nor with local changes
}

TEST_F(SyncViewControllerTest, LogOutAndForceFullSync) {
  loggedIn();
  bool reloaded = false;
  SyncFlow::deauthorize(*app, [&] { reloaded = true; });
  EXPECT_EQ(app->pm().stringForKey("hkey"), "");
  EXPECT_TRUE(reloaded);
  EXPECT_EQ(ui.events.back(), "popup:Deauthorized.");

  app->dvc()->launchBackups();  // something to leave
  ASSERT_EQ(app->nc()->depth(), 2u);
  SyncFlow::fullSync(*app);
  EXPECT_EQ(ui.events.back(),
            "ask:Full Sync|Force a one way sync? All changes on one side will be lost.|No|Yes");
  const int64_t scm = app->col()->scm();
  ui.answers.back()(1);
  settle();
  EXPECT_GT(app->col()->scm(), scm);
  EXPECT_TRUE(onDeckList());
  EXPECT_EQ(alerts().back(), "alert:|Tap synchronize when you're ready to proceed.");
}

}  // namespace
}  // namespace rivo
