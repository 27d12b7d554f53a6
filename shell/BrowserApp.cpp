#include "shell/BrowserApp.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "app/AppDelegate.h"
#include "app/AppError.h"
#include "librivo/Col.h"
#include "librivo/SaveError.h"
#include "librivo/SysLog.h"
#include "shell/BrowserBridge.h"
#include "shell/WebServer.h"

extern char** environ;

namespace rivo {

namespace {

bool hasDisplay() {
  const char* x = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  return (x && *x) || (wayland && *wayland);
}

bool isLoopback(const std::string& host) {
  return host == "127.0.0.1" || host == "localhost" || host == "::1";
}

// Runs a program with no input and its output sent to `out` (null: /dev/null); waits for it
// when `wait` is set, else reaps it in the background. False when it couldn't be started.
bool spawn(const std::vector<std::string>& argv, bool wait, bool toStdout = false) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (!toStdout) posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid;
  int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return false;
  if (wait) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }
  std::thread([pid] { waitpid(pid, nullptr, 0); }).detach();
  return true;
}

// The first address other machines can reach this one at, for a phone on the network.
std::string lanAddress() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return "";
  std::string found;
  for (ifaddrs* a = list; a && found.empty(); a = a->ifa_next) {
    if (!a->ifa_addr || a->ifa_addr->sa_family != AF_INET) continue;
    char text[INET_ADDRSTRLEN];
    auto* in = reinterpret_cast<sockaddr_in*>(a->ifa_addr);
    if (inet_ntop(AF_INET, &in->sin_addr, text, sizeof text) && std::string(text) != "127.0.0.1" &&
        std::string(text).rfind("127.", 0) != 0)
      found = text;
  }
  freeifaddrs(list);
  return found;
}

}  // namespace

int BrowserApp::run(const ServeCommand::Options& o) {
  std::string running = AppDelegate::runningInstanceAddress(o.dataDir);
  if (!running.empty()) return _showRunning(running, o);

  BrowserBridge::Options bridgeOptions;
  bridgeOptions.idleSeconds = o.idleSeconds;
  BrowserBridge bridge(bridgeOptions);
  AppDelegate::Options appOptions;
  appOptions.dataDir = o.dataDir;
  appOptions.profile = o.profile;
  appOptions.screens = true;
  appOptions.jobDelay = o.jobDelay;
  AppDelegate app(bridge, appOptions);
  bridge.attach(app);
  try {
    app.launch();
  } catch (const DataFolderBusy&) {
    // Started at the same moment as another: show that one if it says where it is.
    running = AppDelegate::runningInstanceAddress(o.dataDir);
    if (!running.empty()) return _showRunning(running, o);
    throw;
  }
  WebServer::Options serverOptions{o.listen, o.port, "", 5};
  serverOptions.uploadDir = o.dataDir + "/tmp";
  WebServer server(bridge, serverOptions);
  server.start();
  std::string url = server.url();
  app.setInstanceAddress(url);
  _announce(url, o);
  if (o.openBrowser && hasDisplay()) _openBrowser(url);

  int status = 0;
  for (;;) {
    // A save that failed is shown and the application goes on: the file kept its last
    // committed state, and the collection in memory goes back to it, since the work may
    // have stopped halfway.
    try {
      status = app.run();
      break;
    } catch (const SaveError& e) {
      _reloadCollection(app);
      app.showInfo(e.what());
    }
  }
  // Ends the streams, then the loop that requests may be waiting on, then the server.
  bridge.close();
  app.dispatch().shutdown();
  server.stop();
  return status;
}

void BrowserApp::_reloadCollection(AppDelegate& app) {
  const std::shared_ptr<Col> col = app.col();
  if (!col) return;
  try {
    col->rollback();
  } catch (const SaveError& e) {
    sysLog(std::string("reloading after a failed save: ") + e.what());
  }
}

int BrowserApp::_showRunning(const std::string& address, const ServeCommand::Options& o) {
  std::printf("Rivo is already running on this data folder: %s\n", address.c_str());
  std::fflush(stdout);
  if (o.openBrowser && hasDisplay()) _openBrowser(address);
  return 0;
}

void BrowserApp::_openBrowser(const std::string& url) {
  if (!spawn({"xdg-open", url}, false))
    std::fprintf(stderr, "rivo: couldn't start xdg-open; open the address above yourself\n");
}

void BrowserApp::_announce(const std::string& url, const ServeCommand::Options& o) {
  std::printf("Rivo is running at %s\n", url.c_str());
  if (!isLoopback(o.listen)) {
    std::string host = o.listen == "0.0.0.0" ? lanAddress() : o.listen;
    std::string remote = url;
    if (!host.empty()) remote.replace(7, url.find(':', 7) - 7, host);
    std::printf(
        "Warning: Rivo listens on %s, so other machines on the network can reach it. Anyone with "
        "this address can use your collection:\n%s\n",
        o.listen.c_str(), remote.c_str());
    std::fflush(stdout);
    // A code for a phone's camera, when qrencode is there.
    spawn({"qrencode", "-t", "UTF8", remote}, true, true);
  }
  std::printf("Press Ctrl+C to stop.\n");
  std::fflush(stdout);
}

}  // namespace rivo
