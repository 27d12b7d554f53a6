#include "librivo/PriorityQueue.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace rivo {
namespace {

using Entry = std::pair<int64_t, int64_t>;  // (due, card id)

TEST(PriorityQueue, EntriesSortByTheirFirstItemOnly) {
  std::vector<Entry> q;
  queuePush(q, Entry{300, 1});
  queuePush(q, Entry{100, 9});
  queuePush(q, Entry{200, 5});
  EXPECT_EQ(queuePop(q), (Entry{100, 9}));
  EXPECT_EQ(queuePop(q), (Entry{200, 5}));
  EXPECT_EQ(q, std::vector<Entry>{(Entry{300, 1})});
  std::vector<std::array<int, 2>> arrays{{3, 0}, {1, 9}, {2, 5}};
  sortQueue(arrays);
  EXPECT_EQ(arrays, (std::vector<std::array<int, 2>>{{1, 9}, {2, 5}, {3, 0}}));

  std::vector<int64_t> ids{5, 3, 9};
  sortQueue(ids);
  EXPECT_EQ(queuePop(ids), 3);
  EXPECT_EQ(pop(ids), 9);  // the last, not the smallest
  ids.clear();
  EXPECT_THROW(pop(ids), std::out_of_range);
  EXPECT_THROW(queuePop(ids), std::out_of_range);
}

TEST(PriorityQueue, ShuffleIsASeededPermutation) {
  std::vector<int64_t> original;
  for (int64_t i = 0; i < 50; ++i) original.push_back(i);
  std::vector<int64_t> a = original, b = original;
  srandom(42);
  shuffle(a);
  srandom(42);
  shuffle(b);
  EXPECT_EQ(a, b);
  EXPECT_NE(a, original);
  sortQueue(a);
  EXPECT_EQ(a, original);
}

}  // namespace
}  // namespace rivo
