#include "app/SignalWatcher.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace rivo {

namespace {

// The write end of the current watcher's pipe; -1 when none is installed.
std::atomic<int> gWriteFd{-1};

extern "C" void onSignal(int signo) {
  int saved = errno;
  int fd = gWriteFd.load();
  if (fd >= 0) {
    unsigned char byte = static_cast<unsigned char>(signo);
    // Nothing else is safe here. A full pipe means a signal is already waiting to be read.
    [[maybe_unused]] ssize_t written = ::write(fd, &byte, 1);
  }
  errno = saved;
}

constexpr unsigned char kStop = 0;

}  // namespace

SignalWatcher::SignalWatcher(std::vector<int> signals, Handler handler)
    : _signals(std::move(signals)), _handler(std::move(handler)) {
  if (::pipe2(_pipe, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  ::fcntl(_pipe[1], F_SETFL, O_NONBLOCK);
  int expected = -1;
  if (!gWriteFd.compare_exchange_strong(expected, _pipe[1])) {
    ::close(_pipe[0]);
    ::close(_pipe[1]);
    throw std::logic_error("a signal watcher is already installed");
  }
  _thread = std::thread([this] { _loop(); });
  struct sigaction action {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (int signo : _signals) {
    struct sigaction old {};
    ::sigaction(signo, &action, &old);
    _previous.push_back(old);
  }
}

SignalWatcher::~SignalWatcher() {
  _restore();
  gWriteFd.store(-1);
  unsigned char stop = kStop;
  while (::write(_pipe[1], &stop, 1) < 0 && errno == EINTR) {
  }
  if (_thread.joinable()) _thread.join();
  ::close(_pipe[0]);
  ::close(_pipe[1]);
}

void SignalWatcher::_restore() {
  std::lock_guard lock(_m);
  if (_restored) return;
  _restored = true;
  for (size_t i = 0; i < _signals.size(); ++i) ::sigaction(_signals[i], &_previous[i], nullptr);
}

void SignalWatcher::_loop() {
  for (;;) {
    unsigned char byte = 0;
    ssize_t n = ::read(_pipe[0], &byte, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0 || byte == kStop) return;
    {
      std::lock_guard lock(_m);
      if (!_restored) {
        struct sigaction fallback {};
        fallback.sa_handler = SIG_DFL;
        sigemptyset(&fallback.sa_mask);
        for (int signo : _signals) ::sigaction(signo, &fallback, nullptr);
      }
    }
    _handler(byte);
  }
}

}  // namespace rivo
