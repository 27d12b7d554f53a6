#pragma once
// `rivo study [--deck NAME]`: studies the current deck, or the named one selected first, in
// the terminal, as the study screen does.

#include <string>

#include "shell/Command.h"

namespace rivo {

class StudyCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

 private:
  std::string _deck;
  bool _deckGiven = false;
};

}  // namespace rivo
