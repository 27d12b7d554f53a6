#pragma once
// `rivo backup [--force]`: the backup the application makes on its own (when "Maximum
// backups" isn't 0 and the newest is older than "Frequency (mins)"), or with --force one in any
// case, as "Create Now" does. Prints the backup written, or why none was needed. Main loop of a
// launched application only.

namespace rivo {

class AppDelegate;

class BackupCommand {
 public:
  // Queues the backup job. A failure comes out of its main block as std::runtime_error with the
  // one line to print.
  static void run(AppDelegate& app, bool force);
};

}  // namespace rivo
