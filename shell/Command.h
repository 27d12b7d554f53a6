#pragma once
// One subcommand of `rivo`, each in a file of its own: add() declares its options and help,
// main() does its work. CommandLine keeps the table of them. Main thread only.

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace rivo {

class AppDelegate;

// What every command is given: the data folder and the profile chosen on the command line.
struct CommandSettings {
  std::string data;     // never empty once parsed: the default folder stands in
  std::string profile;  // empty for the current one
  bool explicitData = false;
};

class Command {
 public:
  virtual ~Command() = default;

  // Adds the subcommand to `cli`; its parsed values land in the command's own members.
  virtual CLI::App* add(CLI::App& cli) = 0;
  // After a successful parse. Returns the exit status: 0 success, 1 failure, or the
  // command's own (documented in its header). May raise: the message becomes the one line.
  virtual int main(const CommandSettings& settings) = 0;
  // True for the commands that make a missing data folder (init, serve).
  virtual bool makesDataDir() const { return false; }

  // The one-line failure: "rivo: MESSAGE" on standard error, status 1.
  static int fail(const std::string& message);

 protected:
  // The one path by which commands open a profile: launches the application on the profile
  // chosen (or the current one), runs `work` on its main loop and ends it. A collection that
  // can't be written is refused before anything starts. `endsItself` commands call
  // AppDelegate::terminate with their status when their jobs are done.
  static int withApp(const CommandSettings& settings, bool createMissing,
                     const std::function<void(AppDelegate&)>& work, bool endsItself = false);
};

}  // namespace rivo
