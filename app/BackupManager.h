#pragma once
// The backups screen ("Backups"): the limits "Maximum backups" (0 to 100) and "Frequency (mins)"
// (1 to 10080), kept in col.conf; the backups in the backup folder (those of every profile),
// newest first, each deleted by a swipe or reverted to by a tap after the question "Revert to
// backup"; and "Create Now". Reverting first backs up the collection as it is (BackupFolder),
// then goes back to the deck list with "Reverted to backup.".
//
// Main loop only. The list is read again on appearing and after each change; the backup and the
// revert run as jobs, whose blocks take copies of what they need.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/BackupFolder.h"
#include "app/ViewController.h"

namespace rivo {

class AppDelegate;

class BackupManager : public ViewController {
 public:
  explicit BackupManager(AppDelegate& app);

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;

  void onCreateNow();
  void onBackupSelected(const std::string& name);
  void onDeleteBackup(const std::string& name);
  void restoreBackupAtIdx(size_t index);

  // A number typed into a limit, held to [min, max]; nothing when the text isn't a number.
  static std::optional<int64_t> boundedParse(const std::string& text, int64_t min, int64_t max);
  // The locale's medium date and medium time.
  static std::string dateText(int64_t seconds);

  const std::vector<BackupFolder::Entry>& backups() const { return _backups; }

 private:
  void _reload();
  bool _setLimit(const char* key, const std::string& text, int64_t min, int64_t max);
  int64_t _limit(const char* key, int64_t missing) const;

  AppDelegate& _app;
  std::vector<BackupFolder::Entry> _backups;
};

}  // namespace rivo
