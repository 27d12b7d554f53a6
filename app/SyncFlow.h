#pragma once
// The steps of one sync, shared by the sync screen and `rivo sync`: save, the collection's
// sync (and the full sync in the direction the caller chooses), close without saving and
// reopen, then the media sync when asked for; and, back on the main loop, what the outcome
// means for the profile (the account's name, a refused key) and the texts to show. Also the
// login that gets the host key. Stateless: everything lives in the Outcome and the callers.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "librivo/Error.h"

namespace rivo {

class AppDelegate;
class SyncListener;

class SyncFlow {
 public:
  // The direction of a full sync, as the user chose it; undecided leaves the sync at
  // "fullSync" with nothing replaced.
  enum FullSyncChoice { kUndecided = 0, kUpload = 1, kDownload = 2, kCancel = 3 };

  struct Outcome {
    // "noChanges", "success", "upload", "download", or "fullSync" when no direction was
    // chosen; empty when the collection's sync failed, with `error` saying why.
    std::optional<std::string> result;
    Error error;
    std::string syncMsg;               // the server's message, also after a failure
    std::optional<std::string> uname;  // the account, when the collection's sync went well
    std::optional<Error> mediaError;   // the media sync failed; the collection's sync stands
  };

  // On the work queue, inside a job. `chooseDirection` is called there when the two sides
  // can't be merged and blocks until it has an answer.
  static Outcome run(AppDelegate& app, const std::string& hkey, bool media, SyncListener& listener,
                     const std::function<FullSyncChoice()>& chooseDirection);

  // On the main loop, after run(): keeps the account's name, logs each error and acts on its
  // domain (a refused key is forgotten, so the next sync asks for a login). Returns the texts
  // for the user, collection's first; a cancelled direction gives none.
  static std::vector<std::string> conclude(AppDelegate& app, const Outcome& out);

  // The job "Authenticating...": asks the service for the host key of this login and keeps
  // it under "hkey". `then` runs on the main loop with nothing, or the text for the user when
  // it failed. Both texts must be given; the callers check.
  static void login(AppDelegate& app, const std::string& user, const std::string& password,
                    std::function<void(std::optional<std::string> failure)> then);

  // The settings' two buttons, on the main loop. "Log Out": forgets the key, and the media
  // database's sync state so that the next account starts from nothing; `reload` redraws the
  // settings. "Force Full Sync": after the user agrees, a new schema stamp makes the next sync
  // a full one; back to the deck list.
  static void deauthorize(AppDelegate& app, const std::function<void()>& reload);
  static void fullSync(AppDelegate& app);
};

}  // namespace rivo
