#include "shell/SearchCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <optional>

#include "app/AppDelegate.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Ids.h"

namespace rivo {

CLI::App* SearchCommand::add(CLI::App& cli) {
  CLI::App* search = cli.add_subcommand(
      "search", "Print the ids of matching cards (or notes), each with its sort field.");
  search->add_option("query", _query, "what to find; put -- before a query starting with -")
      ->required();
  search->add_flag("--notes", _notes, "list note ids rather than card ids");
  search->add_option("--order", _order, "none, or browser for the browser's sort")
      ->check(CLI::IsMember({"none", "browser"}));
  return search;
}

int SearchCommand::main(const CommandSettings& settings) {
  return withApp(settings, false, [this](AppDelegate& app) {
    Col& col = *app.col();
    std::optional<std::string> sort;
    if (_order == "browser") sort = "True";
    const std::vector<Id> ids = _notes ? col.findNotes(_query) : col.findCards(_query, sort);
    std::map<Id, std::string> sfld;
    const std::string sql = _notes ? "select id, sfld from notes where id in "
                                   : "select c.id, n.sfld from cards c, notes n "
                                     "where c.nid = n.id and c.id in ";
    for (const Row& row : col.db()->all(sql + ids2str(ids))) sfld[toInt(row[0])] = toText(row[1]);
    for (Id id : ids) std::printf("%lld\t%s\n", static_cast<long long>(id), sfld[id].c_str());
  });
}

}  // namespace rivo
