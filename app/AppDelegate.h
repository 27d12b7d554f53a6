#pragma once
// The spine of the application: the one object that owns the open collection, the profiles
// and preferences, the main loop and the work queue, the save timer and the popup and
// spinner state. Whoever needs the collection asks AppDelegate::shared()->col().

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/BackupFolder.h"
#include "app/CollectionHost.h"
#include "app/Dispatch.h"
#include "app/NotificationCenter.h"
#include "app/Timer.h"
#include "librivo/Json.h"

namespace rivo {

class ActionsManager;
class Col;
class DecksViewController;
class NavigationController;
class Preferences;
class ProfileManager;
class SignalWatcher;
class StudyViewController;
class Ui;

class AppDelegate : public CollectionHost {
 public:
  using Block = std::function<void()>;

  struct Options {
    // Holds Preferences.json, profiles/, Documents/ and tmp/.
    std::string dataDir;
    // Open this profile instead of the current one (it becomes the current one).
    std::string profile;
    // Create `profile` when it doesn't exist, rather than failing.
    bool createProfile = false;
    // Seconds between saves of the collection, and how long a brief popup stays.
    double saveInterval = 180;
    double popupDuration = 0.75;
    // SIGINT and SIGTERM end the program through terminate().
    bool handleSignals = true;
    // Launch makes the navigation stack with the deck list (the command line has none).
    bool screens = false;
    // Seconds each job waits under its spinner before working: lets tests see the spinner.
    double jobDelay = 0;
  };

  AppDelegate(Ui& ui, Options options);
  // Lets a running job finish, then releases everything. The collection isn't closed.
  ~AppDelegate() override;
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  // The instance that launched; null before launch() and after destruction.
  static AppDelegate* shared();
  // $RIVO_DATA, else $XDG_DATA_HOME/rivo, else ~/.local/share/rivo.
  static std::string defaultDataDir();
  // Where the program already running on `dataDir` can be reached (as given to
  // setInstanceAddress), or "" when none runs there or it gave no address.
  static std::string runningInstanceAddress(const std::string& dataDir);
  // Tells later starts on this data folder where this running program can be reached; the
  // file that says so is the data folder's lock, readable by this user only.
  void setInstanceAddress(const std::string& address);

  // On the main thread, before run(): configures SQLite, takes the data folder (one process
  // at a time), empties tmp/, opens the profile's collection, greets a first run, starts the
  // save timer. True when started for a file or a shortcut. Raises AppError (or SqlError)
  // when the program can't start.
  bool launch(const std::string& url = {}, const std::string& shortcutItem = {});
  // Runs the main loop until terminate() has done its work; returns the exit status. An
  // exception raised in a main block, a work block or a doOnBlock block comes out of here.
  int run();
  // Ends the program: the running job (and with `finishQueuedWork` every queued one) ends
  // first, then applicationWillTerminate runs and run() returns `status`. A signal does this
  // with status 128 + its number and without the queued jobs. Any thread.
  void terminate(int status = 0, bool finishQueuedWork = true);

  // The open collection, or null. Any thread may ask; the collection itself is used on the
  // main loop and in jobs only (never both at once: input is frozen while a job runs). Shared,
  // so that a profile switch on the main loop can't free it under a caller who holds what this
  // returned: `col()->x()` reads as before, and one who holds it across a switch finds the old
  // collection closed (its db() null) rather than freed. A holder checks db() after a switch.
  std::shared_ptr<Col> col() const override;
  // The profile loader hands the opened collection over here; it gets the progress sink.
  void setCol(std::unique_ptr<Col> col) override;
  ProfileManager& pm() const { return *_pm; }
  Preferences& prefs() const { return *_prefs; }
  NotificationCenter& notifications() { return _notifications; }
  Dispatch& dispatch() { return *_dispatch; }
  Ui& ui() { return _ui; }
  const Options& options() const { return _options; }
  // The data folder's tmp/, emptied at each launch: every collection opened here and every
  // sync client made here put their temporary files in it.
  std::string tmpDir() const { return _options.dataDir + "/tmp"; }
  // The navigation stack and the deck list at its root; null without Options::screens. Main
  // loop only: screens touch the collection there only while no job runs (input is frozen
  // from a job's start to its main block), and other threads never reach them.
  NavigationController* nc() const { return _nc.get(); }
  DecksViewController* dvc() const { return _dvc.get(); }
  // The review screen while one exists (made by the first study), and the study actions.
  // Main loop only, as the screens.
  StudyViewController* svc() const { return _svc.get(); }
  std::shared_ptr<StudyViewController> studyViewController();
  ActionsManager& acts() { return *_acts; }
  // The bar and button colours of the "theme7" setting.
  void applyStyleSheet();

