#include "app/AppDelegate.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "app/AppError.h"
#include "app/Preferences.h"
#include "app/ProfileManager.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "tests/app/FakeUi.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class AppDelegateTest : public ::testing::Test {
 protected:
  AppDelegate::Options options() {
    AppDelegate::Options o;
    o.dataDir = data();
    o.handleSignals = false;
    o.popupDuration = 0.05;
    return o;
  }
  std::string data() const { return dir.file("data"); }
  std::string debugLog() const { return test::readFile(data() + "/Documents/debug.log"); }

  static bool run(AppDelegate& app, const std::function<bool()>& done) {
    return app.dispatch().main().runUntil(done, 10s);
  }
  static void runFor(AppDelegate& app, std::chrono::milliseconds time) {
    app.dispatch().main().runUntil([] { return false; }, time);
  }
  // The main loop keeps running meanwhile: a job's last step (a timer's save, say) runs there.
  static void waitIdle(AppDelegate& app) {
    run(app, [&] { return !app.dispatch().work().busy(); });
  }

  // Launching points TMPDIR into the data folder; later tests need the real one back.
  test::SavedEnv tmpdir{"TMPDIR"};
  test::TempDir dir;
  test::FakeUi ui;
};

// Positions of lines in the debug log, to check their order.
size_t at(const std::string& log, const std::string& text) {
  size_t pos = log.find(text);
  EXPECT_NE(pos, std::string::npos) << text;
  return pos;
}

const char* kWelcome = "alert:Welcome!|Please click Help in the top left to get started.";

TEST_F(AppDelegateTest, FirstLaunchMakesUser1OpensItAndWelcomesOnce) {
  {
    AppDelegate app(ui, options());
    EXPECT_EQ(AppDelegate::shared(), nullptr);
    EXPECT_FALSE(app.launch());
    EXPECT_EQ(AppDelegate::shared(), &app);
    ASSERT_NE(app.col(), nullptr);
    EXPECT_EQ(app.col()->path(), data() + "/profiles/User 1/collection.rivo2");
    EXPECT_TRUE(app.timerRunning());
    EXPECT_EQ(ui.events, std::vector<std::string>{kWelcome});
    EXPECT_EQ(app.prefs().stringForKey("lastBuildUsed"), "200");
    EXPECT_EQ(std::string(std::getenv("TMPDIR")), data() + "/tmp");
  }
  EXPECT_EQ(AppDelegate::shared(), nullptr);
  EXPECT_TRUE(Preferences(data() + "/Preferences.json").dateForKey("firstRunOn").has_value());

  fs::create_directories(data() + "/tmp/left/over");
  test::writeFile(data() + "/tmp/file", "x");
  test::FakeUi again;
  AppDelegate app(again, options());
  EXPECT_TRUE(app.launch("/home/me/deck.rpkg"));
  EXPECT_TRUE(again.events.empty());
  EXPECT_TRUE(fs::is_empty(data() + "/tmp"));
  EXPECT_EQ(app.pm().profiles(), std::vector<std::string>{"User 1"});
}

// A caller holding the collection across a profile switch keeps a closed object, not a freed one
// (the sanitizer build would catch a use after free).
TEST_F(AppDelegateTest, AHeldCollectionOutlivesAProfileSwitchClosed) {
  AppDelegate app(ui, options());
  app.launch();
  std::shared_ptr<Col> held = app.col();
  app.pm().create("Other");
  ASSERT_TRUE(app.pm().loadProfileWithName("Other"));
  waitIdle(app);
  EXPECT_NE(app.col(), held);
  EXPECT_EQ(held->db(), nullptr);
  EXPECT_EQ(held->path(), data() + "/profiles/User 1/collection.rivo2");
}

