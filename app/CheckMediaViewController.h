#pragma once
// The media check: scans notes and the media folder as a job that this screen shows the
// progress of, then reports the missing and the unused files and offers "Delete Unused".
// Leaving the screen stops a scan or a deletion at its next step. Main loop only; the scan
// and the deletion run on the work queue and reach this screen through the main loop.

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "app/ViewController.h"
#include "librivo/MediaManager.h"

namespace rivo {

class AppDelegate;

class CheckMediaViewController : public ViewController {
 public:
  explicit CheckMediaViewController(AppDelegate& app) : _app(app) {}

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;
  void viewWillDisappear() override;

 private:
  enum class State { idle, scanning, report, deleting, done };
  // Progress texts of the job, handed to the main loop.
  void _setText(const std::string& text);
  // Hands a job's texts to this screen while it exists; false once the screen has gone.
  MediaManager::CheckProgress _progress();
  void _deleteUnused();

  AppDelegate& _app;
  State _state = State::idle;
  std::string _text;
  std::optional<MediaManager::CheckResult> _result;
  // Shared with the job; set when the screen goes away.
  std::shared_ptr<std::atomic<bool>> _abort = std::make_shared<std::atomic<bool>>(false);
  // Expires with this screen, so a late progress text goes nowhere.
  std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
};

}  // namespace rivo
