#pragma once
// Background threads sharing one queue: several for work that needn't wait its turn behind
// the collection's jobs (sync status checks, media listings), one for the serial work queue.

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace rivo {

class WorkerPool {
 public:
  using Task = std::function<void()>;
  using ErrorHandler = std::function<void(std::exception_ptr)>;

  WorkerPool(std::string label, unsigned threads);
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Queues a task; false (and dropped) once the pool is closed.
  bool async(Task task);
  // Where an exception thrown by a task goes; without a handler it ends the program.
  void setErrorHandler(ErrorHandler handler);
  // Discards the tasks that haven't started.
  void clearPending();
  // Accepts no more tasks; with `dropPending` the ones not started are discarded.
  void close(bool dropPending);
  // Waits for the threads to end; only after close().
  void join();
  // A task is running or waiting.
  bool busy() const;
  // The calling thread is one of the pool's.
  bool isCurrent() const;
  const std::string& label() const { return _label; }

 private:
  void _loop();

  std::string _label;
  // Guards `_tasks`, `_closed`, `_running`, `_idle` and `_threads` (which grows, up to
  // `_maxThreads`, as work arrives); `_cv` wakes the pool's threads when a task arrives or the
  // pool closes.
  mutable std::mutex _m;
  std::condition_variable _cv;
  std::deque<Task> _tasks;
  bool _closed = false;
  unsigned _running = 0;
  unsigned _idle = 0;  // threads waiting for a task
  const unsigned _maxThreads;
  ErrorHandler _onError;
  std::vector<std::thread> _threads;
};

}  // namespace rivo
