#include "librivo/Clock.h"

#include <atomic>
#include <chrono>

namespace rivo {

namespace {
// The only process-wide state here: the pinned test time, unset in normal runs.
std::atomic<bool> gPinned{false};
std::atomic<double> gPinnedTime{0};
}  // namespace

double Clock::now() {
  if (gPinned.load(std::memory_order_acquire)) return gPinnedTime.load();
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

Clock::Override::Override(double seconds)
    : _previous(gPinnedTime.load()), _hadPrevious(gPinned.load()) {
  gPinnedTime.store(seconds);
  gPinned.store(true, std::memory_order_release);
}

Clock::Override::~Override() {
  gPinnedTime.store(_previous);
  gPinned.store(_hadPrevious, std::memory_order_release);
}

void Clock::Override::set(double seconds) {
  gPinnedTime.store(seconds);
}
void Clock::Override::advance(double seconds) {
  gPinnedTime.store(gPinnedTime.load() + seconds);
}

long long intTime(int scale) {
  return static_cast<long long>(Clock::now() * scale);
}

}  // namespace rivo
