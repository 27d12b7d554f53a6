#pragma once
// `rivo serve` (and `rivo` alone): the application in the browser. Launches the profile,
// serves the page on 127.0.0.1 (or --listen), prints the address with this run's secret,
// opens the user's browser, and runs until SIGINT or SIGTERM. With Rivo already running on the
// data folder it opens the browser on that one instead. Main thread only.

#include <string>

#include "shell/Command.h"

namespace rivo {

class ServeCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  // Also what `rivo` alone runs.
  int main(const CommandSettings& settings) override;
  bool makesDataDir() const override { return true; }

  struct Options {
    std::string dataDir;
    std::string profile;
    std::string listen = "127.0.0.1";
    int port = 0;
    bool openBrowser = true;
    double jobDelay = 0;
    double idleSeconds = 20;
  };

  // The exit status. Raises AppError (or SqlError) when Rivo can't start.
  static int run(const Options& options);

 private:
  Options _options;
  bool _noBrowser = false;

  static int _showRunning(const std::string& address, const Options& options);
  static void _openBrowser(const std::string& url);
  static void _announce(const std::string& url, const Options& options);
};

}  // namespace rivo
