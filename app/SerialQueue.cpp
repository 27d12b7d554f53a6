#include "app/SerialQueue.h"

#include <pthread.h>

#include <utility>

namespace rivo {

SerialQueue::SerialQueue(std::string label) : _label(std::move(label)) {
  _thread = std::thread([this] { _loop(); });
}

SerialQueue::~SerialQueue() {
  close(true);
  join();
}

bool SerialQueue::async(Task task) {
  std::lock_guard lock(_m);
  if (_closed) return false;
  _tasks.push_back(std::move(task));
  _cv.notify_all();
  return true;
}

void SerialQueue::setErrorHandler(ErrorHandler handler) {
  std::lock_guard lock(_m);
  _onError = std::move(handler);
}

void SerialQueue::clearPending() {
  std::deque<Task> dropped;
  std::lock_guard lock(_m);
  dropped.swap(_tasks);
}

void SerialQueue::close(bool dropPending) {
  std::deque<Task> dropped;
  std::lock_guard lock(_m);
  _closed = true;
  if (dropPending) dropped.swap(_tasks);
  _cv.notify_all();
}

void SerialQueue::join() {
  if (_thread.joinable() && !isCurrent()) _thread.join();
}

bool SerialQueue::busy() const {
  std::lock_guard lock(_m);
  return _running || !_tasks.empty();
}

void SerialQueue::_loop() {
  pthread_setname_np(pthread_self(), _label.substr(0, 15).c_str());
  for (;;) {
    Task task;
    {
      std::unique_lock lock(_m);
      _running = false;
      _cv.wait(lock, [&] { return _closed || !_tasks.empty(); });
      if (_tasks.empty()) return;
      task = std::move(_tasks.front());
      _tasks.pop_front();
      _running = true;
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
  }
}

}  // namespace rivo
