#pragma once
// A Ui that records what it was asked to show, and keeps questions for the test to answer.

#include <functional>
#include <string>
#include <vector>

#include "app/Ui.h"

namespace rivo::test {

class FakeUi : public Ui {
 public:
  void showAlert(const std::string& title, const std::string& text) override {
    events.push_back("alert:" + title + "|" + text);
  }
  void askQuestion(const std::string& title, const std::string& text, const std::string& cancel,
                   const std::string& other, std::function<void(int)> answered) override {
    events.push_back("ask:" + title + "|" + text + "|" + cancel + "|" + other);
    answers.push_back(std::move(answered));
  }
  void showPopupView(const std::string& text, bool activity) override {
    events.push_back((activity ? "spinner:" : "popup:") + text);
    shown = true;
  }
  void setPopupText(const std::string& text) override { events.push_back("text:" + text); }
  void hidePopupView() override {
    events.push_back("hide");
    shown = false;
  }

  std::vector<std::string> events;
  std::vector<std::function<void(int)>> answers;  // one per question asked
  bool shown = false;
};

}  // namespace rivo::test
