#pragma once
// A priority queue kept as a sorted std::vector, and the list helpers the scheduler's queues use.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace rivo {

namespace detail {

template <class T>
struct OrderedByFirst : std::false_type {};
template <class A, class B>
struct OrderedByFirst<std::pair<A, B>> : std::true_type {};
template <class... A>
struct OrderedByFirst<std::tuple<A...>> : std::true_type {};
template <class A, size_t N>
struct OrderedByFirst<std::array<A, N>> : std::true_type {};

// Pairs, tuples and arrays (such as a (due, card id) entry) sort by their first item.
template <class T>
const auto& queueKey(const T& item) {
  if constexpr (OrderedByFirst<T>::value)
    return std::get<0>(item);
  else
    return item;
}

}  // namespace detail

// Ascending; equal keys end in no particular order.
template <class T>
void sortQueue(std::vector<T>& queue) {
  std::sort(queue.begin(), queue.end(),
            [](const T& a, const T& b) { return detail::queueKey(a) < detail::queueKey(b); });
}

template <class T>
void queuePush(std::vector<T>& queue, T item) {
  queue.push_back(std::move(item));
  sortQueue(queue);
}

// Removes and returns the smallest element; raises std::out_of_range when empty.
template <class T>
T queuePop(std::vector<T>& queue) {
  if (queue.empty()) throw std::out_of_range("queuePop on an empty queue");
  T first = std::move(queue.front());
  queue.erase(queue.begin());
  sortQueue(queue);
  return first;
}

// Removes and returns the last element; raises std::out_of_range when empty.
template <class T>
T pop(std::vector<T>& list) {
  if (list.empty()) throw std::out_of_range("pop on an empty list");
  T last = std::move(list.back());
  list.pop_back();
  return last;
}

// Draws from the process's random(), so that a seeded srandom() gives the same order on every
// device.
template <class T>
void shuffle(std::vector<T>& list) {
  const size_t n = list.size();
  for (size_t i = 0; i < n; ++i) {
    const size_t j = i + static_cast<size_t>(random()) % (n - i);
    std::swap(list[i], list[j]);
  }
}

}  // namespace rivo
