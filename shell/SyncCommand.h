#pragma once
// `rivo sync [--user NAME] [--full upload|download] [--no-media]`: logs in when asked to (or
// when the profile has no host key), then syncs the profile's collection with the service at
// $SYNC_BASE, and then its media when the profile's "downloadMedia" is on. Runs on the
// application's main loop, with the network work as jobs of the work queue, and ends the program
// itself: 0 done, 1 failed (the reason on standard error), 3 a full sync is needed and no direction
// was given.

#include <string>

#include "shell/Command.h"

namespace rivo {

class AppDelegate;

class SyncCommand : public Command {
 public:
  CLI::App* add(CLI::App& cli) override;
  int main(const CommandSettings& settings) override;

  static constexpr int kNeedsFullSync = 3;

  struct Args {
    std::string user;      // log in as this account first
    std::string full;      // "upload" or "download": force a one-way sync
    bool noMedia = false;  // this once, leave the media alone
  };

  // On the main thread. The password of a login comes from $RIVO_PASSWORD, else from
  // standard input.
  static void run(AppDelegate& app, const Args& args);

 private:
  Args _args;
};

}  // namespace rivo
