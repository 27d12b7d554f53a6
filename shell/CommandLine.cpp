#include "shell/CommandLine.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <vector>

#include "app/AppDelegate.h"
#include "app/ProfileManager.h"
#include "shell/AddCommand.h"
#include "shell/BackupCommand.h"
#include "shell/BackupsCommand.h"
#include "shell/CheckCommand.h"
#include "shell/ExportCommand.h"
#include "shell/FilterCommand.h"
#include "shell/ImportCommand.h"
#include "shell/InitCommand.h"
#include "shell/MediaCheckCommand.h"
#include "shell/RestoreCommand.h"
#include "shell/SearchCommand.h"
#include "shell/ServeCommand.h"
#include "shell/StatsCommand.h"
#include "shell/StudyCommand.h"
#include "shell/SyncCommand.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

// Refuses what would otherwise fail half-way: an unusable data folder. `create` allows a data
// folder that doesn't exist yet.
std::string checkDataDir(const std::string& dir, bool create) {
  std::error_code ec;
  if (!fs::exists(dir, ec)) {
    if (create) return {};
    return "the data folder " + dir + " doesn't exist (run 'rivo --data " + dir + " init')";
  }
  if (!fs::is_directory(dir, ec)) return dir + " is not a folder";
  if (access(dir.c_str(), R_OK | W_OK | X_OK) != 0)
    return "the data folder " + dir + " can't be read and written";
  return {};
}

}  // namespace

int CommandLine::main(int argc, char** argv, const ServeCommand::Runner& serve) {
  CLI::App cli{"Rivo: spaced-repetition flash cards.", "rivo"};
  CommandSettings s;
  cli.add_option("--data", s.data,
                 "data folder (default: $RIVO_DATA, else $XDG_DATA_HOME/rivo, "
                 "else ~/.local/share/rivo)");
  cli.add_option("--profile", s.profile, "profile to open (default: the current one)");
  cli.require_subcommand(0, 1);
  // The table of commands, in the order of the help. The first runs when none is named.
  std::vector<std::unique_ptr<Command>> commands;
  commands.push_back(std::make_unique<ServeCommand>(serve, argv));
  commands.push_back(std::make_unique<InitCommand>());
  commands.push_back(std::make_unique<CheckCommand>());
  commands.push_back(std::make_unique<MediaCheckCommand>());
  commands.push_back(std::make_unique<StudyCommand>());
  commands.push_back(std::make_unique<FilterCommand>());
  commands.push_back(std::make_unique<AddCommand>());
  commands.push_back(std::make_unique<SearchCommand>());
  commands.push_back(std::make_unique<ImportCommand>());
  commands.push_back(std::make_unique<SyncCommand>());
  commands.push_back(std::make_unique<ExportCommand>());
  commands.push_back(std::make_unique<BackupCommand>());
  commands.push_back(std::make_unique<BackupsCommand>());
  commands.push_back(std::make_unique<RestoreCommand>());
  commands.push_back(std::make_unique<StatsCommand>());
  std::vector<CLI::App*> subcommands;
  for (auto& command : commands) subcommands.push_back(command->add(cli));
  try {
    cli.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return cli.exit(e);
  } catch (const CLI::ParseError& e) {
    int code = cli.exit(e);
    return code == 0 ? 0 : 2;
  }
  if (cli.count("--profile") && !ProfileManager::isLegalName(s.profile))
    return Command::fail("'" + s.profile +
                         "' can't be a profile name: please avoid symbols and underscores.");
  s.explicitData = !s.data.empty();
  if (!s.explicitData) s.data = AppDelegate::defaultDataDir();
  Command* chosen = commands.front().get();
  for (size_t i = 0; i < commands.size(); ++i)
    if (subcommands[i]->parsed()) chosen = commands[i].get();
  try {
    // The application makes a data folder it is pointed at; the other commands need one,
    // unless it is the default folder.
    std::string problem = checkDataDir(s.data, chosen->makesDataDir() || !s.explicitData);
    if (!problem.empty()) return Command::fail(problem);
    return chosen->main(s);
  } catch (const std::exception& e) {
    return Command::fail(e.what());
  }
}

}  // namespace rivo
