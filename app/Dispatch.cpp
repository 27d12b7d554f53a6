#include "app/Dispatch.h"

#include <algorithm>
#include <chrono>
#include <exception>

namespace rivo {

namespace {
unsigned poolSize() {
  return std::clamp(std::thread::hardware_concurrency(), 2u, 8u);
}
}  // namespace

Dispatch::Dispatch() : _work("work"), _global("global", poolSize()) {
  auto toMain = [this](std::exception_ptr error) {
    _main.post([error] { std::rethrow_exception(error); });
  };
  _work.setErrorHandler(toMain);
  _global.setErrorHandler(toMain);
}

Dispatch::~Dispatch() {
  shutdown();
}

void Dispatch::shutdown() {
  if (_shutDown) return;
  _shutDown = true;
  _work.close(true);
  _global.close(true);
  // A running job may be waiting for its main block: keep serving the loop until it ends.
  while (_work.busy() || _global.busy()) {
    try {
      _main.runPending(false);
    } catch (...) {
      // The program is ending; a late failure has nowhere left to go.
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  _work.join();
  _global.join();
  _main.stop();
}

}  // namespace rivo
