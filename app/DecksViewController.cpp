#include "app/DecksViewController.h"

#include <algorithm>
#include <filesystem>

#include "app/ActionsManager.h"
#include "app/AppDelegate.h"
#include "app/BackupManager.h"
#include "app/DeckStatsViewController.h"
#include "app/ExportViewController.h"
#include "app/HelpViewController.h"
#include "app/NavigationController.h"
#include "app/Preferences.h"
#include "app/ProfileManager.h"
#include "app/ProfilesViewController.h"
#include "app/SettingsViewController.h"
#include "app/StudyViewController.h"
#include "app/SyncFlow.h"
#include "app/SyncViewController.h"
#include "app/Ui.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/Error.h"
#include "librivo/RivoPackageImporter.h"
#include "librivo/Scheduler.h"
#include "librivo/SysLog.h"
#include "librivo/syncing/RemoteServer.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

const std::string kSep = "::";
const char* const kImportEntry = "Import File...";
const char* const kExportEntry = "Export File...";
const char* const kBackupsEntry = "Backups...";

std::vector<std::string> components(const std::string& name) {
  std::vector<std::string> out;
  size_t start = 0;
  for (size_t at; (at = name.find(kSep, start)) != std::string::npos; start = at + kSep.size())
    out.push_back(name.substr(start, at - start));
  out.push_back(name.substr(start));
  return out;
}

std::string trimmed(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

void flattenDeckTree(const std::vector<DeckDueNode>& nodes,
                     std::map<Id, std::array<int64_t, 3>>& deckDueList) {
  for (const DeckDueNode& node : nodes) {
    deckDueList[node.did] = {node.rev, node.lrn, node.newCount};
    flattenDeckTree(node.children, deckDueList);
  }
}

std::string expandedKey(const std::string& fullname) {
  return "expandedStateFor" + fullname;
}

}  // namespace

DecksViewController::DecksViewController(AppDelegate& app) : _app(app) {}

// Loading.

void DecksViewController::viewWillAppear() {
  // After the first frame, so that the screen is drawn before the spinner goes up.
  _app.performAfterDelay(0.01f, [this] { loadDecks(); });
}

void DecksViewController::loadDecks() {
  auto result = std::make_shared<Loaded>();
  auto when = std::make_shared<int64_t>(0);
  _app.doWork(
      "Checking...",
      [this, result, when] {
        std::shared_ptr<Col> col = _app.col();
        if (!col) return;
        *result = _loadDecks(*col, _app.pm());
        *when = intTime();
      },
      [this, result, when] {
        if (!*when) return;
        _loaded = std::move(*result);
        _lastRefresh = *when;
        setNeedsDisplay();
        updateSyncLabel();
      });
}

void DecksViewController::maybeLoadDecks() {
  if (intTime() - _lastRefresh > kReloadAfter) loadDecks();
}

DecksViewController::Loaded DecksViewController::_loadDecks(Col& col, const ProfileManager& pm) {
  Loaded out;
  Scheduler& sched = col.sched();
  sched.reset();
  std::map<Id, std::array<int64_t, 3>> deckDueList;
  flattenDeckTree(sched.deckDueTree(), deckDueList);

  DeckManager& dm = col.decks();
  out.deckNames = dm.allNames();
  std::sort(out.deckNames.begin(), out.deckNames.end());
  const std::string defaultName = dm.name(Json(1));
  std::map<std::string, size_t> topIndex;
  Json prefs = pm.dictionaryRepresentation();

  for (const std::string& fullname : out.deckNames) {
    Id did = dm.getID(fullname, false);
    auto due = deckDueList.find(did);
    const Json* deck = did ? dm.getDeck(Json(did), false) : nullptr;
    int64_t dyn = deck ? jsonInt(deck->value("dyn", Json(0))) : 0;
    if (due != deckDueList.end())
      out.deckStats[fullname] = {due->second[0] + due->second[1], due->second[2], dyn};
    else
      out.deckStats[fullname] = {0, 0, dyn};

    auto entry = std::make_shared<Entry>();
    entry->fullname = fullname;
    auto pref = prefs.find(expandedKey(fullname));
    entry->expanded = pref != prefs.end() && Preferences::boolValue(*pref);
    std::vector<std::string> parts = components(fullname);
    if (parts.size() > 1 && topIndex.count(parts[0])) {
      // A child: walk down through the middle components; a missing one loses the entry.
      std::shared_ptr<Entry> parent = out.decks[topIndex[parts[0]]];
      for (size_t i = 1; parent && i + 1 < parts.size(); ++i) {
        auto it = parent->children.find(parts[i]);
        parent = it == parent->children.end() ? nullptr : it->second;
      }
      if (!parent) continue;
      entry->indent = static_cast<int>(parts.size()) - 1;
      entry->name = parts.back();
      entry->inFamily = true;
      parent->children[parts.back()] = entry;
      continue;
    }
    // A top-level row; one whose parent is missing shows under its full name.
    entry->name = fullname;
    if (fullname == defaultName && out.deckNames.size() > 1) {
      bool hasChildren =
          std::any_of(out.deckNames.begin(), out.deckNames.end(),
                      [&](const std::string& n) { return n.rfind(fullname + kSep, 0) == 0; });
      // An unused default deck stays out of the list.
      if (!hasChildren && !col.db()->scalar("select 1 from cards where did = 1")) continue;
    }
    topIndex[parts[0]] = out.decks.size();
    out.decks.push_back(entry);
    out.visibleDecks.emplace_back();
  }
  for (size_t s = 0; s < out.decks.size(); ++s) updateVisibleDecksForSection(out, s);
  return out;
}

