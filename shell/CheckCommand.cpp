#include "shell/CheckCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "app/AppDelegate.h"
#include "app/BackupFolder.h"
#include "librivo/Col.h"

namespace rivo {

CLI::App* CheckCommand::add(CLI::App& cli) {
  return cli.add_subcommand("check", "Check and repair the database, then optimize it.");
}

int CheckCommand::main(const CommandSettings& settings) {
  return withApp(settings, false, [](AppDelegate& app) {
    // A forced backup first holds the state before any repair; without it nothing is repaired.
    using Outcome = BackupFolder::Result::Outcome;
    auto text = std::make_shared<std::string>();
    auto backup = std::make_shared<BackupFolder::Result>();
    app.doWork(
        "Checking...",
        [&app, text, backup] {
          *backup = app.performBackup(true, "Creating Backup...");
          if (backup->outcome != Outcome::written) return;
          *text = app.col()->fixIntegrity();
          if (text->empty()) *text = "Database rebuilt and optimized.";
        },
        [text, backup] {
          if (backup->outcome != Outcome::written)
            throw std::runtime_error("Backup failed: " + backup->error);
          std::printf("%s\n", text->c_str());
        });
  });
}

}  // namespace rivo
