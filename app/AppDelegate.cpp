#include "app/AppDelegate.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "app/ActionsManager.h"
#include "app/AppError.h"
#include "app/DecksViewController.h"
#include "app/NavigationController.h"
#include "app/Preferences.h"
#include "app/ProfileManager.h"
#include "app/SignalWatcher.h"
#include "app/StudyViewController.h"
#include "app/Timer.h"
#include "app/Ui.h"
#include "app/Upgrader.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/SysLog.h"
#include "librivo/Version.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {
// Set as the first act of launch; the program's only global.
std::atomic<AppDelegate*> gShared{nullptr};
}  // namespace

AppDelegate::AppDelegate(Ui& ui, Options options)
    : _ui(ui), _options(std::move(options)), _dispatch(std::make_unique<Dispatch>()) {
  if (_options.dataDir.empty()) throw AppError("No data folder given.");
}

AppDelegate::~AppDelegate() {
  _signals.reset();
  _dispatch->shutdown();
  _nc.reset();
  _dvc.reset();
  _svc.reset();
  _acts.reset();
  {
    std::lock_guard lock(_timerMutex);
    if (_saveTimer) _saveTimer->invalidate();
    _saveTimer.reset();
  }
  for (auto token : _observers) _notifications.removeObserver(token);
  {
    std::lock_guard lock(_colMutex);
    _col.reset();
  }
  _pm.reset();
  _prefs.reset();
  if (_lockFd >= 0) ::close(_lockFd);
  AppDelegate* self = this;
  gShared.compare_exchange_strong(self, nullptr);
}

AppDelegate* AppDelegate::shared() {
  return gShared.load();
}

std::string AppDelegate::defaultDataDir() {
  if (const char* dir = std::getenv("RIVO_DATA"); dir && *dir) return dir;
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg)
    return std::string(xdg) + "/rivo";
  const char* home = std::getenv("HOME");
  return std::string(home && *home ? home : ".") + "/.local/share/rivo";
}

// Launch.

bool AppDelegate::launch(const std::string& url, const std::string& shortcutItem) {
  AppDelegate* expected = nullptr;
  if (!gShared.compare_exchange_strong(expected, this) && expected != this)
    throw AppError("The application is already running in this process.");

  // One connection may then be used from several threads, which the work queue relies on.
  sqlite3_shutdown();
  if (sqlite3_config(SQLITE_CONFIG_SERIALIZED) != SQLITE_OK)
    throw AppError("SQL serialize call failed");
  sqlite3_initialize();

  if (_options.handleSignals) {
    _signals =
        std::make_unique<SignalWatcher>(std::vector<int>{SIGINT, SIGTERM}, [this](int signo) {
          _dispatch->main().post([this, signo] {
            sysLog("terminating on signal " + std::to_string(signo));
            terminate(128 + signo, false);
          });
        });
  }

  _takeDataDir();
  _emptyTmp();
  _acts = std::make_unique<ActionsManager>(*this);
  _prefs = std::make_unique<Preferences>(_options.dataDir + "/Preferences.json");
  _pm = std::make_unique<ProfileManager>(*_prefs, _options.dataDir, this);
  // Before any collection is opened.
  Upgrader::upgradeIfNeeded(*this);

  if (!_options.profile.empty()) {
    if (!_pm->hasProfile(_options.profile)) {
      if (!_options.createProfile)
        throw AppError("There is no profile named '" + _options.profile + "'.");
      _pm->create(_options.profile);
    }
    _pm->loadProfileWithName(_options.profile);
  } else {
    _pm->loadCurrentProfile();
  }
  if (!col()) throw AppError("No collection could be opened.");
  applyStyleSheet();
  if (_options.screens) {
    _nc = std::make_unique<NavigationController>(_ui);
    _dvc = std::make_shared<DecksViewController>(*this);
    _nc->setRoot(_dvc);
  }

  _prefs->setObject(kBundleVersion, "lastBuildUsed");
  if (!_prefs->hasKey("firstRunOn")) {
    _prefs->setDate(Clock::now(), "firstRunOn");
    _ui.showAlert("Welcome!", "Please click Help in the top left to get started.");
  }
  // Written now, so that the welcome isn't shown again after a crash.
  _prefs->synchronize();
  // Later changes reach the file within a second; a check of the dirty flag costs nothing.
  Timer::schedule(_dispatch->main(), 1.0, true, [this] { _prefs->synchronize(); });
  sysLog("data folder: " + _pm->hiddenDocumentsDir());
  startTimer();
  _observers.push_back(_notifications.observe("leech", [this](const Json&) { leech(); }));
  _observers.push_back(_notifications.observe(
      "rivoUpdateProgress", [this](const Json& info) { onProgressUpdated(info); }));
  return !url.empty() || !shortcutItem.empty();
}

