#pragma once
// One screen's logic: it describes itself as a Screen and acts on what the user did there.
// Lives on the main loop only; shown through the NavigationController that holds it.

#include <cstdint>
#include <string>

#include "app/Screen.h"
#include "librivo/Json.h"

namespace rivo {

class NavigationController;

class ViewController {
 public:
  // What the user did: on `element` ("row", "button", "title", "refresh"), the row or button
  // `id`, as `kind` ("select", "toggle", "delete", "menu"), with an optional value.
  struct Event {
    std::string element;
    std::string id;
    std::string kind;
    Json value;
  };

  ViewController();
  virtual ~ViewController() = default;
  ViewController(const ViewController&) = delete;
  ViewController& operator=(const ViewController&) = delete;

  virtual Screen describe() = 0;
  // False for an event that no longer fits what is shown (a row that is gone): nothing done.
  virtual bool handle(const Event& event) = 0;
  virtual void viewWillAppear() {}
  virtual void viewWillDisappear() {}

  // Unique in this run, so an event meant for an earlier screen can't reach a later one.
  uint64_t screenId() const { return _screenId; }
  // Null while not on a stack.
  NavigationController* navigationController() const { return _nc; }
  // Sends the description again if this screen is on top.
  void setNeedsDisplay();

 protected:
  // For a screen whose rows change meaning (a line removed shifts those below it): events
  // aimed at the rows as they were, from a tab that hasn't caught up, are then refused.
  void renewScreenId();

 private:
  friend class NavigationController;
  uint64_t _screenId;
  NavigationController* _nc = nullptr;
  std::string _shownTitle;
};

}  // namespace rivo
