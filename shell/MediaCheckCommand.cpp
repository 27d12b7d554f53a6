#include "shell/MediaCheckCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>

#include "app/AppDelegate.h"
#include "librivo/Col.h"
#include "librivo/MediaManager.h"

namespace rivo {

CLI::App* MediaCheckCommand::add(CLI::App& cli) {
  return cli.add_subcommand(
      "media-check", "List media files that notes refer to but are missing, and unused ones.");
}

int MediaCheckCommand::main(const CommandSettings& settings) {
  return withApp(settings, false, [](AppDelegate& app) {
    auto text = std::make_shared<std::string>();
    app.doWork(
        "Checking media...",
        [&app, text] {
          auto result = app.col()->media().check([&app](const std::string& progress) {
            app.updateSpinner(progress);
            return true;
          });
          if (result) *text = result->report();
        },
        [text] { std::fputs(text->c_str(), stdout); });
  });
}

}  // namespace rivo
