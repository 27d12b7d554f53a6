#include "shell/SyncCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

#include "app/AppDelegate.h"
#include "app/ProfileManager.h"
#include "librivo/Col.h"
#include "librivo/Utils.h"
#include "librivo/syncing/FullSyncer.h"
#include "librivo/syncing/MediaSyncer.h"
#include "librivo/syncing/RemoteMediaServer.h"
#include "librivo/syncing/RemoteServer.h"
#include "librivo/syncing/SyncListener.h"
#include "librivo/syncing/Syncer.h"

namespace rivo {

namespace {

constexpr const char* kFullSyncQuestion =
    "Your decks here and on RivoWeb differ in such a way that they can't be merged together, "
    "so it's necessary to overwrite the decks on one side with the decks from the other.";

void say(std::FILE* to, const std::string& text) {
  std::fprintf(to, "%s\n", text.c_str());
  std::fflush(to);
}

// Shows the status texts and, on a terminal, the bytes moved so far on one line that is
// rewritten at most four times a second. Called from the sync's threads.
class ProgressLine : public SyncListener {
 public:
  ProgressLine(AppDelegate& app) : _app(app), _tty(::isatty(STDERR_FILENO) == 1) {}
  // The last amounts may have come within the quarter second; the line ends with them.
  ~ProgressLine() override {
    if (!_shown) return;
    _draw(true);
    std::fputs("\n", stderr);
  }

  void syncNotify(const std::string& desc) override {
    _app.log(desc);
    std::lock_guard lock(_mutex);
    _status = desc;
    _draw(true);
  }
  void receivedData(int64_t bytes) override {
    _down += bytes;
    std::lock_guard lock(_mutex);
    _draw(false);
  }
  void sentData(int64_t bytes, float) override {
    _up += bytes;
    std::lock_guard lock(_mutex);
    _draw(false);
  }

 private:
  void _draw(bool force) {
    if (!_tty) return;
    auto now = std::chrono::steady_clock::now();
    if (!force && now - _lastDraw < std::chrono::milliseconds(250)) return;
    _lastDraw = now;
    std::string line = _status;
    if (_up || _down)
      line += "  up " + SyncListener::amountText(_up) + ", down " + SyncListener::amountText(_down);
    std::fprintf(stderr, "\r\033[K%s", line.c_str());
    std::fflush(stderr);
    _shown = true;
  }

