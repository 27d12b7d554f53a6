#pragma once
// The `rivo` command line: parses the arguments and runs the chosen command.

#include "shell/ServeCommand.h"

namespace rivo {

class CommandLine {
 public:
  // Exit status: 0 success, 1 failure (a one-line message on standard error), 2 bad usage.
  // `serve` runs the application in the browser; without it, rivo-web is started for that.
  static int main(int argc, char** argv, const ServeCommand::Runner& serve = {});
};

}  // namespace rivo
