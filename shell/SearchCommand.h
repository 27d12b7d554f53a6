#pragma once
// `rivo search QUERY [--notes] [--order none|browser]`: prints each id found with the sort
// field of its note. The order is a named choice, so no SQL comes from the command line.

#include <string>

#include "shell/Command.h"

namespace rivo {

class SearchCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

 private:
  std::string _query;
  std::string _order = "none";
  bool _notes = false;
};

}  // namespace rivo
