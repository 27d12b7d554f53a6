#pragma once
// The navigation stack: the root screen (the deck list) and what was pushed over it. Only the
// top screen is shown; the page's events reach it through dispatch(). Main loop only.

#include <cstdint>
#include <memory>
#include <vector>

#include "app/ViewController.h"

namespace rivo {

class Ui;

class NavigationController {
 public:
  explicit NavigationController(Ui& ui) : _ui(ui) {}
  NavigationController(const NavigationController&) = delete;
  NavigationController& operator=(const NavigationController&) = delete;

  void setRoot(std::shared_ptr<ViewController> root);
  void push(std::shared_ptr<ViewController> vc);
  void pop();
  void popToRoot();
  // Pops the screens above `vc`; nothing when it isn't on the stack.
  void popTo(ViewController* vc);

  ViewController* top() const { return _stack.empty() ? nullptr : _stack.back().get(); }
  ViewController* root() const { return _stack.empty() ? nullptr : _stack.front().get(); }
  size_t depth() const { return _stack.size(); }

  // Sends `vc`'s description when it is on top.
  void display(ViewController& vc);
  // The page's report of an event on screen `screenId`. "back" pops, unless the screen is
  // modal; anything else goes to the top screen. False (and nothing done) when that screen
  // isn't on top any more.
  bool dispatch(uint64_t screenId, const ViewController::Event& event);

 private:
  void _show();

  Ui& _ui;
  bool _modalOnTop = false;  // the top screen, as last shown, has no way back
  std::vector<std::shared_ptr<ViewController>> _stack;
};

}  // namespace rivo
