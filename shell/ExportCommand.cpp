#include "shell/ExportCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "app/AppDelegate.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/RivoPackageExporter.h"

namespace rivo {

void ExportCommand::run(AppDelegate& app, const Options& options) {
  std::optional<Id> did;
  if (options.deck) {
    did = app.col()->decks().getID(*options.deck, false);
    if (!*did)
      throw std::runtime_error("Error in export: There is no deck named '" + *options.deck + "'.");
  }
  struct Outcome {
    bool ok = false;
    std::string error;
    int64_t cards = 0;
    int media = 0;
  };
  auto outcome = std::make_shared<Outcome>();
  app.doWork(
      "Exporting...",
      [&app, options, did, outcome] {
        RivoPackageExporter exporter(*app.col(), did);
        exporter.includeSched = options.includeSched;
        exporter.includeMedia = options.includeMedia;
        outcome->ok = exporter.copyInto(options.file, &outcome->error);
        outcome->cards = exporter.count();
        outcome->media = exporter.mediaCount();
      },
      [options, outcome] {
        if (!outcome->ok) throw std::runtime_error("Error in export: " + outcome->error);
        std::printf("Exported %lld cards and %d media files to %s.\n",
                    static_cast<long long>(outcome->cards), outcome->media, options.file.c_str());
      });
}

CLI::App* ExportCommand::add(CLI::App& cli) {
  _sub = cli.add_subcommand(
      "export", "Write a package (.rpkg) of the collection, or of a deck with its children.");
  _sub->add_option("file", _options.file, "the package to write")->required();
  _sub->add_option("--deck", _deck, "export this deck and its children only");
  _sub->add_flag("--no-sched", _noSched, "every card new, no review history");
  _sub->add_flag("--no-media", _noMedia, "leave the media files out");
  return _sub;
}

int ExportCommand::main(const CommandSettings& settings) {
  _options.file = std::filesystem::absolute(_options.file).string();
  if (_sub->count("--deck")) _options.deck = _deck;
  _options.includeSched = !_noSched;
  _options.includeMedia = !_noMedia;
  return withApp(settings, false, [this](AppDelegate& app) { run(app, _options); });
}

}  // namespace rivo
