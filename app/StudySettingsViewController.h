#pragma once
// The Tools screen of the review screen: the study options, the card text's scale (stored
// when the screen goes) and the twelve action buttons "button1" to "button12" of the
// preferences. Main loop only.

#include <string>

#include "app/ViewController.h"

namespace rivo {

class AppDelegate;

class StudySettingsViewController : public ViewController {
 public:
  explicit StudySettingsViewController(AppDelegate& app);

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillDisappear() override;

  float fontScale() const { return _fontScale; }

 private:
  AppDelegate& _app;
  float _fontScale = 1;
};

}  // namespace rivo
