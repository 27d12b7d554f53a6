#pragma once
// `rivo add [--deck NAME] [--type NAME] [--tags "a b"] FIELD...`: adds one note as the editor
// does (its cards go to the named deck, else the current one), saves, and prints the note's id
// and the number of cards, separated by a tab. A field given as "-" is read from standard
// input, so scripts can pass long HTML. A refusal (no such deck or note type, a wrong number of
// fields, a note that makes no card) is one line and status 1, with nothing written.

#include <optional>
#include <string>
#include <vector>

#include "shell/Command.h"

namespace rivo {

class AddCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

  // Replaces a "-" field by the whole of standard input (one trailing newline dropped). More
  // than one "-" is refused: there is only one input to read.
  static void readStandardInput(std::vector<std::string>& fields);

 private:
  void _run(AppDelegate& app);

  std::optional<std::string> _deck;
  std::optional<std::string> _type;
  std::string _tags;
  std::vector<std::string> _fields;
};

}  // namespace rivo
