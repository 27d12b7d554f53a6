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
#include "app/SyncFlow.h"
#include "librivo/Col.h"
#include "librivo/Platform.h"
#include "librivo/syncing/SyncListener.h"

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

void finishSync(AppDelegate& app, const SyncFlow::Outcome& out) {
  int status = 0;
  for (const std::string& text : SyncFlow::conclude(app, out)) {
    say(stderr, "rivo: " + text);
    status = 1;
  }
  if (!out.result) {
    status = 1;
  } else if (*out.result == "fullSync") {
    say(stderr, std::string("rivo: ") + kFullSyncQuestion +
                    " Run 'rivo sync --full upload' to upload the decks from here, or 'rivo "
                    "sync --full download' to download the decks from RivoWeb.");
    status = SyncCommand::kNeedsFullSync;
  } else if (*out.result == "noChanges") {
    say(stdout, "No changes to sync.");
  } else if (*out.result == "upload") {
    say(stdout, "Uploaded the collection to RivoWeb.");
  } else if (*out.result == "download") {
    say(stdout, "Downloaded the collection from RivoWeb.");
  } else {
    say(stdout, "Sync complete.");
  }
  if (out.mediaError) status = 1;
  if (!out.syncMsg.empty()) say(status == 0 ? stdout : stderr, out.syncMsg);
  app.terminate(status);
}

void launchSync(AppDelegate& app, const SyncCommand::Args& args) {
  const std::string hkey = app.pm().stringForKey("hkey");
  if (!args.full.empty()) {
    // A forced one-way sync: a new schema stamp makes the service ask for one.
    app.col()->modSchema();
    app.col()->save();
  }
  const SyncFlow::FullSyncChoice choice = args.full == "upload"     ? SyncFlow::kUpload
                                          : args.full == "download" ? SyncFlow::kDownload
                                                                    : SyncFlow::kUndecided;
  auto out = std::make_shared<SyncFlow::Outcome>();
  const bool media = !args.noMedia && app.pm().boolForKey("downloadMedia");
  app.doWork(
      "Syncing...",
      [&app, hkey, choice, media, out] {
        ProgressLine progress(app);
        *out = SyncFlow::run(app, hkey, media, progress, [choice] { return choice; });
      },
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
  SyncFlow::login(app, args.user, password, [&app, args](std::optional<std::string> failure) {
    if (failure) {
      say(stderr, "rivo: " + *failure);
      app.terminate(1);
      return;
    }
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
