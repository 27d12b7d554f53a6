#pragma once
// `rivo filter NAME --search S [--limit N] [--order O]`: builds the named filtered deck, or
// rebuilds it with the new term, as its options screen does; prints how many cards it holds.
// A deck made for a search that finds nothing leaves no trace.

#include <string>

#include "shell/Command.h"

namespace rivo {

class FilterCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

 private:
  // A filtered deck's order by number, or by a word for it; raises for anything else.
  static int _order(const std::string& text);

  std::string _name, _search, _orderText;
  int _limit = 0;  // 0: keep the deck's
};

}  // namespace rivo
