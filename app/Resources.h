#pragma once
// The files of resources/ (settings pages, the browser page, help), built into the program so
// that it needs no installed data folder. Read-only; any thread.

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace rivo {

class Resources {
 public:
  // By path under resources/, as "settings/Root.json".
  static std::optional<std::string_view> get(const std::string& name) {
    auto it = all().find(name);
    if (it == all().end()) return std::nullopt;
    return it->second;
  }
  static const std::map<std::string, std::string_view>& all();
};

}  // namespace rivo
