#pragma once
// `rivo import FILE [--replace] [--yes]`: merges a package into the profile's collection, or
// replaces the collection with it. A replace asks first when standard input is a terminal
// (--yes skips the question); without a terminal it goes ahead. The import runs as a job
// ("Importing..."), whose progress shows on standard error when that is a terminal; the report
// goes to standard output. Main loop of a launched application only.

#include <string>

#include "shell/Command.h"

namespace rivo {

class AppDelegate;

class ImportCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

  struct Options {
    std::string file;
    bool replace = false;
    bool yes = false;
    bool interactive = false;  // standard input is a terminal
  };

  // Queues the import. A failure (or a replace the user declines) comes out of the job's main
  // block as std::runtime_error with the one line to print.
  static void run(AppDelegate& app, const Options& options);

 private:
  Options _options;

  static void _import(AppDelegate& app, const Options& options);
};

}  // namespace rivo
