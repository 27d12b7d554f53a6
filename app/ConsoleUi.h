#pragma once
// The Ui of the command line. Alerts and popups go to standard error, so that standard output
// carries only a command's result. Questions read y/n from standard input and are answered
// "no" when nobody can answer (input not a terminal, or at its end). Spinner text is written
// once per change, and only to a terminal.

#include <cstdio>
#include <string>

#include "app/Ui.h"

namespace rivo {

class ConsoleUi : public Ui {
 public:
  // Standard input and error; whether they are terminals is asked of the system.
  ConsoleUi();
  ConsoleUi(std::FILE* in, std::FILE* err, bool interactive, bool errIsTerminal);

  void showAlert(const std::string& title, const std::string& text) override;
  void askQuestion(const std::string& title, const std::string& text,
                   const std::string& cancelButton, const std::string& otherButton,
                   std::function<void(int buttonIndex)> answered) override;
  void showPopupView(const std::string& text, bool activity) override;
  void setPopupText(const std::string& text) override;
  void hidePopupView() override;

 private:
  void _spinnerLine(const std::string& text);

  std::FILE* _in;
  std::FILE* _err;
  bool _interactive;
  bool _errIsTerminal;
  bool _popupShown = false;
  std::string _lastSpinnerText;
};

}  // namespace rivo
