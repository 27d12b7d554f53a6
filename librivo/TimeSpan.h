#pragma once
// Lengths of time as a person reads them: "2 days", "1.5 months", "3h".

#include <cstdint>
#include <string>

namespace rivo {

struct TimePeriod {
  std::string unit;  // "years", "months", "days", "hours", "minutes" or "seconds"
  int point = 0;     // fraction digits to show
};

TimePeriod optimalPeriod(int64_t seconds, int point, int maxUnit);
// Raises std::invalid_argument for a unit not listed in TimePeriod.
float convertSecondsTo(float seconds, const std::string& unit);
// "2 days", "1.5 months", "3h": the largest fitting unit, capped by maxUnit (0 seconds .. 4
// months). `minDigits` pads the integer part; `inTime` marks the phrase for translators.
std::string fmtTimeSpan(int minDigits, int point, bool shortForm, bool inTime, int maxUnit,
                        float seconds);

}  // namespace rivo
