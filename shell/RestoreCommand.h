#pragma once
// `rivo restore NAME [--yes]`: reverts the collection to a backup, named as `rivo backups`
// lists it (or by this profile's number alone, or by a path). Asks first when standard input is
// a terminal (--yes skips the question); without a terminal it goes ahead. The collection as it
// was is backed up first. Main loop of a launched application only.

#include <string>

#include "shell/Command.h"

namespace rivo {

class AppDelegate;

class RestoreCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

  struct Options {
    std::string name;
    bool yes = false;
    bool interactive = false;  // standard input is a terminal
  };

  // Queues the revert. A failure (or a question answered no) comes out as std::runtime_error
  // with the one line to print.
  static void run(AppDelegate& app, const Options& options);

  // The file NAME stands for; raises std::runtime_error when there is none.
  static std::string resolve(AppDelegate& app, const std::string& name);

 private:
  Options _options;

  static void _restore(AppDelegate& app, const std::string& path);
};

}  // namespace rivo
