#pragma once
// A timer on the main loop, repeating or one-shot. Dropping the handle doesn't stop it:
// invalidate() does, from any thread, as a one-shot timer does itself once it has fired.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "app/MainLoop.h"

namespace rivo {

class Timer : public std::enable_shared_from_this<Timer> {
 public:
  using Task = std::function<void()>;

  static std::shared_ptr<Timer> schedule(MainLoop& loop, std::chrono::nanoseconds interval,
                                         bool repeats, Task task);
  static std::shared_ptr<Timer> schedule(MainLoop& loop, double seconds, bool repeats, Task task);

  void invalidate();
  bool isValid() const { return _valid.load(); }
  bool repeats() const { return _repeats; }
  std::chrono::nanoseconds interval() const { return _interval; }

  Timer(std::chrono::nanoseconds interval, bool repeats, Task task);

 private:
  friend class MainLoop;

  std::chrono::nanoseconds _interval;
  bool _repeats;
  Task _task;
  std::atomic<bool> _valid{true};
  // The loop's table entry; read and written under the loop's lock only.
  std::weak_ptr<MainLoop::State> _loop;
  std::chrono::steady_clock::time_point _fireAt;
  uint64_t _seq = 0;
};

}  // namespace rivo
