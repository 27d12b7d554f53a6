#pragma once
// One background thread running tasks strictly one after another, in the order queued.

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace rivo {

class SerialQueue {
 public:
  using Task = std::function<void()>;
  using ErrorHandler = std::function<void(std::exception_ptr)>;

  // `label` names the thread (as seen in a debugger or `ps -L`).
  explicit SerialQueue(std::string label);
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  // Queues a task; false (and dropped) once the queue is closed.
  bool async(Task task);
  // Where an exception thrown by a task goes; without a handler it ends the program.
  void setErrorHandler(ErrorHandler handler);

  // Discards the tasks that haven't started.
  void clearPending();
  // Accepts no more tasks; with `dropPending` the ones not started are discarded.
  void close(bool dropPending);
  // Waits for the thread to end; only after close().
  void join();

  // A task is running or waiting.
  bool busy() const;
  bool isCurrent() const { return std::this_thread::get_id() == _thread.get_id(); }
  const std::string& label() const { return _label; }

 private:
  void _loop();

  std::string _label;
  mutable std::mutex _m;
  std::condition_variable _cv;
  std::deque<Task> _tasks;
  bool _closed = false;
  bool _running = false;
  ErrorHandler _onError;
  std::thread _thread;
};

}  // namespace rivo