void AppDelegate::_takeDataDir() {
  const std::string& dir = _options.dataDir;
  std::error_code ec;
  if (fs::exists(dir, ec) && !fs::is_directory(dir, ec))
    throw AppError(".data exists, and is a file: Path: " + dir);
  fs::create_directories(dir, ec);
  if (ec) throw AppError("Failed creating directory [" + dir + "], " + ec.message());
  // Two processes on one collection would each see the other's open file as damaged.
  std::string lockPath = dir + "/.lock";
  _lockFd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  // It may carry this run's secret address: this user's alone.
  if (_lockFd >= 0) ::fchmod(_lockFd, 0600);
  if (_lockFd < 0) throw AppError("Can't open " + lockPath + ": " + std::strerror(errno));
  if (::flock(_lockFd, LOCK_EX | LOCK_NB) != 0) {
    int error = errno;
    ::close(_lockFd);
    _lockFd = -1;
    if (error == EWOULDBLOCK) {
      std::string address = runningInstanceAddress(dir);
      throw DataFolderBusy("Rivo is already running on " + dir +
                           (address.empty() ? "" : " (at " + _withoutSecret(address) + ")") +
                           "; close it first.");
    }
    throw AppError("Can't lock " + lockPath + ": " + std::strerror(error));
  }
}

