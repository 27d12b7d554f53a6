#include "shell/StudyCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <stdexcept>

#include "app/AppDelegate.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "shell/StudySession.h"

namespace rivo {

CLI::App* StudyCommand::add(CLI::App& cli) {
  CLI::App* study = cli.add_subcommand(
      "study", "Study in the terminal: space shows the answer, 1-4 answer, u undoes, q quits.");
  study->add_option("--deck", _deck, "deck to study (default: the current one)")
      ->each([this](const std::string&) { _deckGiven = true; });
  return study;
}

int StudyCommand::main(const CommandSettings& settings) {
  return withApp(settings, false, [this](AppDelegate& app) {
    Col& col = *app.col();
    if (_deckGiven) {
      Id did = col.decks().getID(_deck, false);
      if (!did) throw std::runtime_error("there is no deck named '" + _deck + "'");
      col.decks().select(Json(did));
    }
    col.save();
    col.reset();
    StudySession(col, STDIN_FILENO, stdout).run();
  });
}

}  // namespace rivo