std::vector<std::shared_ptr<DecksViewController::Entry>>
DecksViewController::visibleChildrenForDeck(const Entry& entry) {
  std::vector<std::shared_ptr<Entry>> out;
  if (!entry.expanded) return out;
  for (const auto& [name, child] : entry.children) {
    out.push_back(child);
    auto below = visibleChildrenForDeck(*child);
    out.insert(out.end(), below.begin(), below.end());
  }
  return out;
}

void DecksViewController::updateVisibleDecksForSection(Loaded& loaded, size_t section) {
  auto& rows = loaded.visibleDecks[section];
  rows = {loaded.decks[section]};
  auto children = visibleChildrenForDeck(*loaded.decks[section]);
  rows.insert(rows.end(), children.begin(), children.end());
  // The suffix sorts a parent before its children among names that share a prefix.
  std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
    return a->fullname + "$end" < b->fullname + "$end";
  });
}

// Drawing.

std::string DecksViewController::_thousandPlus(int64_t n) {
  return n >= 1000 ? "1000+" : std::to_string(n);
}

Screen DecksViewController::describe() {
  Screen s;
  s.title = _app.pm().profiles().size() > 1 ? _app.pm().currentProfile() : "Decks";
  s.titleIsButton = true;
  s.refreshable = true;
  s.left.push_back({"help", "Help", "help"});
  s.right.push_back({"stats", "Statistics", "stats"});
  s.right.push_back({"refresh", "Refresh", "refresh"});
  s.toolbar.push_back({"addExport", "Add/Export", "add"});
  // A browser user has no documents folder at hand: a package can be chosen and sent.
  Screen::Button upload{"import", "Import", "import"};
  upload.accept = ".rpkg";
  s.toolbar.push_back(std::move(upload));
  Screen::Button sync{"sync", "Synchronize", "sync"};
  sync.tone = _syncTone;
  s.toolbar.push_back(std::move(sync));
  s.toolbar.push_back({"settings", "Settings", "settings"});
  s.keys.push_back({"s", "sync", "Synchronize"});
  s.keys.push_back({"t", "stats", "Statistics"});
  s.keys.push_back({",", "settings", "Settings"});
  // What the phone's home-screen shortcuts open ("add cards", "search").
  s.toolbar.push_back({"addNote", "Add Note", "compose"});
  s.toolbar.push_back({"search", "Search", "search"});
  s.keys.push_back({"a", "addNote", "Add a note"});
  s.keys.push_back({"/", "search", "Search"});
  for (const auto& section : _loaded.visibleDecks) {
    Screen::Section out;
    for (const auto& entry : section) {
      Screen::Row row;
      row.id = entry->fullname;
      row.text = entry->name;
      row.indent = entry->indent;
      if (!entry->children.empty())
        row.accessory =
            entry->expanded ? Screen::Accessory::expanded : Screen::Accessory::collapsed;
      auto stats = _loaded.deckStats.find(entry->fullname);
      if (stats != _loaded.deckStats.end()) {
        row.counts = {{_thousandPlus(stats->second[0]), "review"},
                      {_thousandPlus(stats->second[1]), "new"}};
        if (stats->second[2]) row.tone = "filtered";
      }
      row.canDelete = true;
      row.hasMenu = true;
      out.rows.push_back(std::move(row));
    }
    s.sections.push_back(std::move(out));
  }
  return s;
}

