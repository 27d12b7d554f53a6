#pragma once
// The wall clock every timestamp in the collection is read from; tests may pin it.

#include <functional>

namespace rivo {

class Clock {
 public:
  // Seconds since 1970 as a double: the real time, or the test override.
  static double now();

  // Replaces the clock while the object lives; tests use it to set time explicitly.
  class Override {
   public:
    explicit Override(double seconds);
    ~Override();
    Override(const Override&) = delete;
    Override& operator=(const Override&) = delete;
    void set(double seconds);
    void advance(double seconds);

   private:
    double _previous;
    bool _hadPrevious;
  };
};

// Current time times `scale`, truncated: intTime(1) is seconds, intTime(1000) milliseconds.
long long intTime(int scale = 1);

}  // namespace rivo
