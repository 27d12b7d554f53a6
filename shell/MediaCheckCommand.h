#pragma once
// `rivo media-check [--delete-unused [--yes]]`: lists media files that notes refer to but are
// missing, and unused ones; the progress shows as the spinner's text. With --delete-unused the
// unused files are then removed, after a question on a terminal; without a terminal only
// --yes lets it delete, so a script never removes files it wasn't told to.

#include "shell/Command.h"

namespace rivo {

class MediaCheckCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

 private:
  bool _deleteUnused = false;
  bool _yes = false;
  bool _interactive = false;  // standard input is a terminal
};

}  // namespace rivo
