#pragma once
// The program's threads: the main loop, the serial work queue labelled "work", and a pool
// for work beside it. An exception escaping any background task comes out of the main
// loop's run(), so it ends the program the same way wherever it was raised.

#include <memory>

#include "app/MainLoop.h"
#include "app/SerialQueue.h"
#include "app/WorkerPool.h"

namespace rivo {

class Dispatch {
 public:
  Dispatch();
  // Shuts down if that hasn't happened yet.
  ~Dispatch();
  Dispatch(const Dispatch&) = delete;
  Dispatch& operator=(const Dispatch&) = delete;

  MainLoop& main() { return _main; }
  SerialQueue& work() { return _work; }
  WorkerPool& global() { return _global; }

  // On the main thread, once the loop has stopped running: discards queued background
  // tasks, lets the running ones finish while still serving their calls to the main loop,
  // joins the threads, then stops the main loop. Idempotent.
  void shutdown();

 private:
  MainLoop _main;
  SerialQueue _work;
  WorkerPool _global;
  bool _shutDown = false;
};

}  // namespace rivo
