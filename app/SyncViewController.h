#pragma once
// The sync as the user sees it: a modal screen that runs one sync (SyncFlow's steps) as a job
// with no spinner, showing the job text, a progress bar and the amounts sent and received; it
// asks the direction of a full sync, then shows the errors and, once it has gone, the server's
// message. The user can't leave it: the only way to stop a sync is to cancel the direction
// question. Main loop only, except the SyncListener methods and the direction wait, which
// run on the work queue and reach the screen through the atomics and the mutex below.

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "app/SyncFlow.h"
#include "app/ViewController.h"
#include "librivo/syncing/SyncListener.h"

namespace rivo {

class AppDelegate;

class SyncViewController : public ViewController,
                           public SyncListener,
                           public std::enable_shared_from_this<SyncViewController> {
 public:
  static constexpr float kDismissDelay = 0.5f;      // seconds from the end to the dismissal
  static constexpr int kChoicePollMicros = 100000;  // the direction's wait, between looks
  static constexpr const char* kFullSyncQuestion =
      "Your decks here and on RivoWeb differ in such a way that they can't be merged together, "
      "so it's necessary to overwrite the decks on one side with the decks from the other. Do "
      "you want to upload the decks from here, or download the decks from RivoWeb?";

  // Held by a shared_ptr (the job keeps it alive); pushed on the navigation stack.
  SyncViewController(AppDelegate& app, std::string hkey);

  Screen describe() override;
  bool handle(const Event& event) override;
  // The first appearance starts the sync.
  void viewWillAppear() override;

  // The direction question's answer: 0 upload, 1 download, anything else cancel. A second
  // delivery is logged and ignored; the first answer stands.
  void actionSheetDidDismissWithButtonIndex(int index);
  int fullSyncChoice() const { return _fullSyncChoice; }

  // SyncListener, on the work queue.
  void syncNotify(const std::string& desc) override;
  void receivedData(int64_t bytes) override;
  void sentData(int64_t sentBytes, float uploadProgress) override;

 private:
  // On the work queue: asks on the main loop, and waits for the answer.
  SyncFlow::FullSyncChoice _askFullSyncDirection();
  // On the main loop, after the job: the errors, then the dismissal and the server's message.
  void _finish(const SyncFlow::Outcome& out);
  // Any thread: draws again soon, once for any number of calls in between.
  void _redraw();

  AppDelegate& _app;
  const std::string _hkey;
  bool _started = false;  // main loop only
  bool _done = false;     // main loop only
  std::atomic<int> _fullSyncChoice{SyncFlow::kUndecided};
  std::atomic<int64_t> _downloaded{0}, _uploaded{0};
  std::atomic<float> _progress{-1};
  std::atomic<bool> _redrawPosted{false};
  std::mutex _mutex;  // guards _jobText
  std::string _jobText = "Syncing...";
};

}  // namespace rivo
