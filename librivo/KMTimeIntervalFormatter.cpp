#include "librivo/KMTimeIntervalFormatter.h"

#include <cmath>

namespace rivo {

namespace {

// A "0" before values below 10.
std::string twoDigits(long value) {
  std::string text = value < 10 ? "0" : "";
  return text += std::to_string(value);
}

}  // namespace

std::string KMTimeIntervalFormatter::stringForObjectValue(double seconds) const {
  const long total = std::lround(seconds);
  const long hours = total / 3600;
  const long rest = total % 3600;
  if (style == 0) return _words(hours, rest);
  if (style == 1) return _clock(hours, rest);
  return {};
}

std::string KMTimeIntervalFormatter::_words(long hours, long rest) const {
  std::string text;
  auto add = [&text](std::string piece) {
    if (!text.empty()) text += ' ';
    text += piece;
  };
  const long minutes = rest / 60;
  const long secs = rest % 60;
  if (hours >= 1) add(std::to_string(hours) + " h");
  if (rest >= 60 && rest < 120)
    add(std::to_string(minutes) + " min");
  else if (rest >= 120)
    add(std::to_string(minutes) + " mins");
  if (secs == 1)
    add("1 sec");
  else if (secs > 1)
    add(std::to_string(secs) + " secs");
  return text.empty() ? "0 secs" : text;
}

std::string KMTimeIntervalFormatter::_clock(long hours, long rest) const {
  std::string minutes = rest < 600 ? "0" : "";
  minutes += std::to_string(rest / 60);
  const std::string mmss = minutes + ":" + twoDigits(rest % 60);
  if (hours < 1) return mmss;
  return twoDigits(hours) + ":" + mmss;
}

}  // namespace rivo
