#pragma once
// `rivo init`: creates what is missing (data folder, profile, collection) and prints the
// collection's path.

#include "shell/Command.h"

namespace rivo {

class InitCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;
  bool makesDataDir() const override { return true; }
};

}  // namespace rivo
