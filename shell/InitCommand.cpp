#include "shell/InitCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "app/AppDelegate.h"
#include "librivo/Col.h"

namespace rivo {

CLI::App* InitCommand::add(CLI::App& cli) {
  return cli.add_subcommand("init", "Create what is missing; print the collection path.");
}

int InitCommand::main(const CommandSettings& settings) {
  return withApp(settings, true,
                 [](AppDelegate& app) { std::printf("%s\n", app.col()->path().c_str()); });
}

}  // namespace rivo
