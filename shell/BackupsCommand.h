#pragma once
// `rivo backups`: the backups in the backup folder (those of every profile), newest first, one a
// line: the file name, the date and the size, separated by tabs. Main loop of a launched
// application only.

#include "shell/Command.h"

namespace rivo {

class AppDelegate;

class BackupsCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

  // Raises std::runtime_error when the folder can't be read.
  static void run(AppDelegate& app);
};

}  // namespace rivo
