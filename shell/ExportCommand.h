#pragma once
// `rivo export FILE [--deck NAME] [--no-sched] [--no-media]`: writes a package of the whole
// collection, or of a deck with its children, as the export screen does. The export runs as a
// job ("Exporting..."), whose progress shows on standard error when that is a terminal; a line
// on standard output says what was written. Main loop of a launched application only.

#include <optional>
#include <string>

#include "shell/Command.h"

namespace rivo {

class AppDelegate;

class ExportCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

  struct Options {
    std::string file;  // absolute
    std::optional<std::string> deck;
    bool includeSched = true;
    bool includeMedia = true;
  };

  // Queues the export. A failure comes out of the job's main block (or at once, for a deck
  // that doesn't exist) as std::runtime_error with the one line to print.
  static void run(AppDelegate& app, const Options& options);

 private:
  CLI::App* _sub = nullptr;
  Options _options;
  std::string _deck;
  bool _noSched = false;
  bool _noMedia = false;
};

}  // namespace rivo
