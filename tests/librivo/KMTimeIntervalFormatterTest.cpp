#include "librivo/KMTimeIntervalFormatter.h"

#include <gtest/gtest.h>

#include <tuple>

namespace rivo {
namespace {

TEST(KMTimeIntervalFormatter, WordsAndClockStyles) {
  KMTimeIntervalFormatter f;
  EXPECT_EQ(f.style, 1);  // the clock
  const std::tuple<double, const char*, const char*> cases[] = {
      {0, "0 secs", "00:00"},       {1, "1 sec", "00:01"},
      {59.5, "1 min", "01:00"},  // rounded to whole seconds first
      {61, "1 min 1 sec", "01:01"}, {150, "2 mins 30 secs", "02:30"},
      {600, "10 mins", "10:00"},    {3599, "59 mins 59 secs", "59:59"},
      {3600, "1 h", "01:00:00"},    {7325, "2 h 2 mins 5 secs", "02:02:05"},
      {36000, "10 h", "10:00:00"},
  };
  for (const auto& [seconds, words, clock] : cases) {
    f.style = 0;
    EXPECT_EQ(f.stringForObjectValue(seconds), words);
    f.style = 1;
    EXPECT_EQ(f.stringForObjectValue(seconds), clock);
  }
  f.style = 2;
  EXPECT_EQ(f.stringForObjectValue(65), "");
}

}  // namespace
}  // namespace rivo
