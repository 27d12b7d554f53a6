#include "shell/FilterCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include "app/AppDelegate.h"
#include "app/DynDeckOptions.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/IcuText.h"
#include "librivo/Scheduler.h"

namespace rivo {

CLI::App* FilterCommand::add(CLI::App& cli) {
  CLI::App* filter = cli.add_subcommand(
      "filter", "Build or rebuild a filtered deck from a search; print how many cards it holds.");
  filter->add_option("name", _name, "the filtered deck")->required();
  filter->add_option("--search", _search, "the search that picks its cards")->required();
  filter->add_option("--limit", _limit, "most cards to gather (new deck: 100)")
      ->check(CLI::Range(1, 99999));
  filter->add_option("--order", _orderText,
                     "oldest, random, increasing, decreasing, lapses, added, due, latest, "
                     "overdue, or 0-8 (new deck: oldest)");
  return filter;
}

int FilterCommand::_order(const std::string& text) {
  static const std::vector<std::string> words = {"oldest",     "random", "increasing",
                                                 "decreasing", "lapses", "added",
                                                 "due",        "latest", "overdue"};
  for (size_t i = 0; i < words.size(); ++i)
    if (text == words[i] || text == std::to_string(i)) return static_cast<int>(i);
  std::string known;
  for (size_t i = 0; i < words.size(); ++i)
    known += (i ? ", " : "") + words[i] + " (" + std::to_string(i) + ")";
  throw std::runtime_error("unknown order '" + text + "'; use one of " + known);
}

int FilterCommand::main(const CommandSettings& settings) {
  return withApp(settings, false, [this](AppDelegate& app) {
    Col& col = *app.col();
    DeckManager& dm = col.decks();
    // Text of the command line reaches the stored blobs; bytes that aren't UTF-8 never do.
    if (!icutext::isValidUtf8(_name))
      throw std::runtime_error("the deck name isn't valid UTF-8 text");
    if (!icutext::isValidUtf8(_search))
      throw std::runtime_error("the search isn't valid UTF-8 text");
    Id did = dm.getID(_name, false);
    const bool isNew = !did;
    if (did && !dm.isDyn(Json(did)))
      throw std::runtime_error("'" + _name + "' is a normal deck, not a filtered one");
    const int order = _orderText.empty() ? -1 : _order(_orderText);
    if (isNew) did = dm.newDyn(_name);
    if (!did) throw std::runtime_error("'" + _name + "' can't be a deck name");
    Json& deck = *dm.getDeck(Json(did));
    DynDeckOptions options = DynDeckOptions::load(deck);
    options.search = _search;
    if (_limit) options.limitText = std::to_string(_limit);
    if (order >= 0) options.order = order;
    if (auto alert = options.save(col, deck)) throw std::runtime_error(alert->message);
    // The rebuild acts on the selected deck, as on the screen: select the named one first.
    dm.select(Json(did));
    const std::vector<Id> ids = col.sched().rebuildDyn();
    if (ids.empty() && isNew) dm.removeDeck(Json(did), true);
    col.save();
    col.reset();
    if (ids.empty())
      std::printf("%s: %s\n", DynDeckOptions::kNoCardsTitle,
                  "The provided search did not match any cards.");
    else
      std::printf("%zu card(s) gathered in '%s'.\n", ids.size(), dm.name(Json(did)).c_str());
  });
}

}  // namespace rivo
