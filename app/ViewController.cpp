#include "app/ViewController.h"

#include <atomic>

#include "app/NavigationController.h"

namespace rivo {

namespace {
std::atomic<uint64_t> gNextScreenId{1};
}  // namespace

ViewController::ViewController() : _screenId(gNextScreenId++) {}

void ViewController::renewScreenId() {
  _screenId = gNextScreenId++;
}

void ViewController::setNeedsDisplay() {
  if (_nc) _nc->display(*this);
}

}  // namespace rivo
