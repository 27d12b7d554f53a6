#pragma once
// What the application needs of a screen: alerts, yes/no questions and the popup box that
// serves both brief messages and the spinner. Rules about when these show (nesting of
// spinners, popups dropped during a job) live in AppDelegate; a Ui only draws. Every call
// comes on the main loop, and callbacks must be made there too.

#include <functional>
#include <string>

namespace rivo {

class Ui {
 public:
  virtual ~Ui() = default;

  // An alert with one "OK" button and nothing to call back. `title` may be empty.
  virtual void showAlert(const std::string& title, const std::string& text) = 0;

  // A question with two buttons; `answered` gets the index of the one pressed (0 for the
  // cancel button). It may be called before this returns.
  virtual void askQuestion(const std::string& title, const std::string& text,
                           const std::string& cancelButton, const std::string& otherButton,
                           std::function<void(int buttonIndex)> answered) = 0;

  // The popup box: created with or without an activity indicator; while it exists the user
  // interface ignores input. At most one exists at a time.
  virtual void showPopupView(const std::string& text, bool activity) = 0;
  virtual void setPopupText(const std::string& text) = 0;
  virtual void hidePopupView() = 0;
};

}  // namespace rivo