TEST_F(AppDelegateTest, ASecondProcessOnTheSameDataIsRefused) {
  fs::create_directories(data());
  int fd = ::open((data() + "/.lock").c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(::flock(fd, LOCK_EX | LOCK_NB), 0);
  {
    AppDelegate app(ui, options());
    EXPECT_THROW(app.launch(), AppError);
    EXPECT_FALSE(fs::exists(data() + "/Preferences.json"));
  }
  ::close(fd);
  AppDelegate app(ui, options());
  EXPECT_NO_THROW(app.launch());
}

TEST_F(AppDelegateTest, APreferenceReachesTheFileWithinASecond) {
  AppDelegate app(ui, options());
  app.launch();
  app.prefs().setObject("kept", "probe");
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(run(app, [&] {
    return test::readFile(data() + "/Preferences.json").find("probe") != std::string::npos;
  }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
}

TEST_F(AppDelegateTest, JobsRunOneAtATimeAndEachMainBlockEndsBeforeTheNextWork) {
  AppDelegate app(ui, options());
  app.launch();
  ui.events.clear();
  std::mutex m;
  std::vector<std::string> trace;
  auto note = [&](const std::string& s) {
    std::lock_guard lock(m);
    trace.push_back(s);
  };
  std::atomic<bool> timerDuringWork{true}, done{false};
  bool timerInMainBlock = false;
  app.doWork(
      "Job 1",
      [&] {
        note("work 1");
        std::this_thread::sleep_for(20ms);
        timerDuringWork = app.timerRunning();
      },
      [&] {
        timerInMainBlock = app.timerRunning();
        std::this_thread::sleep_for(20ms);
        note("main 1");
      });
  app.doWork(
      "Job 2", [&] { note("work 2"); }, [&] { note("main 2"); });
  app.doWork(
      "Job 3", [&] { note("work 3"); }, [&] { done = true; });
  ASSERT_TRUE(run(app, [&] { return done.load(); }));

  EXPECT_EQ(trace, (std::vector<std::string>{"work 1", "main 1", "work 2", "main 2", "work 3"}));
  EXPECT_FALSE(timerDuringWork);
  EXPECT_TRUE(timerInMainBlock);
  EXPECT_TRUE(app.timerRunning());
  EXPECT_EQ(ui.events, (std::vector<std::string>{"spinner:Job 1", "hide", "spinner:Job 2", "hide",
                                                 "spinner:Job 3", "hide"}));
  EXPECT_TRUE(app.spinnerMessages().empty());
}

TEST_F(AppDelegateTest, SpinnersNestAndPopupsGiveWay) {
  AppDelegate app(ui, options());
  app.launch();
  ui.events.clear();

  app.showSpinner("A");
  app.showSpinner("B");
  app.updateSpinner("B 50%");
  app.showPopup("dropped during a spinner");
  app.hideSpinner();  // back to the stack's own text, not the progress text
  app.hideSpinner();
  app.updateSpinner("after the last spinner");
  app.hideSpinner();  // empty stack, no popup: harmless
  EXPECT_EQ(ui.events,
            (std::vector<std::string>{"spinner:A", "text:B", "text:B 50%", "text:A", "hide"}));

  ui.events.clear();
  app.showPopup("First");
  app.showPopup("Second");  // within the popup's time: dropped, not remembered
  EXPECT_TRUE(app.popupShown());
  ASSERT_TRUE(run(app, [&] { return !app.popupShown(); }));
  app.showPopup("Third");
  EXPECT_EQ(ui.events, (std::vector<std::string>{"popup:First", "hide", "popup:Third"}));

  // A spinner starting under a popup takes its box over; the popup's timeout leaves it be.
  app.showSpinner("Working");
  runFor(app, 150ms);
  EXPECT_TRUE(ui.shown);
  app.hideSpinner();
  EXPECT_FALSE(ui.shown);

  // A leech reported from any thread shows on the main loop.
  ui.events.clear();
  std::thread([&] { app.notifications().post("leech"); }).join();
  ASSERT_TRUE(run(app, [&] { return !ui.events.empty(); }));
  EXPECT_EQ(ui.events, std::vector<std::string>{"popup:Card was a leech."});
}

TEST_F(AppDelegateTest, AQuestionsCallbackIsReplacedByTheNextQuestion) {
  AppDelegate app(ui, options());
  std::vector<std::string> answers;
  app.askUser("Delete?", "", [&](bool yes) { answers.push_back(yes ? "A yes" : "A no"); });
  app.askUser("Really?", "Confirm Delete",
              [&](bool yes) { answers.push_back(yes ? "B yes" : "B no"); });
  EXPECT_EQ(ui.events, (std::vector<std::string>{"ask:Confirm|Delete?|No|Yes",
                                                 "ask:Confirm Delete|Really?|No|Yes"}));
  ui.answers[0](1);
  ui.answers[1](0);  // its block already ran and was released
  EXPECT_EQ(answers, std::vector<std::string>{"B yes"});
}

TEST_F(AppDelegateTest, ProgressReachesTheSpinnerAtMostFourTimesASecond) {
  AppDelegate app(ui, options());
  app.launch();
  ui.events.clear();
  Clock::Override clock(1000000);
  std::vector<int> asked;
  bool done = false;
  app.doWork(
      "Importing...",
      [&] {
        for (int i = 0; i < 10; ++i) {
          app.col()->updateProgressWithBlock([&asked, i] {
            asked.push_back(i);
            return "step " + std::to_string(i);
          });
          clock.advance(0.125);
        }
      },
      [&] { done = true; });
  ASSERT_TRUE(run(app, [&] { return done; }));
  // The text block itself runs only for the calls that get through.
  EXPECT_EQ(asked, (std::vector<int>{0, 2, 4, 6, 8}));
  EXPECT_EQ(ui.events,
            (std::vector<std::string>{"spinner:Importing...", "text:step 0", "text:step 2",
                                      "text:step 4", "text:step 6", "text:step 8", "hide"}));
}

TEST_F(AppDelegateTest, TheTimerSavesWhenIdleNeverDuringAJobAndStopsOnResign) {
  auto o = options();
  o.saveInterval = 0.05;
  AppDelegate app(ui, o);
  app.launch();
  std::shared_ptr<Col> col = app.col();
  col->setMod();
  ASSERT_TRUE(
      run(app, [&] { return debugLog().find("finished work: Saving...") != std::string::npos; }));
  waitIdle(app);
  EXPECT_FALSE(col->db()->mod);

  // A job several intervals long: the timer is off for its length, so nothing is queued.
  bool done = false;
  app.doWork(
      "Long", [] { std::this_thread::sleep_for(300ms); }, [&] { done = true; });
  ASSERT_TRUE(run(app, [&] { return done; }));
  std::string log = debugLog();
  size_t start = at(log, "starting work: Long"), end = at(log, "main update: Long");
  EXPECT_EQ(log.substr(start, end - start).find("queued work: Saving..."), std::string::npos);
  waitIdle(app);

  // Resigning saves at once and stops the timer; terminating then has nothing to save.
  col->setMod();
  app.applicationWillResignActive();
  EXPECT_FALSE(app.timerRunning());
  EXPECT_FALSE(col->db()->mod);
  col->setMod();
  runFor(app, 200ms);
  EXPECT_TRUE(col->db()->mod);
  app.applicationWillTerminate();
  EXPECT_TRUE(col->db()->mod);

  // Back in the foreground the timer runs again, and terminating saves.
  app.applicationWillEnterForeground();
  EXPECT_TRUE(app.timerRunning());
  app.prefs().setObject("set before the end", "marker");
  app.applicationWillTerminate();
  EXPECT_FALSE(col->db()->mod);
  EXPECT_EQ(Preferences(data() + "/Preferences.json").stringForKey("marker"), "set before the end");
}

TEST_F(AppDelegateTest, TerminateLetsTheRunningJobFinishAndSaves) {
  std::atomic<bool> first{false}, second{false};
  {
    AppDelegate app(ui, options());
    app.launch();
    app.doWork("First", [&] {
      std::this_thread::sleep_for(30ms);
      first = true;
    });
    app.doWork(
        "Second", [&] { second = true; }, [&] { app.col()->setMod(); });
    app.doOnMain([&] { app.terminate(5); });
    EXPECT_EQ(app.run(), 5);
    EXPECT_TRUE(first && second);
    EXPECT_FALSE(app.col()->db()->mod);  // the main block's change was saved on the way out
  }
  // Without the queued work: what hasn't started is dropped, and nothing new starts.
  first = second = false;
  AppDelegate app(ui, options());
  app.launch();
  std::atomic<bool> third{false};
  app.doWork("First", [&] { std::this_thread::sleep_for(30ms); });
  app.doWork("Second", [&] { second = true; });
  app.doOnMain([&] {
    app.terminate(6, false);
    app.doWork("Third", [&] { third = true; });
  });
  EXPECT_EQ(app.run(), 6);
  EXPECT_FALSE(second);
  EXPECT_FALSE(third);
}

TEST_F(AppDelegateTest, SigtermSavesAndEndsTheMainLoop) {
  auto o = options();
  o.handleSignals = true;
  AppDelegate app(ui, o);
  app.launch();
  app.col()->setMod();
  app.doOnMain([] { std::raise(SIGTERM); });
  EXPECT_EQ(app.run(), 128 + SIGTERM);
  EXPECT_FALSE(app.col()->db()->mod);
}

TEST_F(AppDelegateTest, AnExceptionInAWorkBlockEndsRun) {
  AppDelegate app(ui, options());
  app.launch();
  app.doWork("Bad", [] { throw std::runtime_error("bad work"); });
  EXPECT_THROW(app.run(), std::runtime_error);
}

TEST_F(AppDelegateTest, ADamagedCollectionIsSetAsideAndAFreshOneOpened) {
  const std::string path = data() + "/profiles/User 1/collection.rivo2";
  const std::string corrupt = data() + "/Documents/corrupt.rivo2";
  auto launch = [&] {
    test::FakeUi seen;
    AppDelegate app(seen, options());
    app.launch();
    EXPECT_EQ(app.col() ? app.col()->path() : "", path);
    return seen.events;
  };
  launch();
  const std::string first(4096, 'x'), second(8192, 'y');
  test::writeFile(path, first);
  test::writeFile(path + "-journal", "a journal of the damaged file");
  EXPECT_EQ(launch(),
            std::vector<std::string>{"alert:|Your collection couldn't be loaded. It has been moved "
                                     "to Documents/corrupt.rivo2, and a fresh collection has been "
                                     "loaded."});
  EXPECT_EQ(test::readFile(corrupt), first);
  EXPECT_FALSE(fs::exists(path + "-journal"));
  // The fresh collection opens without complaint next time.
  EXPECT_TRUE(launch().empty());
  // Only the latest damaged file is kept.
  test::writeFile(path, second);
  launch();
  EXPECT_EQ(test::readFile(corrupt), second);
  EXPECT_FALSE(fs::exists(corrupt + "-journal"));
}

TEST_F(AppDelegateTest, ProfilesAreChosenSwitchedRenamedAndRemovedWithTheirCollections) {
  auto o = options();
  o.profile = "Work";
  EXPECT_THROW(AppDelegate(ui, o).launch(), AppError);
  o.profile = "../escape";
  o.createProfile = true;
  EXPECT_THROW(AppDelegate(ui, o).launch(), AppError);
  EXPECT_FALSE(fs::exists(dir.file("escape")));
  EXPECT_FALSE(fs::exists(data() + "/escape"));

  o.profile = "Work";
  AppDelegate app(ui, o);
  app.launch();
  ProfileManager& pm = app.pm();
  EXPECT_EQ(pm.currentProfile(), "Work");
  EXPECT_EQ(pm.profiles(), (std::vector<std::string>{"User 1", "Work"}));
  EXPECT_EQ(app.col()->path(), data() + "/profiles/Work/collection.rivo2");

  // Switching runs as a job, as the profile screen does it.
  pm.create("Other");
  bool done = false;
  app.doWork(
      "Loading profile: Other", [&] { pm.loadProfileWithName("Other"); }, [&] { done = true; });
  ASSERT_TRUE(run(app, [&] { return done; }));
  EXPECT_EQ(pm.currentProfile(), "Other");
  EXPECT_EQ(app.col()->path(), data() + "/profiles/Other/collection.rivo2");

  // Renaming the open profile reopens its collection in the moved folder.
  pm.renameFrom("Other", "Moved");
  EXPECT_EQ(app.col()->path(), data() + "/profiles/Moved/collection.rivo2");
  app.col()->setMod();
  app.col()->save();
  EXPECT_FALSE(fs::exists(data() + "/profiles/Other"));

  // Removing it loads the first one left.
  pm.remove("Moved");
  EXPECT_EQ(pm.currentProfile(), "User 1");
  EXPECT_EQ(app.col()->path(), data() + "/profiles/User 1/collection.rivo2");
  EXPECT_FALSE(fs::exists(data() + "/profiles/Moved"));
}

}  // namespace
}  // namespace rivo
