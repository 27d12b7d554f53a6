#pragma once
// Named notifications with a JSON user-info, delivered synchronously on the posting thread.

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "librivo/Json.h"

namespace rivo {

class NotificationCenter {
 public:
  using Observer = std::function<void(const Json& userInfo)>;
  using Token = uint64_t;

  Token observe(const std::string& name, Observer observer);
  void removeObserver(Token token);
  // Calls every observer of `name`, in the order they were added. Observers may add or
  // remove observers while being called; the change applies from the next post.
  void post(const std::string& name, const Json& userInfo = Json::object()) const;
  size_t observerCount(const std::string& name) const;

 private:
  struct Entry {
    std::string name;
    std::shared_ptr<Observer> observer;
  };
  // Guards `_observers` and `_next`; not held while observers are called.
  mutable std::mutex _m;
  std::map<Token, Entry> _observers;
  Token _next = 1;
};

}  // namespace rivo
