#include "app/Dispatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "app/Timer.h"

namespace rivo {
namespace {

using namespace std::chrono_literals;

TEST(MainLoop, RunsTasksInOrderAndSyncCallsWaitForTheMainThread) {
  MainLoop loop;
  std::vector<int> order;  // touched on the main thread only
  std::atomic<bool> workerDone{false};
  std::thread::id mainId = std::this_thread::get_id();
  std::thread::id ranOn;

  loop.post([&] { order.push_back(1); });
  std::thread worker([&] {
    int value = 0;
    loop.sync([&] {
      ranOn = std::this_thread::get_id();
      value = 42;
      order.push_back(2);
    });
    EXPECT_EQ(value, 42);  // sync returned only after the block ran
    loop.post([&] { order.push_back(3); });
    workerDone = true;
  });
  ASSERT_TRUE(loop.runUntil([&] { return order.size() == 3; }, 5s));
  worker.join();
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(ranOn, mainId);

  // On the main thread itself a sync call runs inline instead of waiting for itself.
  bool inline_ = false;
  loop.sync([&] { inline_ = true; });
  EXPECT_TRUE(inline_);
}

TEST(MainLoop, QuitEndsRunWithItsStatusAndExceptionsLeaveRun) {
  MainLoop loop;
  loop.post([&] { loop.quit(7); });
  EXPECT_EQ(loop.run(), 7);

  bool later = false;
  loop.post([] { throw std::runtime_error("boom"); });
  loop.post([&] { later = true; });
  EXPECT_THROW(loop.run(), std::runtime_error);
  EXPECT_FALSE(later);
  // What was queued behind the failing task is still there.
  loop.post([&] { loop.quit(0); });
  EXPECT_EQ(loop.run(), 0);
  EXPECT_TRUE(later);

  // A sync caller sees the exception of its block too.
  std::promise<std::string> seen;
  std::thread worker([&] {
    try {
      loop.sync([] { throw std::runtime_error("in main block"); });
      seen.set_value("no exception");
    } catch (const std::runtime_error& e) {
      seen.set_value(e.what());
    }
  });
  EXPECT_THROW(loop.runUntil([] { return false; }, 2s), std::runtime_error);
  worker.join();
  EXPECT_EQ(seen.get_future().get(), "in main block");
}

TEST(Timer, OneShotRepeatingAndInvalidated) {
  MainLoop loop;
  std::vector<std::string> fired;
  auto once = Timer::schedule(loop, 0.02, false, [&] { fired.push_back("once"); });
  int ticks = 0;
  std::shared_ptr<Timer> repeating;
  repeating = Timer::schedule(loop, 0.005, true, [&] {
    if (++ticks == 3) repeating->invalidate();
  });
  auto cancelled = Timer::schedule(loop, 0.01, false, [&] { fired.push_back("cancelled"); });
  cancelled->invalidate();
  // Invalidated from another thread while the loop waits for it.
  auto fromElsewhere = Timer::schedule(loop, 0.03, true, [&] { fired.push_back("elsewhere"); });
  std::thread([&] { fromElsewhere->invalidate(); }).join();

  loop.runUntil([] { return false; }, 150ms);
  EXPECT_EQ(fired, std::vector<std::string>{"once"});
  EXPECT_EQ(ticks, 3);
  EXPECT_FALSE(once->isValid());
  EXPECT_FALSE(repeating->isValid());

  // Timers fire in the order of their times, whatever the order of scheduling.
  fired.clear();
  auto late = Timer::schedule(loop, 0.03, false, [&] { fired.push_back("late"); });
  auto early = Timer::schedule(loop, 0.01, false, [&] { fired.push_back("early"); });
  loop.runUntil([&] { return fired.size() == 2; }, 2s);
  EXPECT_EQ(fired, (std::vector<std::string>{"early", "late"}));

  // Nothing fires after the loop is stopped, and new timers are born invalid.
  auto pending = Timer::schedule(loop, 0.001, false, [&] { fired.push_back("after stop"); });
  loop.stop();
  EXPECT_FALSE(pending->isValid());
  EXPECT_FALSE(Timer::schedule(loop, 0.001, false, [] {})->isValid());
  EXPECT_FALSE(loop.post([] {}));
}

TEST(SerialQueue, RunsOneTaskAtATimeInOrder) {
  SerialQueue queue("work");
  std::atomic<int> inFlight{0}, maxInFlight{0};
  std::mutex m;
  std::vector<int> order;
  for (int i = 0; i < 50; ++i) {
    queue.async([&, i] {
      const int now = ++inFlight;
      maxInFlight = std::max(maxInFlight.load(), now);
      std::this_thread::sleep_for(100us);
      std::lock_guard lock(m);
      order.push_back(i);
      --inFlight;
    });
  }
  queue.close(false);  // what is queued still runs
  queue.join();
  EXPECT_EQ(maxInFlight, 1);
  ASSERT_EQ(order.size(), 50u);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(order[i], i);
  EXPECT_FALSE(queue.async([] {}));
}

TEST(Dispatch, BackgroundExceptionsComeOutOfTheMainLoop) {
  Dispatch dispatch;
  dispatch.work().async([] { throw std::runtime_error("work failed"); });
  try {
    dispatch.main().run();
    FAIL() << "run() returned";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "work failed");
  }
  dispatch.global().async([] { throw std::logic_error("pool failed"); });
  EXPECT_THROW(dispatch.main().run(), std::logic_error);
  // The work queue goes on after a failed task.
  std::atomic<bool> ran{false};
  dispatch.work().async([&] { ran = true; });
  dispatch.main().runUntil([&] { return ran.load(); }, 5s);
  EXPECT_TRUE(ran);
}

TEST(Dispatch, ShutdownServesARunningJobAndDropsTheRest) {
  for (int round = 0; round < 20; ++round) {
    auto dispatch = std::make_unique<Dispatch>();
    std::atomic<bool> started{false}, mainBlockRan{false}, secondRan{false};
    dispatch->work().async([&] {
      started = true;
      std::this_thread::sleep_for(5ms);
      // Waits for the main loop, which no longer runs: shutdown must serve it.
      dispatch->main().sync([&] { mainBlockRan = true; });
    });
    dispatch->work().async([&] { secondRan = true; });
    dispatch->global().async([&] { dispatch->main().post([] {}); });
    while (!started) std::this_thread::yield();
    dispatch->shutdown();
    EXPECT_TRUE(mainBlockRan);
    EXPECT_FALSE(secondRan);
    EXPECT_FALSE(dispatch->main().post([] {}));
    EXPECT_FALSE(dispatch->work().async([] {}));
    dispatch.reset();
  }
}

}  // namespace
}  // namespace rivo
