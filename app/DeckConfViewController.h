#pragma once
// The two daily limits of the selected deck's option group: new cards and reviews a day.
// Filled when it appears, written back (with the deck and group saved) when it goes. Main
// loop only.

#include <string>

#include "app/ViewController.h"

namespace rivo {

class AppDelegate;

class DeckConfViewController : public ViewController {
 public:
  explicit DeckConfViewController(AppDelegate& app) : _app(app) {}

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;
  void viewWillDisappear() override;

  // The leading integer of a text, as a number field gives it ("12 cards" is 12; none is 0).
  static int64_t intValue(const std::string& text);

 private:
  AppDelegate& _app;
  std::string _deckName;
  std::string _newPerDay;
  std::string _revPerDay;
  bool _filled = false;
  bool _dyn = false;
};

}  // namespace rivo
