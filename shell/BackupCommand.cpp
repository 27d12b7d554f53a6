#include "shell/BackupCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "app/AppDelegate.h"
#include "app/BackupFolder.h"
#include "app/ProfileManager.h"
#include "librivo/Col.h"

namespace rivo {

void BackupCommand::run(AppDelegate& app, bool force) {
  using Outcome = BackupFolder::Result::Outcome;
  const std::string msg = force ? "Creating Backup..." : "Finishing Backup...";
  auto result = std::make_shared<BackupFolder::Result>();
  app.doWork(
      msg, [&app, force, msg, result] { *result = app.performBackup(force, msg); },
      [&app, result] {
        if (!result->foreign.empty())
          std::fprintf(
              stderr, "%s\n",
              BackupFolder(app.pm().backupFolder()).foreignMessage(result->foreign).c_str());
        switch (result->outcome) {
          case Outcome::written:
            std::printf("Backup written: %s\n", result->path.c_str());
            break;
          case Outcome::disabled:
            std::printf(
                "Automatic backups are off (Maximum backups is 0): none was made. Use "
                "--force to make one.\n");
            break;
          case Outcome::notRequired:
            std::printf(
                "No backup was needed: the newest is younger than the frequency. Use "
                "--force to make one.\n");
            break;
          case Outcome::failed:
            throw std::runtime_error("Backup failed: " + result->error);
        }
      });
}

CLI::App* BackupCommand::add(CLI::App& cli) {
  CLI::App* backup = cli.add_subcommand(
      "backup", "Back the collection up, unless the newest backup is recent (see --force).");
  backup->add_flag("--force", _force, "back up whatever the limits say");
  return backup;
}

int BackupCommand::main(const CommandSettings& settings) {
  return withApp(settings, false, [this](AppDelegate& app) { run(app, _force); });
}

}  // namespace rivo
