#pragma once
// `rivo stats [--period month|year|life] [--whole] [--out FILE.html]`: the statistics page of
// the current deck (with its children) or of the whole collection, as one self-contained HTML
// file with its chart scripts inlined, so that any browser draws it without Rivo running.
// Without --out the page goes to standard output. Main loop of a launched application only.

#include <string>

#include "shell/Command.h"

namespace rivo {

class AppDelegate;

class StatsCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

  struct Options {
    std::string period = "month";  // "month", "year" or "life"
    bool whole = false;
    std::string out;  // absolute, or empty for standard output
  };

  // Raises std::runtime_error with the one line to print when the file can't be written.
  static void run(AppDelegate& app, const Options& options);

  // `page` with each chart script it names put in its place, and a title.
  static std::string selfContained(const std::string& page, const std::string& title);

 private:
  Options _options;
};

}  // namespace rivo
