#pragma once
// `rivo serve` (and `rivo` alone): the application in the browser (BrowserApp). Its options
// and help are the same in every program; what runs them is given by the program's main():
// rivo-web runs BrowserApp, and `rivo`, which doesn't link the HTTP server, replaces itself
// with rivo-web on the same arguments. Main thread only.

#include <functional>
#include <string>
#include <utility>

#include "shell/Command.h"

namespace rivo {

class ServeCommand : public Command {
 public:
  struct Options {
    std::string dataDir;
    std::string profile;
    std::string listen = "127.0.0.1";
    int port = 0;
    bool openBrowser = true;
    double jobDelay = 0;
    double idleSeconds = 20;
  };
  // The exit status; may raise AppError (or SqlError) when Rivo can't start.
  using Runner = std::function<int(const Options&)>;

  // `argv` (the program's own, null-terminated) is what rivo-web is started with when `run` is
  // empty.
  ServeCommand(Runner run, char** argv) : _run(std::move(run)), _argv(argv) {}

  CLI::App* add(CLI::App& cli) override;
  // Also what `rivo` alone runs.
  int main(const CommandSettings& settings) override;
  bool makesDataDir() const override { return true; }

 private:
  Runner _run;
  char** _argv;
  Options _options;
  bool _noBrowser = false;
};

}  // namespace rivo
