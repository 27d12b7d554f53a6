#pragma once
// The small report on one card that "Card Info" shows: an HTML table of its dates, interval,
// ease, counts and where it lives. Holds references to the Col and the Card, which outlive
// it. One thread at a time, as any reader of the collection.

#include <cstdint>
#include <string>

namespace rivo {

class Card;
class Col;

class CardStats {
 public:
  CardStats(Col& col, Card& card) : _col(col), _card(card) {}

  // The table, rebuilt on each call.
  std::string report();

  void addLine(const std::string& value, const std::string& key);
  static std::string makeLine(const std::string& value, const std::string& key);
  // "2026-1-5": the local date of epoch seconds, without leading zeros.
  static std::string dateForTime(int64_t seconds);
  // "2m3s", "0s": a duration in seconds, short.
  static std::string timeForTime(int64_t seconds);

 private:
  Col& _col;
  Card& _card;
  std::string _txt;
};

}  // namespace rivo
