#pragma once
// Moves the files of older installs into the profile layout. It runs once at each launch, after
// the profiles exist and before any collection is opened, on the main thread. It has no state:
// what is on the disk tells whether there is anything to do, and a successful run leaves
// nothing to be found again.
//
// Where the older installs kept their files, in the data folder: a single-collection install
// its "collection.rivo2" (with journal) and "media" folder and database directly in it; the
// first generation an index "database/decks.db.sql" of one SQLite file per deck, and a folder
// per deck under "media".

namespace rivo {

class AppDelegate;

class Upgrader {
 public:
  // The upgrade from a single-collection install, else maybeUpgradeFromRivo1. Raises AppError
  // when the old collection can't be moved; it then stays where it was for the next launch.
  static void upgradeIfNeeded(AppDelegate& app);
  // Deck files go to Documents as "NAME.rivo" for the desktop program, the media into the
  // current profile's folder (a name there already is left), and the old action name in the
  // settings becomes the new one. Failed moves are forgotten: the index is removed anyway.
  static void maybeUpgradeFromRivo1(AppDelegate& app);
};

}  // namespace rivo
