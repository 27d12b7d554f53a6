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
  // Text questions and action sheets are cancelled: the command line asks by its options.
  void askText(const std::string& title, const std::string& text, std::vector<TextField> fields,
               const std::string& cancelButton, const std::string& otherButton,
               std::function<void(int, std::vector<std::string>)> answered) override;
  void showActionSheet(const std::string& title, const std::vector<std::string>& buttons,
                       const std::string& cancelButton, std::function<void(int)> chosen) override;
  void showPopupView(const std::string& text, bool activity) override;
  void setPopupText(const std::string& text) override;
  void hidePopupView() override;
  // No screens: the command line prints results instead.
  void showScreen(const Json& screen) override { (void)screen; }
  std::unique_ptr<WebView> makeWebView() override;

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
