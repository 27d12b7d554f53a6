#include <gtest/gtest.h>
#include "librivo/DB.h"
TEST(DBQueryType, Classifies) {
  EXPECT_EQ(rivo::DB::_queryType("  SELECT 1"), rivo::DB::QueryType::Read);
}