std::string AppDelegate::runningInstanceAddress(const std::string& dataDir) {
  std::string lockPath = dataDir + "/.lock";
  int fd = ::open(lockPath.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return "";
  std::string address;
  // Only a held lock means a running program; a stale address is ignored.
  if (::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    char buffer[1024];
    ssize_t n = ::pread(fd, buffer, sizeof buffer, 0);
    if (n > 0) address.assign(buffer, static_cast<size_t>(n));
    while (!address.empty() && (address.back() == '\n' || address.back() == '\0'))
      address.pop_back();
  }
  ::close(fd);
  return address;
}

void AppDelegate::setInstanceAddress(const std::string& address) {
  if (_lockFd < 0) return;
  std::string line = address + "\n";
  if (::ftruncate(_lockFd, 0) != 0 ||
      ::pwrite(_lockFd, line.data(), line.size(), 0) != static_cast<ssize_t>(line.size()))
    sysLog("can't write the instance address: " + std::string(std::strerror(errno)));
}

std::string AppDelegate::_withoutSecret(const std::string& address) {
  return address.substr(0, address.find('?'));
}

void AppDelegate::_emptyTmp() {
  std::string tmp = tmpDir();
  std::error_code ec;
  fs::create_directories(tmp, ec);
  // For SQLite's own temporary files and any program started from here.
  ::setenv("TMPDIR", tmp.c_str(), 1);
  // Nothing in it survives a restart; what can't be removed is left.
  for (fs::directory_iterator it(tmp, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code ignored;
    fs::remove_all(it->path(), ignored);
  }
}

// Running and ending.

int AppDelegate::run() {
  return _dispatch->main().run();
}

void AppDelegate::terminate(int status, bool finishQueuedWork) {
  if (_offMain([this, status, finishQueuedWork] { terminate(status, finishQueuedWork); })) return;
  if (_terminating.exchange(true)) return;
  _exitStatus = status;
  if (!finishQueuedWork) _dispatch->work().clearPending();
  // Behind the last job: its main block has run by the time this one gets its turn.
  bool queued =
      _dispatch->work().async([this] { _dispatch->main().post([this] { _finishTerminating(); }); });
  if (!queued) _finishTerminating();
}

void AppDelegate::_finishTerminating() {
  applicationWillTerminate();
  _dispatch->main().quit(_exitStatus);
}

// The collection.

std::shared_ptr<Col> AppDelegate::col() const {
  std::lock_guard lock(_colMutex);
  return _col;
}

void AppDelegate::setCol(std::unique_ptr<Col> col) {
  if (col) {
    col->setTmpDir(tmpDir());
    col->setProgressSink([this](const std::string& desc) {
      _dispatch->main().post([this, desc] {
        _notifications.post("rivoUpdateProgress", Json{{"desc", desc}});
      });
    });
    // Events of the collection (a card turning into a leech) reach observers on the main loop.
    col->setNotificationSink([this](const std::string& name) {
      _dispatch->main().post([this, name] { _notifications.post(name); });
    });
  }
  std::lock_guard lock(_colMutex);
  _col = std::move(col);
}

void AppDelegate::unloadCollection() {
  if (!col()) return;
  maybeBackup(false);
  std::lock_guard lock(_colMutex);
  _col->close();
  _col.reset();
}

void AppDelegate::log(const std::string& text) {
  std::lock_guard lock(_colMutex);
  if (_col)
    _col->log({text});
  else
    sysLog(text);
}

std::shared_ptr<StudyViewController> AppDelegate::studyViewController() {
  if (!_svc) _svc = std::make_shared<StudyViewController>(*this);
  return _svc;
}

// Backups.

void AppDelegate::maybeBackup(bool force, Block onFinish) {
  const std::string msg = force ? "Creating Backup..." : "Finishing Backup...";
  doWork(msg, [this, force, msg, onFinish = std::move(onFinish)] {
    BackupFolder::Result result = performBackup(force, msg);
    if (result.outcome == BackupFolder::Result::Outcome::failed)
      showInfo("Backup failed: " + result.error);
    else if (result.outcome == BackupFolder::Result::Outcome::written && !result.foreign.empty())
      showInfo(BackupFolder(_pm->backupFolder()).foreignMessage(result.foreign));
    if (result.outcome == BackupFolder::Result::Outcome::written && onFinish) doOnMain(onFinish);
  });
}

BackupFolder::Result AppDelegate::performBackup(bool force, const std::string& msg) {
  std::shared_ptr<Col> c = col();
  if (!c) {
    log("backup called with no col");
    BackupFolder::Result none;
    none.outcome = BackupFolder::Result::Outcome::disabled;
    return none;
  }
  return BackupFolder(_pm->backupFolder())
      .backup(*c, _pm->currentProfile(), force, true, [c, msg](uint64_t done, uint64_t total) {
        if (total)
          c->updateProgressWithBlock(
              [=] { return msg + " " + std::to_string(done * 100 / total) + "%"; });
      });
}

// Background work.

void AppDelegate::doWork(const std::string& msg, Block work, Block thenOnMain, JobUi jobUi) {
  if (_terminating) {
    sysLog("not started, the program is ending: " + msg);
    return;
  }
  log("queued work: " + msg);
  const bool spinner = jobUi == JobUi::spinner;
  _dispatch->work().async(
      [this, msg, work = std::move(work), thenOnMain = std::move(thenOnMain), spinner] {
        log("starting work: " + msg);
        // Waits for the event being handled, if any; from here on input is frozen.
        _dispatch->main().sync([this, msg, spinner] {
          if (spinner) showSpinner(msg);
        });
        stopTimer();
        if (_options.jobDelay > 0)
          std::this_thread::sleep_for(std::chrono::duration<double>(_options.jobDelay));
        if (work) work();
        // The work queue waits here, so the next job can't start before the main block ends.
        _dispatch->main().sync([&] {
          if (spinner) hideSpinner();
          startTimer();
          log("main update: " + msg);
          if (thenOnMain) thenOnMain();
          log("finished work: " + msg);
        });
      });
}

void AppDelegate::doOnMain(Block block) {
  _dispatch->main().post(std::move(block));
}

void AppDelegate::doOnBlock(Block block) {
  _dispatch->global().async(std::move(block));
}

std::shared_ptr<Timer> AppDelegate::performAfterDelay(float seconds, Block block) {
  return Timer::schedule(_dispatch->main(), static_cast<double>(seconds), false, std::move(block));
}

// Alerts, popup and spinner.

bool AppDelegate::_offMain(Block again) {
  if (_dispatch->main().isMainThread()) return false;
  doOnMain(std::move(again));
  return true;
}

void AppDelegate::showInfo(const std::string& text) {
  if (_offMain([this, text] { showInfo(text); })) return;
  _ui.showAlert("", text);
}

void AppDelegate::askUser(const std::string& text, const std::string& title,
                          std::function<void(bool)> cb) {
  if (_offMain([this, text, title, cb] { askUser(text, title, cb); })) return;
  // One question at a time: a newer question's callback replaces the older one's.
  _askUserBlock = std::move(cb);
  _ui.askQuestion(title.empty() ? "Confirm" : title, text, "No", "Yes", [this](int index) {
    auto block = std::move(_askUserBlock);
    _askUserBlock = nullptr;
    if (block) block(index != 0);
  });
}

void AppDelegate::showPopup(const std::string& text) {
  if (_offMain([this, text] { showPopup(text); })) return;
  if (!_spinnerMsgs.empty() || _popup) return;
  _ui.showPopupView(text, false);
  _popup = true;
  performAfterDelay(static_cast<float>(_options.popupDuration), [this] { hidePopup(); });
}

void AppDelegate::hidePopup() {
  if (_offMain([this] { hidePopup(); })) return;
  if (!_spinnerMsgs.empty() || !_popup) return;
  _ui.hidePopupView();
  _popup = false;
}

void AppDelegate::showSpinner(const std::string& text) {
  if (_offMain([this, text] { showSpinner(text); })) return;
  _spinnerMsgs.push_back(text);
  if (!_popup) {
    _ui.showPopupView(text, true);
    _popup = true;
  } else {
    updateSpinner(text);
  }
}

void AppDelegate::hideSpinner() {
  if (_offMain([this] { hideSpinner(); })) return;
  if (!_spinnerMsgs.empty()) _spinnerMsgs.pop_back();
  if (!_spinnerMsgs.empty()) {
    updateSpinner(_spinnerMsgs.back());
  } else if (_popup) {
    _ui.hidePopupView();
    _popup = false;
  }
}

void AppDelegate::updateSpinner(const std::string& text) {
  if (_offMain([this, text] { updateSpinner(text); })) return;
  if (_popup) _ui.setPopupText(text);
}

void AppDelegate::onProgressUpdated(const Json& userInfo) {
  if (!userInfo.is_object()) return;
  auto it = userInfo.find("desc");
  if (it != userInfo.end() && it->is_string()) updateSpinner(it->get<std::string>());
}

void AppDelegate::leech() {
  showPopup("Card was a leech.");
}

// The save timer.

void AppDelegate::startTimer() {
  std::lock_guard lock(_timerMutex);
  _stopTimerLocked();
  _saveTimer =
      Timer::schedule(_dispatch->main(), _options.saveInterval, true, [this] { onTimer(); });
}

void AppDelegate::stopTimer() {
  std::lock_guard lock(_timerMutex);
  _stopTimerLocked();
}

void AppDelegate::_stopTimerLocked() {
  if (!_saveTimer) return;
  if (std::shared_ptr<Col> c = col()) c->save();
  _saveTimer->invalidate();
  _saveTimer.reset();
}

bool AppDelegate::timerRunning() const {
  std::lock_guard lock(_timerMutex);
  return _saveTimer != nullptr;
}

void AppDelegate::onTimer() {
  doWork("Saving...", [this] {
    if (std::shared_ptr<Col> c = col()) c->save();
  });
}

// Life-cycle.

void AppDelegate::applicationWillResignActive() {
  stopTimer();
}

void AppDelegate::applicationDidEnterBackground() {
  maybeBackup(false);
}

void AppDelegate::applicationWillEnterForeground() {
  onResume();
}

void AppDelegate::onResume() {
  if (_nc && _nc->top() == _dvc.get()) {
    _dvc->maybeLoadDecks();
    _dvc->updateSyncLabel();
  }
  startTimer();
}

void AppDelegate::applyStyleSheet() {
  if (_offMain([this] { applyStyleSheet(); })) return;
  // "blue", or anything else taken as "dark".
  bool blue = _pm && _pm->stringForKey("theme7") == "blue";
  _ui.setTint(blue ? "#1C93E3" : "#1C73C3");
}

void AppDelegate::applicationWillTerminate() {
  {
    std::lock_guard lock(_timerMutex);
    if (_saveTimer) {
      if (std::shared_ptr<Col> c = col()) c->save();
    }
  }
  // Not closed: the file is valid as it stands, and the next open goes on from it.
  if (_pm)
    _pm->synchronize();
  else if (_prefs)
    _prefs->synchronize();
}

}  // namespace rivo
