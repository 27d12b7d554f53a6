#include "shell/RestoreCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "app/AppDelegate.h"
#include "app/BackupFolder.h"
#include "app/ProfileManager.h"
#include "app/Ui.h"
#include "librivo/Col.h"

namespace rivo {

namespace fs = std::filesystem;

std::string RestoreCommand::resolve(AppDelegate& app, const std::string& name) {
  const std::string folder = app.pm().backupFolder();
  std::string path;
  if (!name.empty() &&
      std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }))
    path = folder + "/" + BackupFolder::prefix(app.pm().currentProfile()) + name + ".rpkg";
  else if (name.find('/') != std::string::npos)
    path = fs::absolute(name).string();
  else
    path = folder + "/" + name;
  std::error_code ec;
  if (!fs::is_regular_file(path, ec))
    throw std::runtime_error("There is no backup " + name + " in " + folder +
                             " (rivo backups lists them).");
  return path;
}

void RestoreCommand::run(AppDelegate& app, const Options& options) {
  const std::string path = resolve(app, options.name);
  if (options.yes || !options.interactive) {
    _restore(app, path);
    return;
  }
  const std::string name = fs::path(path).filename().string();
  app.ui().askQuestion(
      "Revert to backup", "Revert to " + name + "? Any changes made since the backup will be lost.",
      "No", "Yes", [&app, path](int index) {
        if (index != 1) throw std::runtime_error("nothing was restored: the revert was cancelled");
        _restore(app, path);
      });
}

void RestoreCommand::_restore(AppDelegate& app, const std::string& path) {
  struct Outcome {
    bool ok = false;
    std::string safety, error;
  };
  auto outcome = std::make_shared<Outcome>();
  app.doWork(
      "Reverting to backup...",
      [&app, path, outcome] {
        Col& col = *app.col();
        col.save();
        outcome->ok =
            BackupFolder(app.pm().backupFolder())
                .restore(col, app.pm().currentProfile(), path, &outcome->safety, &outcome->error);
      },
      [outcome] {
        if (!outcome->ok) throw std::runtime_error("Restore operation failed: " + outcome->error);
        std::printf("Reverted to backup. The collection as it was is kept in %s.\n",
                    outcome->safety.c_str());
      });
}

CLI::App* RestoreCommand::add(CLI::App& cli) {
  CLI::App* restore = cli.add_subcommand(
      "restore", "Revert the collection to a backup (asks first on a terminal).");
  restore->add_option("name", _options.name, "the backup, as `rivo backups` lists it")->required();
  restore->add_flag("--yes", _options.yes, "revert without asking");
  return restore;
}

int RestoreCommand::main(const CommandSettings& settings) {
  _options.interactive = isatty(STDIN_FILENO) == 1;
  return withApp(settings, false, [this](AppDelegate& app) { run(app, _options); });
}

}  // namespace rivo