// Events.

bool DecksViewController::handle(const Event& e) {
  if (e.element == "title") {
    titleTapped();
    return true;
  }
  if (e.element == "refresh" || (e.element == "button" && e.id == "refresh")) {
    loadDecks();
    return true;
  }
  if ((e.element == "button" || e.element == "key") && (e.id == "addNote" || e.id == "search")) {
    _app.acts().run(e.id == "addNote" ? "add" : "search");
    return true;
  }
  if (e.element == "button") {
    if (e.id == "help") {
      showHelp();
      return true;
    }
    if (e.id == "sync") {
      launchSync();
      return true;
    }
    if (e.id == "stats") {
      launchStats();
      return true;
    }
    if (e.id == "settings") {
      navigationController()->push(std::make_shared<SettingsViewController>(_app, "Root"));
      return true;
    }
    if (e.id == "addExport") {
      // Shared decks join this sheet when they land; the backups move to the settings then.
      _app.ui().showActionSheet(
          "Add/Export",
          {kImportEntry, kExportEntry, kBackupsEntry, "Add Empty Deck", "Create Filtered Deck"},
          "Cancel", [this](int index) {
            if (index == 0) launchRpkgImportWithURL();
            if (index == 1) launchItunesExport();
            if (index == 2) launchBackups();
            if (index == 3) addEmptyDeck();
            if (index == 4) _app.acts().newFilteredDeck();
          });
      return true;
    }
    if (e.id == "import" && e.kind == "upload") {
      const Json path = e.value.is_object() ? e.value.value("path", Json()) : Json();
      if (!path.is_string()) return false;
      _uploaded = true;
      launchRpkgImportWithURL(path.get<std::string>());
      return true;
    }
    return false;
  }
  if (e.element == "key" && e.id == "sync") {
    launchSync();
    return true;
  }
  if (e.element == "key" && e.id == "stats") {
    launchStats();
    return true;
  }
  if (e.element == "key" && e.id == "settings") {
    navigationController()->push(std::make_shared<SettingsViewController>(_app, "Root"));
    return true;
  }
  if (e.element != "row" || !_entry(e.id)) return false;
  if (e.kind == "select") {
    selectDeck(e.id);
  } else if (e.kind == "toggle") {
    return toggleSectionShownForDeck(e.id);
  } else if (e.kind == "delete") {
    deleteDeck(e.id);
  } else if (e.kind == "menu") {
    renameDeck(e.id);
  } else {
    return false;
  }
  return true;
}

std::shared_ptr<DecksViewController::Entry> DecksViewController::_entry(
    const std::string& fullname) const {
  for (const auto& section : _loaded.visibleDecks)
    for (const auto& entry : section)
      if (entry->fullname == fullname) return entry;
  return nullptr;
}

void DecksViewController::selectDeck(const std::string& fullname) {
  std::shared_ptr<Col> col = _app.col();
  if (!col) return;
  Id did = col->decks().getID(fullname, false);
  if (!did) {
    _app.log("Deck view: Could not load deck named: " + fullname);
    return;
  }
  col->decks().select(Json(did));
  // Undo history survives leaving and re-entering the same deck.
  if (did != _lastDid) {
    col->clearUndo();
    _lastDid = did;
  }
  _loadStudy();
}

void DecksViewController::_loadStudy() {
  std::shared_ptr<StudyViewController> svc = _app.studyViewController();
  svc->reset();
  navigationController()->push(svc);
}

