#pragma once
// The deck list, the root screen: the deck tree with its counts and the expansion of each
// branch (kept per profile), and the way to study, rename, delete and add decks, to import
// packages and to reach the profiles. Each load rebuilds everything from the scheduler's deck
// tree in a job; the screen keeps only what it draws. Main loop only; the load's work block
// builds a fresh Loaded that the main block takes over, so nothing here is shared with the work
// queue.

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/ViewController.h"
#include "librivo/Value.h"

namespace rivo {

class AppDelegate;
class Col;
class ProfileManager;

class DecksViewController : public ViewController {
 public:
  static constexpr double kReloadAfter = 3600;  // seconds; see maybeLoadDecks

  // A row of the tree. `children` is keyed by the last name component.
  struct Entry {
    std::string name;
    std::string fullname;
    int indent = 0;
    bool expanded = false;
    bool inFamily = false;
    std::map<std::string, std::shared_ptr<Entry>> children;
  };

  // What one load produces.
  struct Loaded {
    std::vector<std::shared_ptr<Entry>> decks;  // one per top-level row
    std::vector<std::string> deckNames;         // all names, sorted
    // Counts by full name: [old (review + learning), new, dyn].
    std::map<std::string, std::array<int64_t, 3>> deckStats;
    std::vector<std::vector<std::shared_ptr<Entry>>> visibleDecks;  // a section per top deck
  };

  explicit DecksViewController(AppDelegate& app);

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;

  // The load job ("Checking..."); its main block redraws.
  void loadDecks();
  // loadDecks unless the last load is at most kReloadAfter seconds old.
  void maybeLoadDecks();
  // Builds the tree and counts from the collection; the work of the load job.
  static Loaded _loadDecks(Col& col, const ProfileManager& pm);

  // What the rows and buttons do.
  void selectDeck(const std::string& fullname);
  bool toggleSectionShownForDeck(const std::string& fullname);
  void deleteDeck(const std::string& fullname);
  void renameDeck(const std::string& fullname);
  void addEmptyDeck();
  void titleTapped();
  void showHelp();
  // The statistics screen, on the selected deck.
  void launchStats();
  // The export screen, and the backups screen.
  void launchItunesExport();
  void launchBackups();

  // Import. A path is a file handed over (or uploaded); without one the import takes
  // Documents/collection.rpkg. That name, from wherever it comes, replaces the whole collection
  // after confirmReplace; any other merges at once.
  static constexpr const char* kImportFile = "collection.rpkg";
  void launchRpkgImportWithURL(const std::string& path = {});
  void confirmReplace();
  // The job "Importing...": the result, then the reload and "Import complete.", which
  // follows a failure too.
  void launchItunesAddAndReplace(bool replace);

  // Sync. launchSync presents the sync screen with the profile's host key, or asks for a
  // login first (getLogin); a good login goes straight on to the sync.
  void launchSync();
  void getLogin();
  void getHkeyForUsername(const std::string& user, const std::string& password);
  // The sync button's colour: plain when not logged in or when the service's collection is
  // this one; kSyncChanged when there are local changes, or when the service's differs (asked
  // off the main loop; an error there changes nothing).
  static constexpr const char* kSyncChanged = "changed";
  void updateSyncLabel();
  const std::string& syncTone() const { return _syncTone; }

  // "1000+" for 1000 and above.
  static std::string _thousandPlus(int64_t n);

  const Loaded& loaded() const { return _loaded; }
  int64_t lastRefresh() const { return _lastRefresh; }

 private:
  static std::vector<std::shared_ptr<Entry>> visibleChildrenForDeck(const Entry& entry);
  static void updateVisibleDecksForSection(Loaded& loaded, size_t section);
  std::shared_ptr<Entry> _entry(const std::string& fullname) const;
  void _loadStudy();
  // True (and the user told) for an empty name or one in use.
  bool _refuseName(const std::string& text, const char* emptyMessage);
  void _renameCurrentDeckTo(const std::string& text);
  void _createDeck(const std::string& text);
  void _forgetUpload();

  AppDelegate& _app;
  Loaded _loaded;
  int64_t _lastRefresh = 0;
  bool _loading = false;
  Id _lastDid = 0;
  std::string _importPath;
  bool _iTunesImport = false;
  // The import path is an upload of the page's, removed once the import is over.
  bool _uploaded = false;
  std::string _syncTone;
};

}  // namespace rivo
