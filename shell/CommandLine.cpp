#include "shell/CommandLine.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>

#include "app/AppDelegate.h"
#include "app/ConsoleUi.h"
#include "app/DynDeckOptions.h"
#include "app/ProfileManager.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/MediaManager.h"
#include "librivo/Scheduler.h"
#include "librivo/Utils.h"
#include "shell/BackupCommand.h"
#include "shell/BackupsCommand.h"
#include "shell/ExportCommand.h"
#include "shell/ImportCommand.h"
#include "shell/RestoreCommand.h"
#include "shell/ServeCommand.h"
#include "shell/StudySession.h"
#include "shell/SyncCommand.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

struct Settings {
  std::string data;
  std::string profile;
};

int fail(const std::string& message) {
  std::fprintf(stderr, "rivo: %s\n", message.c_str());
  return 1;
}

// Refuses what would otherwise fail half-way: an unusable data folder or a collection that
// can't be written. `create` allows a data folder that doesn't exist yet.
std::string checkDataDir(const std::string& dir, bool create) {
  std::error_code ec;
  if (!fs::exists(dir, ec)) {
    if (create) return {};
    return "the data folder " + dir + " doesn't exist (run 'rivo --data " + dir + " init')";
  }
  if (!fs::is_directory(dir, ec)) return dir + " is not a folder";
  if (access(dir.c_str(), R_OK | W_OK | X_OK) != 0)
    return "the data folder " + dir + " can't be read and written";
  return {};
}

std::string checkCollection(const std::string& path) {
  std::error_code ec;
  if (fs::exists(path, ec) && access(path.c_str(), R_OK | W_OK) != 0)
    return "the collection " + path + " is read-only or unreadable";
  return {};
}

// Launches the application, runs `command` on its main loop, and ends it; a command that
// `endsItself` calls AppDelegate::terminate with its exit status when its jobs are done.
int withApp(const Settings& s, bool createMissing, const std::function<void(AppDelegate&)>& command,
            bool endsItself = false) {
  ConsoleUi ui;
  AppDelegate::Options options;
  options.dataDir = s.data;
  options.profile = s.profile;
  options.createProfile = createMissing;
  AppDelegate app(ui, options);
  std::string profile = s.profile;
  if (profile.empty()) profile = "User 1";
  std::string problem =
      checkCollection((fs::path(s.data) / "profiles" / profile / "collection.rivo2").string());
  if (!problem.empty()) return fail(problem);
  app.launch();
  app.doOnMain([&] {
    try {
      command(app);
    } catch (...) {
      app.terminate(1, false);
      throw;
    }
    if (!endsItself) app.terminate(0);
  });
  return app.run();
}

// The database check runs as a job, as it does from the settings, after a forced backup that
// holds the state before any repair; without that backup nothing is repaired. Its text is the
// result.
void runCheck(AppDelegate& app) {
  auto text = std::make_shared<std::string>();
  auto backup = std::make_shared<BackupFolder::Result>();
  app.doWork(
      "Checking...",
      [&app, text, backup] {
        *backup = app.performBackup(true, "Creating Backup...");
        if (backup->outcome != BackupFolder::Result::Outcome::written) return;
        *text = app.col()->fixIntegrity();
        if (text->empty()) *text = "Database rebuilt and optimized.";
      },
      [text, backup] {
        if (backup->outcome != BackupFolder::Result::Outcome::written)
          throw std::runtime_error("Backup failed: " + backup->error);
        std::printf("%s\n", text->c_str());
      });
}

// Studies the current deck, or the named one selected first, as the study screen does.
void runStudy(AppDelegate& app, const std::string* deck) {
  Col& col = *app.col();
  if (deck) {
    Id did = col.decks().getID(*deck, false);
    if (!did) throw std::runtime_error("there is no deck named '" + *deck + "'");
    col.decks().select(Json(did));
  }
  col.save();
  col.reset();
  StudySession(col, STDIN_FILENO, stdout).run();
}

// Prints each id found and the sort field of its note. The order is a named choice, so no SQL
// comes from the command line.
void runSearch(AppDelegate& app, const std::string& query, bool notes, const std::string& order) {
  Col& col = *app.col();
  std::optional<std::string> sort;
  if (order == "browser") sort = "True";
  const std::vector<Id> ids = notes ? col.findNotes(query) : col.findCards(query, sort);
  std::map<Id, std::string> sfld;
  const std::string sql = notes ? "select id, sfld from notes where id in "
                                : "select c.id, n.sfld from cards c, notes n "
                                  "where c.nid = n.id and c.id in ";
  for (const Row& row : col.db()->all(sql + ids2str(ids))) sfld[toInt(row[0])] = toText(row[1]);
  for (Id id : ids) std::printf("%lld\t%s\n", static_cast<long long>(id), sfld[id].c_str());
}

