#pragma once
// The application in the browser, as `rivo serve` (and `rivo` alone) runs it: launches the
// profile, serves the page on 127.0.0.1 (or --listen), prints the address with this run's
// secret, opens the user's browser, and runs until SIGINT or SIGTERM. With Rivo already running
// on the data folder it opens the browser on that one instead. Main thread only.
//
// Only rivo-web links it (with the HTTP server and the TLS libraries under it): `rivo` hands
// serving over to that program, so that its other commands start without loading them.

#include <string>

#include "shell/ServeCommand.h"

namespace rivo {

class AppDelegate;

class BrowserApp {
 public:
  // The exit status. Raises AppError (or SqlError) when Rivo can't start.
  static int run(const ServeCommand::Options& options);

 private:
  static int _showRunning(const std::string& address, const ServeCommand::Options& options);
  static void _openBrowser(const std::string& url);
  static void _announce(const std::string& url, const ServeCommand::Options& options);
  // Back to what the file holds after a failed save.
  static void _reloadCollection(AppDelegate& app);
};

}  // namespace rivo
