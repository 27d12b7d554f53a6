#include "app/Timer.h"

#include <utility>

namespace rivo {

Timer::Timer(std::chrono::nanoseconds interval, bool repeats, Task task)
    : _interval(interval), _repeats(repeats), _task(std::move(task)) {}

std::shared_ptr<Timer> Timer::schedule(MainLoop& loop, std::chrono::nanoseconds interval,
                                       bool repeats, Task task) {
  // A repeating timer of no length would keep the loop from ever doing anything else.
  if (repeats && interval < std::chrono::milliseconds(1)) interval = std::chrono::milliseconds(1);
  auto timer = std::make_shared<Timer>(interval, repeats, std::move(task));
  loop._addTimer(timer);
  return timer;
}

std::shared_ptr<Timer> Timer::schedule(MainLoop& loop, double seconds, bool repeats, Task task) {
  auto interval = std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::chrono::duration<double>(seconds < 0 ? 0 : seconds));
  return schedule(loop, interval, repeats, std::move(task));
}

void Timer::invalidate() {
  if (!_valid.exchange(false)) return;
  if (auto loop = _loop.lock()) MainLoop::_removeTimer(loop, *this);
}

}  // namespace rivo
