#pragma once
// A Ui that records what it was asked to show, and keeps questions for the test to answer.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/Ui.h"
#include "app/WebView.h"

namespace rivo::test {

class FakeWebView : public WebView {
 public:
  void loadHTMLString(const std::string& html, const std::string&) override { loaded = html; }
  std::string evaluateJavaScript(const std::string& script) override {
    scripts.push_back(script);
    return "";
  }
  std::string id() const override { return "w1"; }
  std::string loaded;
  std::vector<std::string> scripts;
};

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
  void askText(const std::string& title, const std::string& text, std::vector<TextField> fields,
               const std::string& cancel, const std::string& other,
               std::function<void(int, std::vector<std::string>)> answered) override {
    std::string e = "text:" + title + "|" + text;
    for (const auto& f : fields) e += "|[" + f.text + "]";
    events.push_back(e + "|" + cancel + "|" + other);
    textAnswers.push_back(std::move(answered));
  }
  void showActionSheet(const std::string& title, const std::vector<std::string>& buttons,
                       const std::string& cancel, std::function<void(int)> chosen) override {
    std::string e = "sheet:" + title;
    for (const auto& b : buttons) e += "|" + b;
    events.push_back(e + "|" + cancel);
    sheetAnswers.push_back(std::move(chosen));
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
  void showScreen(const Json& s) override {
    screen = s;
    ++screensShown;
  }
  std::unique_ptr<WebView> makeWebView() override { return std::make_unique<FakeWebView>(); }

  // Answers the last text question with the OK button and this text.
  void type(const std::string& text) {
    auto answer = std::move(textAnswers.back());
    textAnswers.pop_back();
    answer(1, {text});
  }

  std::vector<std::string> events;
  std::vector<std::function<void(int)>> answers;  // one per question asked
  std::vector<std::function<void(int, std::vector<std::string>)>> textAnswers;
  std::vector<std::function<void(int)>> sheetAnswers;
  bool shown = false;
  Json screen;
  int screensShown = 0;
};

}  // namespace rivo::test
