#pragma once
// Counts failed logins so that a password can't be guessed at the speed of the server. Keyed
// by address and account name together: behind a reverse proxy every request comes from one
// address, and a guesser must not lock other accounts out.
//
// Threads: any thread may call; `_mutex` guards `_failures`. Memory stays bounded: at most
// kMaxKeys keys are remembered, the stalest dropped first.

#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <string>

namespace rivo {

class LoginThrottle {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr size_t kMaxKeys = 10000;

  // Refuses a key once it has `maxFailures` failures within `window`.
  LoginThrottle(int maxFailures, Clock::duration window)
      : _maxFailures(static_cast<size_t>(maxFailures)), _window(window) {}

  bool allowed(const std::string& key, Clock::time_point now);
  void failed(const std::string& key, Clock::time_point now);
  // A good login clears the key's failures.
  void succeeded(const std::string& key);

 private:
  void _forgetExpired(std::deque<Clock::time_point>& times, Clock::time_point now) const;
  void _bound(Clock::time_point now);

  const size_t _maxFailures;
  const Clock::duration _window;
  std::mutex _mutex;
  std::map<std::string, std::deque<Clock::time_point>> _failures;  // oldest first
};

}  // namespace rivo