bool DecksViewController::toggleSectionShownForDeck(const std::string& fullname) {
  std::shared_ptr<Entry> entry = _entry(fullname);
  if (!entry || entry->children.empty()) return false;
  entry->expanded = !entry->expanded;
  _app.pm().setBool(entry->expanded, expandedKey(fullname));
  for (size_t s = 0; s < _loaded.visibleDecks.size(); ++s)
    if (std::find(_loaded.visibleDecks[s].begin(), _loaded.visibleDecks[s].end(), entry) !=
        _loaded.visibleDecks[s].end()) {
      updateVisibleDecksForSection(_loaded, s);
      break;
    }
  setNeedsDisplay();
  return true;
}

void DecksViewController::deleteDeck(const std::string& fullname) {
  std::shared_ptr<Col> col = _app.col();
  if (!col) return;
  Id did = col->decks().getID(fullname, false);
  if (!did) return;
  if (did == 1) {
    _app.ui().showAlert("Cannot delete", "The default deck cannot be deleted.");
    return;
  }
  auto remove = [this, did] {
    std::shared_ptr<Col> c = _app.col();
    if (!c) return;
    c->decks().removeDeck(Json(did), true);
    c->save();
    loadDecks();
  };
  if (col->decks().isDyn(Json(did))) {
    remove();
    return;
  }
  _app.askUser("Are you sure you wish to delete this deck?", "", [remove](bool yes) {
    if (yes) remove();
  });
}

void DecksViewController::renameDeck(const std::string& fullname) {
  std::shared_ptr<Col> col = _app.col();
  if (!col) return;
  Id did = col->decks().getID(fullname, false);
  if (!did) return;
  col->decks().select(Json(did));
  _app.ui().askText("Rename Deck", "Enter new deck name:", {{"Deck name", fullname, false}},
                    "Cancel", "Rename", [this](int index, std::vector<std::string> texts) {
                      if (index == 1 && !texts.empty()) _renameCurrentDeckTo(texts[0]);
                    });
}

bool DecksViewController::_refuseName(const std::string& text, const char* emptyMessage) {
  if (text.empty()) {
    _app.ui().showAlert("Need Deck Name", emptyMessage);
    return true;
  }
  if (std::find(_loaded.deckNames.begin(), _loaded.deckNames.end(), text) !=
      _loaded.deckNames.end()) {
    _app.ui().showAlert("Deck Exists", "A deck with that name already exists.");
    return true;
  }
  return false;
}

void DecksViewController::_renameCurrentDeckTo(const std::string& text) {
  std::shared_ptr<Col> col = _app.col();
  if (!col || _refuseName(text, "Cannot rename a deck without a name.")) return;
  for (const std::string& part : components(text)) {
    if (trimmed(part).empty()) {
      _app.showInfo("Invalid deck name.");
      return;
    }
  }
  try {
    col->decks().rename(*col->decks().current(), text);
  } catch (const DeckNameError& e) {
    // A name the registry refuses (a deck below itself, a name in use in other case).
    _app.ui().showAlert(e.name(), e.what());
    return;
  }
  loadDecks();
}

void DecksViewController::addEmptyDeck() {
  _app.ui().askText("Create Empty Deck", "Enter deck name:", {{"Deck name", "", false}}, "Cancel",
                    "Create", [this](int index, std::vector<std::string> texts) {
                      if (index == 1 && !texts.empty()) _createDeck(texts[0]);
                    });
}

void DecksViewController::_createDeck(const std::string& text) {
  std::shared_ptr<Col> col = _app.col();
  if (!col || _refuseName(text, "Cannot create a deck without a name.")) return;
  Id did = col->decks().getID(text);
  if (!did) {
    _app.showInfo("Invalid deck name.");
    return;
  }
  col->decks().select(Json(did));
  loadDecks();
}

// Import.

void DecksViewController::launchRpkgImportWithURL(const std::string& path) {
  _iTunesImport = path.empty();
  const std::string documents = _app.pm().backupFolder();
  _importPath = path.empty() ? documents + "/" + kImportFile : path;
  std::error_code ec;
  if (!fs::is_regular_file(_importPath, ec)) {
    _app.ui().showAlert("Cannot Import",
                        _iTunesImport ? "No file found to import. Make sure you have placed the "
                                        "collection.rpkg file in the Documents folder (" +
                                            documents + ")."
                                      : "No file found to import.");
    return;
  }
  if (fs::path(_importPath).filename() == kImportFile)
    confirmReplace();
  else
    launchItunesAddAndReplace(false);
}

