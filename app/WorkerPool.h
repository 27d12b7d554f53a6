#pragma once
// A few background threads sharing one queue, for work that needn't wait its turn behind
// the collection's jobs (sync status checks, media listings).

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

  bool async(Task task);
  void setErrorHandler(ErrorHandler handler);
  void close(bool dropPending);
  void join();
  bool busy() const;

 private:
  void _loop();

  std::string _label;
  mutable std::mutex _m;
  std::condition_variable _cv;
  std::deque<Task> _tasks;
  bool _closed = false;
  unsigned _running = 0;
  ErrorHandler _onError;
  std::vector<std::thread> _threads;
};

}  // namespace rivo
