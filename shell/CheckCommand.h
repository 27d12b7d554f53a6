#pragma once
// `rivo check`: checks and repairs the database as the settings' check does, as a job, after a
// forced backup, and prints what it found. When the backup fails nothing is repaired and the
// command fails with "Backup failed: ...".

#include "shell/Command.h"

namespace rivo {

class CheckCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;
};

}  // namespace rivo
