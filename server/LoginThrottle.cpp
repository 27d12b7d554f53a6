#include "server/LoginThrottle.h"

#include <algorithm>

namespace rivo {

bool LoginThrottle::allowed(const std::string& key, Clock::time_point now) {
  std::lock_guard lock(_mutex);
  auto it = _failures.find(key);
  if (it == _failures.end()) return true;
  _forgetExpired(it->second, now);
  if (it->second.empty()) {
    _failures.erase(it);
    return true;
  }
  return it->second.size() < _maxFailures;
}

void LoginThrottle::failed(const std::string& key, Clock::time_point now) {
  std::lock_guard lock(_mutex);
  std::deque<Clock::time_point>& times = _failures[key];
  _forgetExpired(times, now);
  times.push_back(now);
  // Only the last maxFailures matter for the decision.
  while (times.size() > _maxFailures) times.pop_front();
  if (_failures.size() > kMaxKeys) _bound(now);
}

void LoginThrottle::succeeded(const std::string& key) {
  std::lock_guard lock(_mutex);
  _failures.erase(key);
}

void LoginThrottle::_forgetExpired(std::deque<Clock::time_point>& times,
                                   Clock::time_point now) const {
  while (!times.empty() && now - times.front() >= _window) times.pop_front();
}

void LoginThrottle::_bound(Clock::time_point now) {
  for (auto it = _failures.begin(); it != _failures.end();) {
    _forgetExpired(it->second, now);
    it = it->second.empty() ? _failures.erase(it) : std::next(it);
  }
  while (_failures.size() > kMaxKeys) {
    auto stalest = std::min_element(_failures.begin(), _failures.end(), [](auto& a, auto& b) {
      return a.second.back() < b.second.back();
    });
    _failures.erase(stalest);
  }
}

}  // namespace rivo
