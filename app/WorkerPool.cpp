#include "app/WorkerPool.h"

#include <pthread.h>

#include <algorithm>
#include <utility>

namespace rivo {

WorkerPool::WorkerPool(std::string label, unsigned threads)
    : _label(std::move(label)), _maxThreads(std::max(threads, 1u)) {}

WorkerPool::~WorkerPool() {
  close(true);
  join();
}

bool WorkerPool::async(Task task) {
  std::lock_guard lock(_m);
  if (_closed) return false;
  _tasks.push_back(std::move(task));
  // Threads start with the first work that needs them: a command that never queues any
  // doesn't pay for them at launch.
  if (_tasks.size() > _idle && _threads.size() < _maxThreads)
    _threads.emplace_back([this] { _loop(); });
  else
    _cv.notify_one();
  return true;
}

void WorkerPool::setErrorHandler(ErrorHandler handler) {
  std::lock_guard lock(_m);
  _onError = std::move(handler);
}

void WorkerPool::clearPending() {
  std::deque<Task> dropped;
  std::lock_guard lock(_m);
  dropped.swap(_tasks);
}

bool WorkerPool::isCurrent() const {
  std::lock_guard lock(_m);
  for (const auto& thread : _threads)
    if (thread.get_id() == std::this_thread::get_id()) return true;
  return false;
}

void WorkerPool::close(bool dropPending) {
  std::deque<Task> dropped;
  std::lock_guard lock(_m);
  _closed = true;
  if (dropPending) dropped.swap(_tasks);
  _cv.notify_all();
}

void WorkerPool::join() {
  for (auto& thread : _threads) {
    if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) thread.join();
  }
}

bool WorkerPool::busy() const {
  std::lock_guard lock(_m);
  return _running > 0 || !_tasks.empty();
}

void WorkerPool::_loop() {
  pthread_setname_np(pthread_self(), _label.substr(0, 15).c_str());
  for (;;) {
    Task task;
    {
      std::unique_lock lock(_m);
      ++_idle;
      _cv.wait(lock, [&] { return _closed || !_tasks.empty(); });
      --_idle;
      if (_tasks.empty()) return;
      task = std::move(_tasks.front());
      _tasks.pop_front();
      ++_running;
    }
    try {
      task();
    } catch (...) {
      ErrorHandler handler;
      {
        std::lock_guard lock(_m);
        handler = _onError;
      }
      if (!handler) throw;
      handler(std::current_exception());
    }
    std::lock_guard lock(_m);
    --_running;
  }
}

}  // namespace rivo
