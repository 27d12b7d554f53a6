#include "app/NavigationController.h"

#include <algorithm>

#include "app/Ui.h"

namespace rivo {

void NavigationController::setRoot(std::shared_ptr<ViewController> root) {
  while (!_stack.empty()) {
    _stack.back()->viewWillDisappear();
    _stack.back()->_nc = nullptr;
    _stack.pop_back();
  }
  push(std::move(root));
}

void NavigationController::push(std::shared_ptr<ViewController> vc) {
  if (!_stack.empty()) _stack.back()->viewWillDisappear();
  vc->_nc = this;
  _stack.push_back(std::move(vc));
  _stack.back()->viewWillAppear();
  _show();
}

void NavigationController::pop() {
  if (_stack.size() <= 1) return;
  // Kept alive until the end of this call: it may be the caller.
  std::shared_ptr<ViewController> gone = _stack.back();
  gone->viewWillDisappear();
  gone->_nc = nullptr;
  _stack.pop_back();
  _stack.back()->viewWillAppear();
  _show();
}

void NavigationController::popToRoot() {
  if (_stack.size() <= 1) return;
  std::vector<std::shared_ptr<ViewController>> gone(_stack.begin() + 1, _stack.end());
  gone.back()->viewWillDisappear();
  for (auto& vc : gone) vc->_nc = nullptr;
  _stack.resize(1);
  _stack.back()->viewWillAppear();
  _show();
}

void NavigationController::popTo(ViewController* vc) {
  auto it =
      std::find_if(_stack.begin(), _stack.end(), [vc](const auto& p) { return p.get() == vc; });
  if (it == _stack.end() || it + 1 == _stack.end()) return;
  std::vector<std::shared_ptr<ViewController>> gone(it + 1, _stack.end());
  gone.back()->viewWillDisappear();
  for (auto& v : gone) v->_nc = nullptr;
  _stack.erase(it + 1, _stack.end());
  _stack.back()->viewWillAppear();
  _show();
}

void NavigationController::display(ViewController& vc) {
  if (top() == &vc) _show();
}

bool NavigationController::dispatch(uint64_t screenId, const ViewController::Event& event) {
  if (_stack.empty() || _stack.back()->screenId() != screenId) return false;
  if (event.element == "back") {
    if (_stack.size() <= 1 || _modalOnTop) return false;
    pop();
    return true;
  }
  std::shared_ptr<ViewController> target = _stack.back();
  return target->handle(event);
}

void NavigationController::_show() {
  ViewController& vc = *_stack.back();
  Screen described = vc.describe();
  vc._shownTitle = described.title;
  _modalOnTop = described.modal;
  Json screen = described.toJson();
  screen["id"] = vc.screenId();
  if (_stack.size() > 1 && !described.modal && !described.hidesBackButton) {
    // The back button names the screen it returns to, as it was last shown.
    const std::string& below = _stack[_stack.size() - 2]->_shownTitle;
    screen["back"] = below.empty() ? "Back" : below;
  }
  _ui.showScreen(screen);
}

}  // namespace rivo
