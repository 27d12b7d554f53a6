#include "shell/ImportCommand.h"

#include <cstdio>
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

}  // namespace rivo
