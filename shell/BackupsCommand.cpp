#include "shell/BackupsCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "app/AppDelegate.h"
#include "app/BackupFolder.h"
#include "app/BackupManager.h"
#include "app/ProfileManager.h"
#include "librivo/Files.h"

namespace rivo {

void BackupsCommand::run(AppDelegate& app) {
  BackupFolder folder(app.pm().backupFolder());
  std::string error;
  const std::vector<BackupFolder::Entry> backups = folder.list(&error);
  if (!error.empty())
    throw std::runtime_error("An error occurred while scanning backups: " + error);
  if (backups.empty()) std::fprintf(stderr, "No backups in %s yet.\n", folder.dir().c_str());
  for (const BackupFolder::Entry& backup : backups) {
    std::error_code ec;
    const uint64_t size = std::filesystem::file_size(backup.path, ec);
    std::printf("%s\t%s\t%s\n", backup.name.c_str(),
                BackupManager::dateText(backup.modified).c_str(),
                ec ? "?" : sizeText(size).c_str());
  }
}

CLI::App* BackupsCommand::add(CLI::App& cli) {
  return cli.add_subcommand("backups", "List the backups, newest first: name, date, size.");
}

int BackupsCommand::main(const CommandSettings& settings) {
  return withApp(settings, false, run);
}

}  // namespace rivo
