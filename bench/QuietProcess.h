#pragma once
// A program run to its end with its output thrown away, for benchmarks of whole processes.
// Any thread.

#include <string>
#include <vector>

namespace rivo::bench {

class QuietProcess {
 public:
  // False when it couldn't start or didn't exit with 0. args[0] is looked up in PATH.
  static bool run(const std::vector<std::string>& args);
};

}  // namespace rivo::bench
