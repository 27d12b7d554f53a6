#pragma once
// `rivo media-check`: lists media files that notes refer to but are missing, and unused
// ones; the progress shows as the spinner's text.

#include "shell/Command.h"

namespace rivo {

class MediaCheckCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;
};

}  // namespace rivo
