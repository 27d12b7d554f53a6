#pragma once
// The `rivo` command line: parses the arguments and runs the chosen command.

#include <string>
#include <vector>

namespace rivo {

class CommandLine {
 public:
  // Exit status: 0 success, 1 failure (a one-line message on standard error), 2 bad usage.
  static int main(int argc, char** argv);
};

}  // namespace rivo
