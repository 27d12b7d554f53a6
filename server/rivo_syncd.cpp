// rivo-syncd: a self-hostable sync service for Rivo, and the management of its accounts.
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include "librivo/Platform.h"
#include "server/AccountStore.h"
#include "server/SyncServer.h"

namespace {

int fail(const std::string& message) {
  std::fprintf(stderr, "rivo-syncd: %s\n", message.c_str());
  return 1;
}

// From standard input: one line, or asked twice on a terminal.
std::string readPassword(const std::string& name) {
  if (::isatty(STDIN_FILENO) != 1) return rivo::readHiddenLine({});
  std::string first = rivo::readHiddenLine("Password for " + name + ": ");
  if (rivo::readHiddenLine("Again: ") != first)
    throw std::runtime_error("the two passwords differ");
  return first;
}

int serve(rivo::SyncServer::Options options) {
  // One server per data folder, or two could each let a sync of the same account in.
  std::error_code ec;
  std::filesystem::create_directories(options.dataDir, ec);
  const std::string lockPath = options.dataDir + "/.syncd.lock";
  int lockFd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lockFd < 0 || ::flock(lockFd, LOCK_EX | LOCK_NB) != 0)
    return fail("another rivo-syncd is serving " + options.dataDir);

  // Signals go to one waiting thread, which stops the server cleanly.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);

  rivo::SyncServer server(options);
  int port = server.bind();
  if (port < 0)
    return fail("can't listen on " + options.host + " port " + std::to_string(options.port));
  const bool v6 = options.host.find(':') != std::string::npos;
  std::printf("listening http://%s%s%s:%d/\n", v6 ? "[" : "", options.host.c_str(), v6 ? "]" : "",
              port);
  std::fflush(stdout);
  std::thread waiter([&] {
    int signo = 0;
    sigwait(&signals, &signo);
    if (signo != SIGUSR1) {
      std::fprintf(stderr, "rivo-syncd: stopping on signal %d\n", signo);
      server.stop();
    }
  });
  bool ok = server.listen();
  // Wake the waiter if the server stopped for another reason.
  sigaddset(&signals, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  pthread_kill(waiter.native_handle(), SIGUSR1);
  waiter.join();
  ::close(lockFd);
  return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App cli{"rivo-syncd: a sync service for Rivo collections.", "rivo-syncd"};
  rivo::SyncServer::Options options;
  options.port = 8701;
  int64_t maxUploadMb = options.maxUploadBytes >> 20;
  cli.add_option("--data", options.dataDir, "data folder: accounts.db and users/NAME/")->required();
  cli.add_option("--listen", options.host, "address to listen on (default 127.0.0.1)");
  cli.add_option("--port", options.port, "port to listen on (default 8701); 0 picks a free one")
      ->check(CLI::Range(0, 65535));
  cli.add_option("--threads", options.threads, "requests served at once (default 8)")
      ->check(CLI::Range(1, 256));
  cli.add_option("--idle-timeout", options.idleTimeout,
                 "seconds a sync may rest between calls before it is rolled back (default 300)")
      ->check(CLI::Range(0.1, 86400.0));
  cli.add_option("--max-upload-mb", maxUploadMb, "largest collection accepted (default 4096)")
      ->check(CLI::Range(1, 1 << 20));
  cli.add_option("--login-failures", options.loginFailures,
                 "failed logins of one account from one address before its logins are refused "
                 "for 15 minutes (default 10)")
      ->check(CLI::Range(1, 1000));
  cli.require_subcommand(0, 1);
  std::string name;
  CLI::App* adduser =
      cli.add_subcommand("adduser", "Add an account; the password is read from standard input.");
  adduser->add_option("name", name, "account name")->required();
  CLI::App* passwd = cli.add_subcommand(
      "passwd", "Change an account's password (from standard input); its devices log in again.");
  passwd->add_option("name", name, "account name")->required();
  CLI::App* deluser =
      cli.add_subcommand("deluser", "Remove an account with its collection and media.");
  deluser->add_option("name", name, "account name")->required();
  try {
    cli.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return cli.exit(e);
  } catch (const CLI::ParseError& e) {
    return cli.exit(e) == 0 ? 0 : 2;
  }
  options.maxUploadBytes = maxUploadMb << 20;
  try {
    if (adduser->parsed() || passwd->parsed() || deluser->parsed()) {
      rivo::AccountStore store(options.dataDir);
      if (deluser->parsed()) {
        store.deleteUser(name);
        std::printf("Removed %s.\n", name.c_str());
      } else if (adduser->parsed()) {
        if (!rivo::AccountStore::isValidName(name))
          return fail("'" + name + "' can't be an account name: use letters, digits and . _ - @ +");
        store.addUser(name, readPassword(name));
        std::printf("Added %s.\n", name.c_str());
      } else {
        if (!store.hasUser(name)) return fail("there is no account named '" + name + "'");
        store.setPassword(name, readPassword(name));
        std::printf("Changed the password of %s.\n", name.c_str());
      }
      return 0;
    }
    return serve(options);
  } catch (const std::exception& e) {
    return fail(e.what());
  }
}