  // Background work, strictly one job at a time: the work block on the "work" queue under a
  // spinner showing `msg`, then `thenOnMain` on the main loop before the next job begins.
  // The spinner is up (and input frozen) before the job saves or works, so no event handled
  // on the main loop meets a job's work half-done.
  //
  // A job whose screen shows its own progress (the sync) runs `ownScreen`: no spinner, so
  // that screen stays live, and it must offer nothing that touches the collection meanwhile.
  enum class JobUi { spinner, ownScreen };
  void doWork(const std::string& msg, Block work, Block thenOnMain = {},
              JobUi jobUi = JobUi::spinner);
  void doOnMain(Block block);
  void doOnBlock(Block block);
  std::shared_ptr<Timer> performAfterDelay(float seconds, Block block);

  // Alerts, popup and spinner. Main-thread state; a call from elsewhere is posted there.
  void showInfo(const std::string& text) override;
  void askUser(const std::string& text, const std::string& title, std::function<void(bool)> cb);
  void showPopup(const std::string& text);
  void hidePopup();
  void showSpinner(const std::string& text);
  void hideSpinner();
  void updateSpinner(const std::string& text);
  void onProgressUpdated(const Json& userInfo);
  void leech();

  // Queues a backup of the collection as it will be when the job runs ("Creating Backup..." when
  // forced, "Finishing Backup..." otherwise); see BackupFolder. `onFinish` is posted to the main
  // loop only when a backup was written. A failure is logged and shown ("Backup failed: %@").
  void maybeBackup(bool force, Block onFinish = {});
  // The work of that job, on the work queue: nothing is shown; progress goes to the spinner as
  // `msg` with the share copied.
  BackupFolder::Result performBackup(bool force, const std::string& msg);

  // Queues a backup (not forced), then closes the open collection (if any) on the calling
  // thread and forgets it. The backup acts on whatever collection is open when its turn comes.
  void unloadCollection() override;

  void startTimer();
  void stopTimer();
  void onTimer();

  void applicationWillResignActive();
  void applicationDidEnterBackground();
  void applicationWillEnterForeground();
  void onResume();
  void applicationWillTerminate();

  // A line in the collection's debug log, or the system log when none is open.
  void log(const std::string& text);

  // State for tests and for the screens.
  const std::vector<std::string>& spinnerMessages() const { return _spinnerMsgs; }
  bool popupShown() const { return _popup; }
  bool timerRunning() const;
  // True once terminate() has been asked for: a job waiting on the user gives up.
  bool terminating() const { return _terminating; }

 private:
  // The address as it may be shown to others: without the query that carries the secret.
  static std::string _withoutSecret(const std::string& address);
  // True (and `again` posted to the main loop) when called off the main thread.
  bool _offMain(Block again);
  void _stopTimerLocked();
  void _takeDataDir();
  void _emptyTmp();
  void _finishTerminating();

  Ui& _ui;
  Options _options;
  // Main loop only: the spinner stack, the question's callback and the popup flag.
  std::vector<std::string> _spinnerMsgs;
  std::unique_ptr<Dispatch> _dispatch;
  std::function<void(bool)> _askUserBlock;
  bool _popup = false;

  // Guards the `_col` pointer, not the collection's use. When both are held, _timerMutex
  // is taken first (stopping the timer saves the collection).
  mutable std::mutex _colMutex;
  std::shared_ptr<Col> _col;
  std::unique_ptr<Preferences> _prefs;
  std::unique_ptr<ProfileManager> _pm;
  NotificationCenter _notifications;
  std::vector<NotificationCenter::Token> _observers;

  // Guards `_saveTimer`, which the main loop and terminate() (any thread) reach.
  mutable std::mutex _timerMutex;
  std::shared_ptr<Timer> _saveTimer;

  // Main loop only; made at launch, dropped before the collection.
  std::unique_ptr<NavigationController> _nc;
  std::shared_ptr<DecksViewController> _dvc;
  std::shared_ptr<StudyViewController> _svc;
  std::unique_ptr<ActionsManager> _acts;

  std::unique_ptr<SignalWatcher> _signals;
  int _lockFd = -1;
  std::atomic<bool> _terminating{false};
  int _exitStatus = 0;
};

}  // namespace rivo
