#include "librivo/TimeSpan.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace rivo {

namespace {

struct TimeUnit {
  const char* name;
  int64_t seconds;
  const char* shortSuffix;
  const char* word;
};

// Descending size; a month is 30 days and a year 365, with no calendar involved.
constexpr std::array<TimeUnit, 6> kTimeUnits{{
    {"years", 31536000, "y", "year"},
    {"months", 2592000, "mo", "month"},
    {"days", 86400, "d", "day"},
    {"hours", 3600, "h", "hour"},
    {"minutes", 60, "m", "minute"},
    {"seconds", 1, "s", "second"},
}};

const TimeUnit& timeUnit(const std::string& name) {
  for (const TimeUnit& u : kTimeUnits)
    if (name == u.name) return u;
  throw std::invalid_argument("unknown time unit: " + name);
}

// At most `maxFraction` fraction digits, rounded half to even (glibc rounds the exact binary
// value that way), trailing zeros dropped, "." as separator, the integer part padded to
// `minDigits`.
std::string formatNumber(float x, int minDigits, int maxFraction) {
  char buf[128];
  std::snprintf(buf, sizeof buf, "%.*f", std::clamp(maxFraction, 0, 30), static_cast<double>(x));
  std::string s = buf;
  std::string sign;
  if (!s.empty() && s[0] == '-') {
    sign = "-";
    s.erase(0, 1);
  }
  std::string whole = s, fraction;
  if (size_t dot = s.find('.'); dot != std::string::npos) {
    whole = s.substr(0, dot);
    fraction = s.substr(dot + 1);
    while (!fraction.empty() && fraction.back() == '0') fraction.pop_back();
  }
  if (static_cast<int>(whole.size()) < minDigits)
    whole.insert(0, static_cast<size_t>(minDigits) - whole.size(), '0');
  return sign + whole + (fraction.empty() ? "" : "." + fraction);
}

int64_t truncateSeconds(float seconds) {
  if (!std::isfinite(seconds)) return 0;
  return static_cast<int64_t>(std::clamp(static_cast<double>(seconds), -9.0e18, 9.0e18));
}

}  // namespace

TimePeriod optimalPeriod(int64_t seconds, int point, int maxUnit) {
  const int64_t t = seconds < 0 ? -seconds : seconds;
  TimePeriod p{"", point};
  if (t < 60 || maxUnit < 1) {
    p = {"seconds", point - 1};
  } else if (t < 3600 || maxUnit == 1) {
    p.unit = "minutes";
  } else if (t < 86400 || maxUnit == 2) {
    p.unit = "hours";
  } else if (t < 2592000 || maxUnit == 3) {
    p.unit = "days";
  } else if (t < 31536000 || maxUnit == 4) {
    p = {"months", point + 1};
  } else {
    p = {"years", point + 1};
  }
  p.point = std::max(p.point, 0);
  return p;
}

float convertSecondsTo(float seconds, const std::string& unit) {
  return seconds / static_cast<float>(timeUnit(unit).seconds);
}

std::string fmtTimeSpan(int minDigits, int point, bool shortForm, bool inTime, int maxUnit,
                        float seconds) {
  const int64_t whole = truncateSeconds(seconds);
  const TimePeriod period = optimalPeriod(whole, point, maxUnit);
  const TimeUnit& unit = timeUnit(period.unit);
  float x = convertSecondsTo(static_cast<float>(whole), period.unit);
  if (period.point == 0) x = std::round(x);
  const std::string number = formatNumber(x, minDigits, period.point);
  if (shortForm) return number + unit.shortSuffix;
  std::string text = number + " " + unit.word;
  if (number != "1") text += "s";
  if (inTime) text += "<!--after-->";
  return text;
}

}  // namespace rivo
