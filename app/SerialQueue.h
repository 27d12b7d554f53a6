#pragma once
// One background thread running tasks strictly one after another, in the order queued.

#include <string>
#include <utility>

#include "app/WorkerPool.h"

namespace rivo {

// A pool of one: its single thread takes the tasks in order, so they never overlap.
class SerialQueue : public WorkerPool {
 public:
  // `label` names the thread (as seen in a debugger or `ps -L`).
  explicit SerialQueue(std::string label) : WorkerPool(std::move(label), 1) {}
};

}  // namespace rivo
