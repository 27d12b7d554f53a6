#pragma once
// Formats a duration in seconds for the option rows that show a time.

#include <string>

namespace rivo {

class KMTimeIntervalFormatter {
 public:
  // 0: "1 h 2 mins 3 secs"; 1: "mm:ss" below an hour, else "hh:mm:ss"; anything else: "".
  int style = 1;

  std::string stringForObjectValue(double seconds) const;

 private:
  std::string _words(long hours, long rest) const;
  std::string _clock(long hours, long rest) const;
};

}  // namespace rivo
