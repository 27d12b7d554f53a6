#pragma once
// Turns SIGINT and SIGTERM into a call on an ordinary thread. The signal handler only writes
// the signal's number to a pipe; a thread reads it and calls the handler, which is free to
// do anything (usually: post the termination to the main loop). One watcher at a time.

#include <signal.h>

#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace rivo {

class SignalWatcher {
 public:
  using Handler = std::function<void(int signo)>;

  // Installs the handlers. After the first signal the default action is restored, so a
  // second Ctrl-C ends a program whose shutdown hangs.
  SignalWatcher(std::vector<int> signals, Handler handler);
  // Restores the previous dispositions and stops the thread.
  ~SignalWatcher();
  SignalWatcher(const SignalWatcher&) = delete;
  SignalWatcher& operator=(const SignalWatcher&) = delete;

 private:
  void _loop();
  void _restore();

  std::vector<int> _signals;
  std::vector<struct sigaction> _previous;
  // Guards `_restored` (and the restoring of `_previous`), which the watcher's thread and the
  // destructor may both reach.
  std::mutex _m;
  bool _restored = false;
  Handler _handler;
  int _pipe[2] = {-1, -1};
  std::thread _thread;
};

}  // namespace rivo
