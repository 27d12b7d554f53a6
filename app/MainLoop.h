#pragma once
// The main thread: one event loop that runs posted tasks and timers in order, on the thread
// that calls run(). All screen logic and every main block of a job runs here.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace rivo {

class Timer;

class MainLoop {
 public:
  using Task = std::function<void()>;
  using SteadyClock = std::chrono::steady_clock;

  // The constructing thread counts as the main thread until run() is called elsewhere.
  MainLoop();
  ~MainLoop();
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  // Queues a task from any thread. Returns false (and drops it) once the loop is stopped.
  bool post(Task task);
  // Runs the task on the main thread and waits for it; inline when called there. A task
  // that throws rethrows here too. Returns without running it if the loop is stopped first.
  void sync(const Task& task);

  // Runs tasks and timers until quit(); returns quit's status. An exception thrown by a task
  // leaves run() with that exception; the remaining tasks stay queued.
  int run();
  // Runs until `done` holds, quit() is called or the timeout passes; true when `done` held.
  // `done` is looked at after each task and every few milliseconds.
  bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);
  // Runs whatever is already due, without waiting (timers only when `timers` is set), even
  // with a quit pending: shutting down uses it to serve the last calls of background threads.
  void runPending(bool timers = true);
  void quit(int status = 0);

  // From now on posts are dropped; queued tasks and timers are discarded.
  void stop();
  bool stopped() const;

  bool isMainThread() const;

 private:
  friend class Timer;
  struct State;

  // Runs at most one task, waiting no later than `until`. False when nothing ran.
  bool _runOne(SteadyClock::time_point until, bool timers, bool honourQuit = true);
  // The timer table, for Timer.
  void _addTimer(const std::shared_ptr<Timer>& timer);
  static void _removeTimer(const std::shared_ptr<State>& state, Timer& timer);

  std::shared_ptr<State> _state;
};

}  // namespace rivo
