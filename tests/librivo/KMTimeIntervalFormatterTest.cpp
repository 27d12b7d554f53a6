#include "librivo/KMTimeIntervalFormatter.h"

#include <gtest/gtest.h>

namespace rivo {
namespace {

TEST(KMTimeIntervalFormatter, WordsStyle) {
  KMTimeIntervalFormatter f;
  f.style = 0;
  EXPECT_EQ(f.stringForObjectValue(0), "0 secs");
  EXPECT_EQ(f.stringForObjectValue(1), "1 sec");
  EXPECT_EQ(f.stringForObjectValue(59.5), "1 min");  // rounded to whole seconds first
  EXPECT_EQ(f.stringForObjectValue(61), "1 min 1 sec");
  EXPECT_EQ(f.stringForObjectValue(150), "2 mins 30 secs");
  EXPECT_EQ(f.stringForObjectValue(3600), "1 h");
  EXPECT_EQ(f.stringForObjectValue(7325), "2 h 2 mins 5 secs");
}

TEST(KMTimeIntervalFormatter, ClockStyleIsTheDefault) {
  KMTimeIntervalFormatter f;
  EXPECT_EQ(f.style, 1);
  EXPECT_EQ(f.stringForObjectValue(0), "00:00");
  EXPECT_EQ(f.stringForObjectValue(65), "01:05");
  EXPECT_EQ(f.stringForObjectValue(600), "10:00");
  EXPECT_EQ(f.stringForObjectValue(3599), "59:59");
  EXPECT_EQ(f.stringForObjectValue(3661), "01:01:01");
  EXPECT_EQ(f.stringForObjectValue(36000), "10:00:00");
  f.style = 2;
  EXPECT_EQ(f.stringForObjectValue(65), "");
}

}  // namespace
}  // namespace rivo