  AppDelegate& _app;
  const bool _tty;
  std::atomic<int64_t> _up{0}, _down{0};
  std::mutex _mutex;  // guards what follows
  std::string _status;
  std::chrono::steady_clock::time_point _lastDraw;
  bool _shown = false;
};

std::string readPassword() {
  if (const char* env = std::getenv("RIVO_PASSWORD"); env && *env) return env;
  return readHiddenLine("Password: ");
}

// What the sync job leaves for the main loop.
struct Outcome {
  std::optional<std::string> result;  // "noChanges", "success", "fullSync", "upload", "download"
  Error error;
  std::string syncMsg;
  std::optional<std::string> uname;  // set when the collection's sync itself went well
  std::optional<Error> mediaError;   // the media sync failed; the collection's sync stands
};

void finishSync(AppDelegate& app, const Outcome& out) {
  ProfileManager& pm = app.pm();
  if (out.uname) pm.setObject(*out.uname, "uname");
  int status = 0;
  if (!out.result) {
    app.log("handleError: " + out.error.message);
    if (out.error.domain == "badAuth") {
      pm.removeObjectForKey("hkey");
      say(stderr, "rivo: Authentication failed. Please log in again.");
    } else if (out.error.domain != "syncCancel") {
      say(stderr, "rivo: " + out.error.message);
    }
    status = 1;
  } else {
    const std::string& r = *out.result;
    if (r == "fullSync") {
      say(stderr, std::string("rivo: ") + kFullSyncQuestion +
                      " Run 'rivo sync --full upload' to upload the decks from here, or 'rivo "
                      "sync --full download' to download the decks from RivoWeb.");
      status = SyncCommand::kNeedsFullSync;
    } else if (r == "noChanges") {
      say(stdout, "No changes to sync.");
    } else if (r == "upload") {
      say(stdout, "Uploaded the collection to RivoWeb.");
    } else if (r == "download") {
      say(stdout, "Downloaded the collection from RivoWeb.");
    } else {
      say(stdout, "Sync complete.");
    }
  }
  if (out.mediaError) {
    app.log("handleError: " + out.mediaError->message);
    say(stderr, "rivo: " + out.mediaError->message);
    status = 1;
  }
  if (!out.syncMsg.empty()) say(status == 0 ? stdout : stderr, out.syncMsg);
  pm.save();
  app.terminate(status);
}

// The sync itself, on the work queue: the collection's sync and, when one is needed and a
// direction was given, the full sync; then the collection is closed without saving, which
// drops whatever a failed sync wrote, and opened again.
void syncJob(AppDelegate& app, const std::string& hkey, const std::string& full, bool media,
             Outcome& out) {
  Col& col = *app.col();
  col.save();
  ProgressLine progress(app);
  {
    RemoteServer server(hkey);
    server.listener = &progress;
    Syncer syncer(col, &server);
    out.result = syncer.sync(&out.error);
    out.syncMsg = syncer.syncMsg();
    if (out.result) out.uname = syncer.uname();
  }
  if (out.result == "fullSync" && !full.empty()) {
    FullSyncer fullSyncer(&col, hkey);
    fullSyncer.listener = &progress;
    bool ok = full == "upload" ? fullSyncer.upload(&out.error) : fullSyncer.download(&out.error);
    out.result = ok ? std::optional<std::string>(full) : std::nullopt;
  }
  col.closeAndSave(false);
  col.reopen();
  if (out.result && out.result != "fullSync" && media) {
    RemoteMediaServer server(&col, hkey);
    server.listener = &progress;
    MediaSyncer syncer(col, &server);
    Error error;
    if (!syncer.sync(&error)) out.mediaError = error;
  }
}

void launchSync(AppDelegate& app, const SyncCommand::Args& args) {
  const std::string hkey = app.pm().stringForKey("hkey");
  if (!args.full.empty()) {
    // A forced one-way sync: a new schema stamp makes the service ask for one.
    app.col()->modSchema();
    app.col()->save();
  }
  auto out = std::make_shared<Outcome>();
  const bool media = !args.noMedia && app.pm().boolForKey("downloadMedia");
  app.doWork(
      "Syncing...",
      [&app, hkey, full = args.full, media, out] { syncJob(app, hkey, full, media, *out); },
      [&app, out] { finishSync(app, *out); });
}

}  // namespace

void SyncCommand::run(AppDelegate& app, const Args& args) {
  if (args.user.empty() && !app.pm().stringForKey("hkey").empty()) {
    launchSync(app, args);
    return;
  }
  if (args.user.empty()) {
    say(stderr,
        "rivo: Not logged in: run 'rivo sync --user NAME' (the password comes from "
        "RIVO_PASSWORD or standard input).");
    app.terminate(1);
    return;
  }
  const std::string password = readPassword();
  if (password.empty()) {
    say(stderr, "rivo: Invalid login: Both username and password are required.");
    app.terminate(1);
    return;
  }
  struct Login {
    std::optional<std::string> hkey;
    Error error;
  };
  auto login = std::make_shared<Login>();
  app.doWork(
      "Authenticating...",
      [login, user = args.user, password] {
        RemoteServer server;
        login->hkey = server.hostKeyForUser(user, password, &login->error);
      },
      [&app, login, args] {
        if (!login->hkey) {
          app.log("domain " + login->error.domain + " desc " + login->error.message);
          say(stderr, "rivo: " + (login->error.domain == "badAuth"
                                      ? std::string("Incorrect username or password. Please "
                                                    "try again.")
                                      : login->error.message));
          app.terminate(1);
          return;
        }
        app.pm().setObject(*login->hkey, "hkey");
        app.pm().save();
        launchSync(app, args);
      });
}

CLI::App* SyncCommand::add(CLI::App& cli) {
  CLI::App* sync = cli.add_subcommand(
      "sync",
      "Sync the collection with the service at $SYNC_BASE; exit 3 when a full sync is "
      "needed and no --full direction was given.");
  sync->add_option("--user", _args.user,
                   "log in as this account first (password from RIVO_PASSWORD or standard "
                   "input)");
  sync->add_option("--full", _args.full,
                   "force a one-way sync: upload replaces the server's collection, download "
                   "replaces this one")
      ->check(CLI::IsMember({"upload", "download"}));
  sync->add_flag("--no-media", _args.noMedia,
                 "leave the media alone this time (the profile's \"downloadMedia\" decides "
                 "otherwise)");
  return sync;
}

int SyncCommand::main(const CommandSettings& settings) {
  return withApp(
      settings, false, [this](AppDelegate& app) { run(app, _args); }, true);
}

}  // namespace rivo
