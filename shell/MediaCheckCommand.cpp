#include "shell/MediaCheckCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "app/AppDelegate.h"
#include "app/Ui.h"
#include "librivo/Col.h"
#include "librivo/MediaManager.h"

namespace rivo {

namespace {

void deleteUnused(AppDelegate& app, std::vector<std::string> names) {
  app.doWork(
      "Deleting...",
      [&app, names] {
        MediaManager::removeUnused(app.col()->media().dir(), names, [&app](const std::string& t) {
          app.updateSpinner(t);
          return true;
        });
      },
      [&app] {
        std::puts("Unused files removed.");
        app.terminate(0);
      });
}

}  // namespace

CLI::App* MediaCheckCommand::add(CLI::App& cli) {
  CLI::App* check = cli.add_subcommand(
      "media-check", "List media files that notes refer to but are missing, and unused ones.");
  check->add_flag("--delete-unused", _deleteUnused,
                  "then delete the unused files (asks first on a terminal)");
  check->add_flag("--yes", _yes, "delete without asking");
  return check;
}

int MediaCheckCommand::main(const CommandSettings& settings) {
  _interactive = isatty(STDIN_FILENO) == 1;
  return withApp(
      settings, false,
      [this](AppDelegate& app) {
        auto result = std::make_shared<std::optional<MediaManager::CheckResult>>();
        app.doWork(
            "Checking media...",
            [&app, result] {
              *result = app.col()->media().check([&app](const std::string& progress) {
                app.updateSpinner(progress);
                return true;
              });
            },
            [this, &app, result] {
              if (*result) std::fputs((*result)->report().c_str(), stdout);
              if (!*result || !_deleteUnused || (*result)->unused.empty()) {
                app.terminate(0);
                return;
              }
              const std::vector<std::string>& unused = (*result)->unused;
              if (_yes) {
                deleteUnused(app, unused);
                return;
              }
              if (!_interactive)
                throw std::runtime_error(
                    "nothing was deleted: add --yes to delete without a terminal");
              app.ui().askQuestion("Delete Unused",
                                   "Delete " + std::to_string(unused.size()) + " unused file(s)?",
                                   "No", "Yes", [&app, unused](int index) {
                                     if (index != 1)
                                       throw std::runtime_error("nothing was deleted");
                                     deleteUnused(app, unused);
                                   });
            });
      },
      /*endsItself=*/true);
}

}  // namespace rivo
