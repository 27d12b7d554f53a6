#include "librivo/PriorityQueue.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace rivo {
namespace {

using Entry = std::pair<int64_t, int64_t>;  // (due, card id)

TEST(PriorityQueue, SortsPairsByTheirFirstItemOnly) {
  std::vector<Entry> q;
  sortQueue(q);
  EXPECT_TRUE(q.empty());
  queuePush(q, Entry{300, 1});
  queuePush(q, Entry{100, 9});
  queuePush(q, Entry{200, 5});
  EXPECT_EQ(q.front(), (Entry{100, 9}));
  EXPECT_EQ(queuePop(q), (Entry{100, 9}));
  EXPECT_EQ(queuePop(q), (Entry{200, 5}));
  EXPECT_EQ(q.size(), 1u);

  std::vector<std::array<int, 2>> arrays{{3, 0}, {1, 9}, {2, 5}};
  sortQueue(arrays);
  EXPECT_EQ(arrays[0][0], 1);
  EXPECT_EQ(arrays[2][0], 3);
}

TEST(PriorityQueue, PlainElementsAndPop) {
  std::vector<int64_t> ids{5, 3, 9};
  sortQueue(ids);
  EXPECT_EQ(ids, (std::vector<int64_t>{3, 5, 9}));
  EXPECT_EQ(pop(ids), 9);
  EXPECT_EQ(queuePop(ids), 3);
  EXPECT_EQ(ids, (std::vector<int64_t>{5}));
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
  std::vector<int64_t> none;
  shuffle(none);
  EXPECT_TRUE(none.empty());
}

}  // namespace
}  // namespace rivo
