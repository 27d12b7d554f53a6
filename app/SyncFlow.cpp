#include "app/SyncFlow.h"

#include <memory>

#include "app/AppDelegate.h"
#include "app/NavigationController.h"
#include "app/ProfileManager.h"
#include "librivo/Col.h"
#include "librivo/Error.h"
#include "librivo/MediaManager.h"
#include "librivo/syncing/FullSyncer.h"
#include "librivo/syncing/MediaSyncer.h"
#include "librivo/syncing/RemoteMediaServer.h"
#include "librivo/syncing/RemoteServer.h"
#include "librivo/syncing/SyncListener.h"
#include "librivo/syncing/Syncer.h"

namespace rivo {

namespace {

// The full sync in the chosen direction; false (and `err`) when it failed or was cancelled.
bool runFullSync(Col& col, const std::string& hkey, SyncFlow::FullSyncChoice choice,
                 SyncListener& listener, Error* err) {
  if (choice == SyncFlow::kCancel) {
    *err = errorWithMessage("syncCancel", "");
    return false;
  }
  FullSyncer syncer(&col, hkey);
  syncer.listener = &listener;
  return choice == SyncFlow::kUpload ? syncer.upload(err) : syncer.download(err);
}

}  // namespace

SyncFlow::Outcome SyncFlow::run(AppDelegate& app, const std::string& hkey, bool media,
                                SyncListener& listener,
                                const std::function<FullSyncChoice()>& chooseDirection) {
  Outcome out;
  Col& col = *app.col();
  col.save();
  {
    RemoteServer server(hkey);
    server.tmpDir = app.tmpDir();
    server.listener = &listener;
    Syncer syncer(col, &server);
    out.result = syncer.sync(&out.error);
    out.syncMsg = syncer.syncMsg();
    if (out.result) out.uname = syncer.uname();
  }
  if (out.result == "fullSync") {
    const FullSyncChoice choice = chooseDirection();
    if (choice != kUndecided) {
      const bool ok = runFullSync(col, hkey, choice, listener, &out.error);
      out.result =
          ok ? std::optional<std::string>(choice == kUpload ? "upload" : "download") : std::nullopt;
    }
  }
  // Drops whatever a failed sync wrote; after a full sync this opens the new file.
  col.closeAndSave(false);
  col.reopen();
  if (out.result && out.result != "fullSync" && media) {
    RemoteMediaServer server(&col, hkey);
    server.listener = &listener;
    MediaSyncer syncer(col, &server);
    Error error;
    if (!syncer.sync(&error)) out.mediaError = error;
  }
  return out;
}

std::vector<std::string> SyncFlow::conclude(AppDelegate& app, const Outcome& out) {
  ProfileManager& pm = app.pm();
  if (out.uname) pm.setObject(*out.uname, "uname");
  std::vector<std::string> texts;
  auto handleError = [&](const Error& e) {
    app.log("handleError: " + e.message);
    if (e.domain == "badAuth") {
      pm.removeObjectForKey("hkey");
      texts.push_back("Authentication failed. Please log in again.");
    } else if (e.domain != "syncCancel") {
      texts.push_back(e.message);
    }
  };
  if (!out.result) handleError(out.error);
  if (out.mediaError) handleError(*out.mediaError);
  pm.save();
  return texts;
}

void SyncFlow::login(AppDelegate& app, const std::string& user, const std::string& password,
                     std::function<void(std::optional<std::string> failure)> then) {
  struct Login {
    std::optional<std::string> hkey;
    Error error;
  };
  auto login = std::make_shared<Login>();
  app.doWork(
      "Authenticating...",
      [&app, login, user, password] {
        RemoteServer server;
        server.tmpDir = app.tmpDir();
        login->hkey = server.hostKeyForUser(user, password, &login->error);
      },
      [&app, login, then = std::move(then)] {
        if (!login->hkey) {
          app.log("domain " + login->error.domain + " desc " + login->error.message);
          then(login->error.domain == "badAuth"
                   ? "Incorrect username or password. Please try again."
                   : login->error.message);
          return;
        }
        app.pm().setObject(*login->hkey, "hkey");
        app.pm().save();
        then(std::nullopt);
      });
}

void SyncFlow::deauthorize(AppDelegate& app, const std::function<void()>& reload) {
  app.showPopup("Deauthorized.");
  app.pm().removeObjectForKey("hkey");
  if (std::shared_ptr<Col> col = app.col()) col->media().forceResync();
  app.pm().save();
  if (reload) reload();
}

void SyncFlow::fullSync(AppDelegate& app) {
  app.askUser("Force a one way sync? All changes on one side will be lost.", "Full Sync",
              [&app](bool yes) {
                if (!yes) return;
                std::shared_ptr<Col> col = app.col();
                if (!col) return;
                col->modSchema();
                col->save();
                if (NavigationController* nc = app.nc()) nc->popToRoot();
                app.showInfo("Tap synchronize when you're ready to proceed.");
              });
}

}  // namespace rivo