// A filtered deck's order by number, or by a word for it.
int filterOrder(const std::string& text) {
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

struct FilterArgs {
  std::string name, search, order;
  int limit = 0;  // 0: keep the deck's
};

// Builds the named filtered deck, or rebuilds it with the new term, as its options screen does.
void runFilter(AppDelegate& app, const FilterArgs& a) {
  Col& col = *app.col();
  DeckManager& dm = col.decks();
  Id did = dm.getID(a.name, false);
  const bool isNew = !did;
  if (did && !dm.isDyn(Json(did)))
    throw std::runtime_error("'" + a.name + "' is a normal deck, not a filtered one");
  const int order = a.order.empty() ? -1 : filterOrder(a.order);
  if (isNew) did = dm.newDyn(a.name);
  if (!did) throw std::runtime_error("'" + a.name + "' can't be a deck name");
  Json& deck = *dm.getDeck(Json(did));
  DynDeckOptions options = DynDeckOptions::load(deck);
  options.search = a.search;
  if (a.limit) options.limitText = std::to_string(a.limit);
  if (order >= 0) options.order = order;
  if (auto alert = options.save(col, deck)) throw std::runtime_error(alert->message);
  const std::vector<Id> ids = col.sched().rebuildDyn();
  // A deck made for this search and left empty leaves no trace.
  if (ids.empty() && isNew) dm.removeDeck(Json(did), true);
  col.save();
  col.reset();
  if (ids.empty())
    std::printf("%s: %s\n", DynDeckOptions::kNoCardsTitle,
                "The provided search did not match any cards.");
  else
    std::printf("%zu card(s) gathered in '%s'.\n", ids.size(), dm.name(Json(did)).c_str());
}

// The media check runs as a job too; its progress shows as the spinner's text.
void runMediaCheck(AppDelegate& app) {
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
}

}  // namespace

