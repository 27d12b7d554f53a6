#include "app/MainLoop.h"

#include <atomic>
#include <exception>
#include <utility>
#include <vector>

#include "app/Timer.h"

namespace rivo {

struct MainLoop::State {
  std::mutex m;
  std::condition_variable cv;
  std::deque<Task> tasks;
  // Ordered by firing time; the sequence number keeps equal times apart and in order.
  std::map<std::pair<SteadyClock::time_point, uint64_t>, std::shared_ptr<Timer>> timers;
  uint64_t seq = 0;
  bool quit = false;
  int status = 0;
  bool stopped = false;
  std::atomic<std::thread::id> owner;
};

MainLoop::MainLoop() : _state(std::make_shared<State>()) {
  _state->owner = std::this_thread::get_id();
}

MainLoop::~MainLoop() {
  stop();
}

bool MainLoop::post(Task task) {
  {
    std::lock_guard lock(_state->m);
    if (!_state->stopped) {
      _state->tasks.push_back(std::move(task));
      _state->cv.notify_all();
      return true;
    }
  }
  // Destroyed here, outside the lock: a dropped sync call releases its waiter on destruction.
  return false;
}

namespace {

// Shared between a thread waiting in sync() and the task it posted.
struct SyncCall {
  std::mutex m;
  std::condition_variable cv;
  bool done = false;
  std::exception_ptr error;

  void finish(std::exception_ptr e = nullptr) {
    std::lock_guard lock(m);
    if (done) return;
    done = true;
    error = std::move(e);
    cv.notify_all();
  }
};

// Releases the waiter if the task is discarded without running (the loop was stopped).
struct SyncGuard {
  explicit SyncGuard(std::shared_ptr<SyncCall> c) : call(std::move(c)) {}
  SyncGuard(const SyncGuard&) = delete;
  SyncGuard& operator=(const SyncGuard&) = delete;
  ~SyncGuard() { call->finish(); }
  std::shared_ptr<SyncCall> call;
};

}  // namespace

void MainLoop::sync(const Task& task) {
  if (isMainThread()) {
    task();
    return;
  }
  auto call = std::make_shared<SyncCall>();
  auto guard = std::make_shared<SyncGuard>(call);
  bool posted = post([guard, task] {
    try {
      task();
    } catch (...) {
      guard->call->finish(std::current_exception());
      throw;
    }
    guard->call->finish();
  });
  guard.reset();
  if (!posted) return;
  std::unique_lock lock(call->m);
  call->cv.wait(lock, [&] { return call->done; });
  if (call->error) std::rethrow_exception(call->error);
}

bool MainLoop::_runOne(SteadyClock::time_point until, bool timers, bool honourQuit) {
  Task task;
  {
    std::unique_lock lock(_state->m);
    for (;;) {
      if (honourQuit && _state->quit) return false;
      if (!_state->tasks.empty()) {
        task = std::move(_state->tasks.front());
        _state->tasks.pop_front();
        break;
      }
      auto now = SteadyClock::now();
      if (timers && !_state->timers.empty() && _state->timers.begin()->first.first <= now) {
        auto it = _state->timers.begin();
        std::shared_ptr<Timer> timer = it->second;
        _state->timers.erase(it);
        if (timer->_repeats) {
          // Missed ticks are skipped, not caught up.
          auto next = timer->_fireAt + timer->_interval;
          if (next <= now) next = now + timer->_interval;
          timer->_fireAt = next;
          timer->_seq = ++_state->seq;
          _state->timers.emplace(std::pair{next, timer->_seq}, timer);
        }
        // Checked when it runs: an invalidate() from another thread may come in between.
        task = [timer] {
          if (!timer->_valid) return;
          if (!timer->_repeats) timer->_valid = false;
          timer->_task();
        };
        break;
      }
      if (now >= until) return false;
      auto wake = until;
      if (timers && !_state->timers.empty())
        wake = std::min(wake, _state->timers.begin()->first.first);
      if (wake == SteadyClock::time_point::max())
        _state->cv.wait(lock);
      else
        _state->cv.wait_until(lock, wake);
    }
  }
  task();
  return true;
}

int MainLoop::run() {
  _state->owner = std::this_thread::get_id();
  for (;;) {
    {
      std::lock_guard lock(_state->m);
      if (_state->quit) {
        _state->quit = false;
        return _state->status;
      }
    }
    _runOne(SteadyClock::time_point::max(), true);
  }
}

bool MainLoop::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  _state->owner = std::this_thread::get_id();
  auto deadline = SteadyClock::now() + timeout;
  for (;;) {
    if (done()) return true;
    if (SteadyClock::now() >= deadline) return false;
    {
      std::lock_guard lock(_state->m);
      if (_state->quit) return done();
    }
    // Woken now and then to look at `done`, which other threads may change.
    _runOne(std::min(deadline, SteadyClock::now() + std::chrono::milliseconds(5)), true);
  }
}

void MainLoop::runPending(bool timers) {
  while (_runOne(SteadyClock::now(), timers, false)) {
  }
}

void MainLoop::quit(int status) {
  std::lock_guard lock(_state->m);
  _state->quit = true;
  _state->status = status;
  _state->cv.notify_all();
}

void MainLoop::stop() {
  std::deque<Task> tasks;
  std::vector<std::shared_ptr<Timer>> timers;
  {
    std::lock_guard lock(_state->m);
    _state->stopped = true;
    tasks.swap(_state->tasks);
    for (auto& entry : _state->timers) timers.push_back(entry.second);
    _state->timers.clear();
    _state->cv.notify_all();
  }
  for (auto& timer : timers) timer->_valid = false;
}

bool MainLoop::stopped() const {
  std::lock_guard lock(_state->m);
  return _state->stopped;
}

void MainLoop::_addTimer(const std::shared_ptr<Timer>& timer) {
  std::lock_guard lock(_state->m);
  if (_state->stopped) {
    timer->_valid = false;
    return;
  }
  timer->_loop = _state;
  timer->_fireAt = SteadyClock::now() + timer->_interval;
  timer->_seq = ++_state->seq;
  _state->timers.emplace(std::pair{timer->_fireAt, timer->_seq}, timer);
  _state->cv.notify_all();
}

void MainLoop::_removeTimer(const std::shared_ptr<State>& state, Timer& timer) {
  std::shared_ptr<Timer> entry;  // released after the lock, in case it is the last owner
  std::lock_guard lock(state->m);
  auto it = state->timers.find(std::pair{timer._fireAt, timer._seq});
  if (it != state->timers.end() && it->second.get() == &timer) {
    entry = std::move(it->second);
    state->timers.erase(it);
  }
}

bool MainLoop::isMainThread() const {
  return _state->owner.load() == std::this_thread::get_id();
}

}  // namespace rivo
