#pragma once
// Decides which card comes next and what an answer does; keeps the calendar of study days.

#include <cstdint>
#include <memory>
#include <vector>

#include "librivo/Card.h"

namespace rivo {

class Col;

class Scheduler {
 public:
  explicit Scheduler(Col& col);

  void reset();
  void unburyCards();
  void _updateCutoff();
  void _checkDay();

  int64_t today() const { return _today; }
  int64_t dayCutOff() const { return _dayCutOff; }

  // Cards to serve before any queue: the last pushed is served first.
  std::vector<Card>& undoQueue() { return _undoQueue; }

 private:
  Col& _col;
  int64_t _today = 0;
  bool _haveToday = false;
  int64_t _dayCutOff = 0;
  std::vector<Card> _undoQueue;
};

}  // namespace rivo
