#include "shell/ImportCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <vector>

#include "app/AppDelegate.h"
#include "app/Ui.h"
#include "librivo/Col.h"
#include "librivo/RivoPackageImporter.h"

namespace rivo {

void ImportCommand::run(AppDelegate& app, const Options& options) {
  if (!options.replace || options.yes || !options.interactive) {
    _import(app, options);
    return;
  }
  app.ui().askQuestion("Confirm Replace",
                       "Are you sure you want to replace your collection with the imported "
                       "file? This action cannot be undone.",
                       "Cancel", "Replace", [&app, options](int index) {
                         if (index != 1)
                           throw std::runtime_error(
                               "nothing was imported: the replace was "
                               "cancelled");
                         _import(app, options);
                       });
}

void ImportCommand::_import(AppDelegate& app, const Options& options) {
  struct Outcome {
    bool ok = false;
    std::string error;
    std::vector<std::string> log;
  };
  auto outcome = std::make_shared<Outcome>();
  app.doWork(
      "Importing...",
      [&app, options, outcome] {
        Col& col = *app.col();
        col.save();
        RivoPackageImporter importer(col, options.file);
        outcome->ok = importer.runAndReplaceCollection(options.replace, &outcome->error);
        outcome->log = importer.log();
      },
      [outcome] {
        if (!outcome->ok) throw std::runtime_error("Error importing: " + outcome->error);
        for (const std::string& line : outcome->log) std::printf("%s\n", line.c_str());
        std::printf("Import complete.\n");
      });
}

CLI::App* ImportCommand::add(CLI::App& cli) {
  CLI::App* import = cli.add_subcommand(
      "import", "Merge a package (.rpkg) into the collection, or replace the collection with it.");
  import->add_option("file", _options.file, "the package")->required();
  import->add_flag("--replace", _options.replace,
                   "replace the whole collection (asks first on a terminal)");
  import->add_flag("--yes", _options.yes, "replace without asking");
  return import;
}

int ImportCommand::main(const CommandSettings& settings) {
  _options.file = std::filesystem::absolute(_options.file).string();
  _options.interactive = isatty(STDIN_FILENO) == 1;
  return withApp(settings, false, [this](AppDelegate& app) { run(app, _options); });
}

}  // namespace rivo
