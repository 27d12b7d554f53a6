#pragma once
// "All Actions": every study action that has no control of its own, by long name; a row
// runs its action. Main loop only.

#include <string>
#include <vector>

#include "app/ViewController.h"

namespace rivo {

class AppDelegate;

class AllActionsViewController : public ViewController {
 public:
  explicit AllActionsViewController(AppDelegate& app);

  Screen describe() override;
  bool handle(const Event& event) override;

  // The keys listed, in the order shown.
  const std::vector<std::string>& keys() const { return _keys; }

 private:
  AppDelegate& _app;
  std::vector<std::string> _keys;
};

}  // namespace rivo
