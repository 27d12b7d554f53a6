#pragma once
// `rivo backup [--force]`: the backup the application makes on its own (when "Maximum
// backups" isn't 0 and the newest is older than "Frequency (mins)"), or with --force one in any
// case, as "Create Now" does. Prints the backup written, or why none was needed. Main loop of a
// launched application only.

#include "shell/Command.h"

namespace rivo {

class AppDelegate;

class BackupCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

  // Queues the backup job. A failure comes out of its main block as std::runtime_error with the
  // one line to print.
  static void run(AppDelegate& app, bool force);

 private:
  bool _force = false;
};

}  // namespace rivo