void DecksViewController::confirmReplace() {
  _app.performAfterDelay(0.3f, [this] {
    _app.ui().askQuestion("Confirm Replace",
                          "Are you sure you want to replace your collection with the imported "
                          "file? This action cannot be undone.",
                          "Cancel", "Replace", [this](int index) {
                            if (index == 1)
                              launchItunesAddAndReplace(true);
                            else
                              _forgetUpload();
                          });
  });
}

void DecksViewController::launchItunesAddAndReplace(bool replace) {
  const std::string path = _importPath;
  const bool iTunesImport = _iTunesImport;
  _app.doWork(
      "Importing...",
      [this, path, replace, iTunesImport] {
        std::shared_ptr<Col> col = _app.col();
        if (!col) return;
        col->save();
        RivoPackageImporter importer(*col, path);
        std::string error;
        if (!importer.runAndReplaceCollection(replace, &error)) {
          _app.showInfo("Error importing: " + error);
        } else if (iTunesImport) {
          _app.askUser("Delete the collection.rpkg file after import?", "Delete Import File",
                       [path](bool yes) {
                         std::error_code ec;
                         if (yes) fs::remove(path, ec);
                       });
        }
      },
      [this] {
        _forgetUpload();
        loadDecks();
        _app.showInfo("Import complete.");
      });
}

void DecksViewController::_forgetUpload() {
  if (!_uploaded) return;
  _uploaded = false;
  std::error_code ec;
  fs::remove(_importPath, ec);
  // The folder the upload came in, when nothing else is in it.
  fs::remove(fs::path(_importPath).parent_path(), ec);
}

void DecksViewController::launchItunesExport() {
  navigationController()->push(std::make_shared<ExportViewController>(_app));
}

void DecksViewController::launchBackups() {
  navigationController()->push(std::make_shared<BackupManager>(_app));
}

void DecksViewController::titleTapped() {
  navigationController()->push(std::make_shared<ProfilesViewController>(_app));
}

void DecksViewController::showHelp() {
  navigationController()->push(std::make_shared<HelpViewController>(_app.ui()));
}

void DecksViewController::launchStats() {
  navigationController()->push(std::make_shared<DeckStatsViewController>(_app));
}

// Sync.

void DecksViewController::launchSync() {
  const std::string hkey = _app.pm().stringForKey("hkey");
  if (hkey.empty()) {
    getLogin();
    return;
  }
  navigationController()->push(std::make_shared<SyncViewController>(_app, hkey));
}

void DecksViewController::getLogin() {
  _app.ui().askText("Login", "", {{"Username", "", false, "email"}, {"Password", "", true}},
                    "Cancel", "Login", [this](int index, std::vector<std::string> texts) {
                      if (index == 1 && texts.size() == 2) getHkeyForUsername(texts[0], texts[1]);
                    });
}

void DecksViewController::getHkeyForUsername(const std::string& user, const std::string& password) {
  if (user.empty() || password.empty()) {
    _app.ui().showAlert("Invalid login", "Both username and password are required.");
    return;
  }
  SyncFlow::login(_app, user, password, [this](std::optional<std::string> failure) {
    if (failure)
      _app.showInfo(*failure);
    else
      launchSync();
  });
}

void DecksViewController::updateSyncLabel() {
  auto setTone = [this](std::string tone) {
    if (tone == _syncTone) return;
    _syncTone = std::move(tone);
    setNeedsDisplay();
  };
  const std::string hkey = _app.pm().stringForKey("hkey");
  std::shared_ptr<Col> col = _app.col();
  if (hkey.empty() || !col) return setTone("");
  if (col->ls() < col->mod()) return setTone(kSyncChanged);
  _app.doOnBlock([this, hkey, setTone] {
    RemoteServer server(hkey);
    server.tmpDir = _app.tmpDir();
    Error err;
    std::optional<Json> meta = server.meta(&err);
    if (!meta) {
      _app.log("error checking sync status: " + err.message);
      return;
    }
    const int64_t mod = jsonInt(meta->value("mod", Json()));
    _app.doOnMain([this, mod, setTone] {
      if (std::shared_ptr<Col> c = _app.col()) setTone(mod != c->mod() ? kSyncChanged : "");
    });
  });
}

}  // namespace rivo
