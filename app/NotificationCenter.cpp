#include "app/NotificationCenter.h"

#include <memory>
#include <utility>
#include <vector>

namespace rivo {

NotificationCenter::Token NotificationCenter::observe(const std::string& name, Observer observer) {
  std::lock_guard lock(_m);
  Token token = _next++;
  _observers.emplace(token, Entry{name, std::make_shared<Observer>(std::move(observer))});
  return token;
}

void NotificationCenter::removeObserver(Token token) {
  std::lock_guard lock(_m);
  _observers.erase(token);
}

void NotificationCenter::post(const std::string& name, const Json& userInfo) const {
  std::vector<std::shared_ptr<Observer>> targets;
  {
    std::lock_guard lock(_m);
    for (const auto& [token, entry] : _observers)
      if (entry.name == name) targets.push_back(entry.observer);
  }
  // Called outside the lock so that an observer may post or observe in turn.
  for (const auto& observer : targets) (*observer)(userInfo);
}

size_t NotificationCenter::observerCount(const std::string& name) const {
  std::lock_guard lock(_m);
  size_t count = 0;
  for (const auto& [token, entry] : _observers) count += entry.name == name;
  return count;
}

}  // namespace rivo
