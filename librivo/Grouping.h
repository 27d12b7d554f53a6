#pragma once
// Lists of names in the order a person reading them expects.

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace rivo {

// Case-insensitive order, as a person reading a list of names expects.
bool caseInsensitiveLess(const std::string& a, const std::string& b);

// Items grouped by key, each group in case-insensitive key order; items with an empty key are
// dropped.
template <class T, class KeyFn>
std::map<std::string, std::vector<T>> groupBy(const std::vector<T>& items, KeyFn key) {
  std::vector<std::pair<std::string, const T*>> keyed;
  keyed.reserve(items.size());
  for (const T& item : items) keyed.emplace_back(key(item), &item);
  std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) {
    return caseInsensitiveLess(a.first, b.first);
  });
  std::map<std::string, std::vector<T>> groups;
  for (const auto& [k, item] : keyed) {
    if (!k.empty()) groups[k].push_back(*item);
  }
  return groups;
}

}  // namespace rivo