int CommandLine::main(int argc, char** argv) {
  CLI::App cli{"Rivo: spaced-repetition flash cards.", "rivo"};
  Settings s;
  cli.add_option("--data", s.data,
                 "data folder (default: $RIVO_DATA, else $XDG_DATA_HOME/rivo, "
                 "else ~/.local/share/rivo)");
  cli.add_option("--profile", s.profile, "profile to open (default: the current one)");
  cli.require_subcommand(0, 1);
  CLI::App* serve = cli.add_subcommand(
      "serve", "Start Rivo in the browser (what `rivo` alone does); Ctrl+C stops it.");
  ServeCommand::Options serveOptions;
  serve->add_option("--port", serveOptions.port, "port to listen on (default: a free one)")
      ->check(CLI::Range(0, 65535));
  serve->add_option("--listen", serveOptions.listen,
                    "address to listen on (default 127.0.0.1; 0.0.0.0 lets a phone on the "
                    "network in)");
  bool noBrowser = false;
  serve->add_flag("--no-browser", noBrowser, "don't open the browser");
  // For tests: every job waits this long under its spinner; the idle time before saving.
  serve->add_option("--job-delay", serveOptions.jobDelay)->group("");
  serve->add_option("--idle-save", serveOptions.idleSeconds)->group("");
  CLI::App* init = cli.add_subcommand("init", "Create what is missing; print the collection path.");
  CLI::App* check = cli.add_subcommand("check", "Check and repair the database, then optimize it.");
  CLI::App* mediaCheck = cli.add_subcommand(
      "media-check", "List media files that notes refer to but are missing, and unused ones.");
  CLI::App* study = cli.add_subcommand(
      "study", "Study in the terminal: space shows the answer, 1-4 answer, u undoes, q quits.");
  std::string studyDeck;
  study->add_option("--deck", studyDeck, "deck to study (default: the current one)");
  CLI::App* filter = cli.add_subcommand(
      "filter", "Build or rebuild a filtered deck from a search; print how many cards it holds.");
  FilterArgs filterArgs;
  filter->add_option("name", filterArgs.name, "the filtered deck")->required();
  filter->add_option("--search", filterArgs.search, "the search that picks its cards")->required();
  filter->add_option("--limit", filterArgs.limit, "most cards to gather (new deck: 100)")
      ->check(CLI::Range(1, 99999));
  filter->add_option("--order", filterArgs.order,
                     "oldest, random, increasing, decreasing, lapses, added, due, latest, "
                     "overdue, or 0-8 (new deck: oldest)");
  CLI::App* search = cli.add_subcommand(
      "search", "Print the ids of matching cards (or notes), each with its sort field.");
  std::string searchQuery, searchOrder = "none";
  bool searchNotes = false;
  search->add_option("query", searchQuery, "what to find; put -- before a query starting with -")
      ->required();
  search->add_flag("--notes", searchNotes, "list note ids rather than card ids");
  search->add_option("--order", searchOrder, "none, or browser for the browser's sort")
      ->check(CLI::IsMember({"none", "browser"}));
  CLI::App* import = cli.add_subcommand(
      "import", "Merge a package (.rpkg) into the collection, or replace the collection with it.");
  ImportCommand::Options importOptions;
  import->add_option("file", importOptions.file, "the package")->required();
  import->add_flag("--replace", importOptions.replace,
                   "replace the whole collection (asks first on a terminal)");
  import->add_flag("--yes", importOptions.yes, "replace without asking");
  CLI::App* sync = cli.add_subcommand(
      "sync",
      "Sync the collection with the service at $SYNC_BASE; exit 3 when a full sync is "
      "needed and no --full direction was given.");
  SyncCommand::Args syncArgs;
  sync->add_option("--user", syncArgs.user,
                   "log in as this account first (password from RIVO_PASSWORD or standard "
                   "input)");
  sync->add_option("--full", syncArgs.full,
                   "force a one-way sync: upload replaces the server's collection, download "
                   "replaces this one")
      ->check(CLI::IsMember({"upload", "download"}));
  sync->add_flag("--no-media", syncArgs.noMedia,
                 "leave the media alone this time (the profile's \"downloadMedia\" decides "
                 "otherwise)");
  CLI::App* exportCmd = cli.add_subcommand(
      "export", "Write a package (.rpkg) of the collection, or of a deck with its children.");
  ExportCommand::Options exportOptions;
  std::string exportDeck;
  bool noSched = false, noMedia = false;
  exportCmd->add_option("file", exportOptions.file, "the package to write")->required();
  exportCmd->add_option("--deck", exportDeck, "export this deck and its children only");
  exportCmd->add_flag("--no-sched", noSched, "every card new, no review history");
  exportCmd->add_flag("--no-media", noMedia, "leave the media files out");
  CLI::App* backup = cli.add_subcommand(
      "backup", "Back the collection up, unless the newest backup is recent (see --force).");
  bool forceBackup = false;
  backup->add_flag("--force", forceBackup, "back up whatever the limits say");
  CLI::App* backups =
      cli.add_subcommand("backups", "List the backups, newest first: name, date, size.");
  CLI::App* restore = cli.add_subcommand(
      "restore", "Revert the collection to a backup (asks first on a terminal).");
  RestoreCommand::Options restoreOptions;
  restore->add_option("name", restoreOptions.name, "the backup, as `rivo backups` lists it")
      ->required();
  restore->add_flag("--yes", restoreOptions.yes, "revert without asking");
  try {
    cli.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return cli.exit(e);
  } catch (const CLI::ParseError& e) {
    int code = cli.exit(e);
    return code == 0 ? 0 : 2;
  }
  if (cli.count("--profile") && !ProfileManager::isLegalName(s.profile))
    return fail("'" + s.profile +
                "' can't be a profile name: please avoid symbols and underscores.");
  bool explicitData = !s.data.empty();
  if (!explicitData) s.data = AppDelegate::defaultDataDir();
  try {
    if (init->parsed()) {
      std::string problem = checkDataDir(s.data, true);
      if (!problem.empty()) return fail(problem);
      return withApp(s, true,
                     [](AppDelegate& app) { std::printf("%s\n", app.col()->path().c_str()); });
    }
    // The application makes a data folder it is pointed at; the other commands need one.
    bool serving = cli.get_subcommands().empty() || serve->parsed();
    std::string problem = checkDataDir(s.data, serving || !explicitData);
    if (!problem.empty()) return fail(problem);
    if (check->parsed()) return withApp(s, false, runCheck);
    if (mediaCheck->parsed()) return withApp(s, false, runMediaCheck);
    if (search->parsed())
      return withApp(s, false, [&](AppDelegate& app) {
        runSearch(app, searchQuery, searchNotes, searchOrder);
      });
    if (filter->parsed())
      return withApp(s, false, [&](AppDelegate& app) { runFilter(app, filterArgs); });
    if (import->parsed()) {
      importOptions.file = fs::absolute(importOptions.file).string();
      importOptions.interactive = isatty(STDIN_FILENO) == 1;
      return withApp(s, false, [&](AppDelegate& app) { ImportCommand::run(app, importOptions); });
    }
    if (sync->parsed())
      return withApp(
          s, false, [&](AppDelegate& app) { SyncCommand::run(app, syncArgs); }, true);
    if (exportCmd->parsed()) {
      exportOptions.file = fs::absolute(exportOptions.file).string();
      if (exportCmd->count("--deck")) exportOptions.deck = exportDeck;
      exportOptions.includeSched = !noSched;
      exportOptions.includeMedia = !noMedia;
      return withApp(s, false, [&](AppDelegate& app) { ExportCommand::run(app, exportOptions); });
    }
    if (backup->parsed())
      return withApp(s, false, [&](AppDelegate& app) { BackupCommand::run(app, forceBackup); });
    if (backups->parsed()) return withApp(s, false, BackupsCommand::run);
    if (restore->parsed()) {
      restoreOptions.interactive = isatty(STDIN_FILENO) == 1;
      return withApp(s, false, [&](AppDelegate& app) { RestoreCommand::run(app, restoreOptions); });
    }
    if (study->parsed())
      return withApp(s, false, [&](AppDelegate& app) {
        runStudy(app, study->count("--deck") ? &studyDeck : nullptr);
      });
    serveOptions.dataDir = s.data;
    serveOptions.profile = s.profile;
    serveOptions.openBrowser = !noBrowser;
    return ServeCommand::run(serveOptions);
  } catch (const std::exception& e) {
    return fail(e.what());
  }
}

}  // namespace rivo
