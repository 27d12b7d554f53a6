#include "app/SyncViewController.h"

#include <chrono>
#include <thread>

#include "app/AppDelegate.h"
#include "app/NavigationController.h"
#include "app/ProfileManager.h"
#include "app/Ui.h"
#include "librivo/Error.h"

namespace rivo {

SyncViewController::SyncViewController(AppDelegate& app, std::string hkey)
    : _app(app), _hkey(std::move(hkey)) {}

Screen SyncViewController::describe() {
  Screen s;
  s.title = "Synchronize";
  s.modal = true;
  s.progress.shown = true;
  {
    std::lock_guard lock(_mutex);
    s.progress.text = _jobText;
  }
  s.progress.activity = !_done;
  s.progress.fraction = _progress;
  s.progress.up = amountText(_uploaded);
  s.progress.down = amountText(_downloaded);
  return s;
}

bool SyncViewController::handle(const Event&) {
  return false;
}

void SyncViewController::viewWillAppear() {
  if (_started) return;
  _started = true;
  auto self = shared_from_this();
  auto out = std::make_shared<SyncFlow::Outcome>();
  const bool media = _app.pm().boolForKey("downloadMedia");
  // The job saves first (stopping the timer) and starts the timer again at its end.
  _app.doWork(
      "Syncing...",
      [self, out, media] {
        if (!self->_app.col()) {
          out->error = errorWithMessage("syncError", "No collection is open.");
          return;
        }
        *out = SyncFlow::run(self->_app, self->_hkey, media, *self,
                             [self] { return self->_askFullSyncDirection(); });
      },
      [self, out] { self->_finish(*out); }, AppDelegate::JobUi::ownScreen);
}

SyncFlow::FullSyncChoice SyncViewController::_askFullSyncDirection() {
  auto self = shared_from_this();
  _app.doOnMain([self] {
    self->_app.ui().showActionSheet(
        kFullSyncQuestion, {"Upload to RivoWeb", "Download from RivoWeb"}, "Cancel",
        [self](int index) {
          // The sheet gives -1 for its cancel button.
          self->actionSheetDidDismissWithButtonIndex(index < 0 ? 2 : index);
        });
  });
  while (_fullSyncChoice == SyncFlow::kUndecided) {
    // A program told to end doesn't wait for an answer no one may give.
    if (_app.terminating()) return SyncFlow::kCancel;
    std::this_thread::sleep_for(std::chrono::microseconds(kChoicePollMicros));
  }
  return static_cast<SyncFlow::FullSyncChoice>(_fullSyncChoice.load());
}

void SyncViewController::actionSheetDidDismissWithButtonIndex(int index) {
  if (_fullSyncChoice != SyncFlow::kUndecided) {
    _app.log("ignore ios8 repeated button idx " + std::to_string(index));
    return;
  }
  _fullSyncChoice = index == 0   ? SyncFlow::kUpload
                    : index == 1 ? SyncFlow::kDownload
                                 : SyncFlow::kCancel;
}

void SyncViewController::syncNotify(const std::string& desc) {
  _app.log(desc);
  {
    std::lock_guard lock(_mutex);
    _jobText = desc;
  }
  _redraw();
}

void SyncViewController::receivedData(int64_t bytes) {
  _downloaded += bytes;
  _redraw();
}

void SyncViewController::sentData(int64_t sentBytes, float uploadProgress) {
  _progress = uploadProgress;
  _uploaded += sentBytes;
  _redraw();
}

void SyncViewController::_redraw() {
  if (_redrawPosted.exchange(true)) return;
  auto self = shared_from_this();
  _app.doOnMain([self] {
    self->_redrawPosted = false;
    self->setNeedsDisplay();
  });
}

void SyncViewController::_finish(const SyncFlow::Outcome& out) {
  _done = true;
  setNeedsDisplay();
  for (const std::string& text : SyncFlow::conclude(_app, out)) _app.showInfo(text);
  auto self = shared_from_this();
  const std::string syncMsg = out.syncMsg;
  _app.performAfterDelay(kDismissDelay, [self, syncMsg] {
    if (NavigationController* nc = self->navigationController(); nc && nc->top() == self.get())
      nc->pop();
    // Shown on the deck list, after a failure as after a success.
    if (!syncMsg.empty()) self->_app.showInfo(syncMsg);
  });
}

}  // namespace rivo
