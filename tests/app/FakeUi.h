#pragma once
// A Ui that records what it was asked to show, and keeps questions for the test to answer.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/AudioPlayer.h"
#include "app/Ui.h"
#include "app/WebView.h"

namespace rivo::test {

class FakeAudioPlayer : public AudioPlayer {
 public:
  explicit FakeAudioPlayer(std::vector<std::string>& played) : _played(played) {}
  void play(const std::string& url, bool explicitlyTriggered) override {
    _played.push_back(url + (explicitlyTriggered ? " (asked)" : ""));
  }
  void stop() override { _played.push_back("stop"); }
  // The sound playing now ends.
  void finish() { delegate()->audioPlayerDidFinishPlaying(*this, true); }

 private:
  std::vector<std::string>& _played;
};

class FakeWebView : public WebView {
 public:
  void loadHTMLString(const std::string& html, const std::string& base) override {
    loaded = html;
    baseUrl = base;
  }
  // The page's answer to the load: what the frame does once it has booted.
  void finishLoad() { delegate()->didFinishLoad(*this); }
  bool navigate(const std::string& url, NavigationType type = NavigationType::linkClicked) {
    return delegate()->shouldStartLoad(*this, url, type);
  }
  std::string evaluateJavaScript(const std::string& script) override {
    scripts.push_back(script);
    return answer ? answer(script) : "";
  }
  // The page's answer to a script; none by default.
  std::function<std::string(const std::string&)> answer;
  std::string id() const override { return "w1"; }
  std::string loaded, baseUrl;
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
  std::unique_ptr<WebView> makeWebView() override {
    auto view = std::make_unique<FakeWebView>();
    webView = view.get();
    return view;
  }
  std::string baseUrlForFolder(const std::string&) override { return "/m/t/"; }
  std::string resourceBaseUrl() override { return "/r/t/"; }
  std::unique_ptr<AudioPlayer> makeAudioPlayer() override {
    auto player = std::make_unique<FakeAudioPlayer>(played);
    audioPlayer = player.get();
    return player;
  }
  void openURL(const std::string& url) override { events.push_back("open:" + url); }
  void offerDownload(const std::string& path, const std::string& name) override {
    events.push_back("download:" + name + "|" + path);
  }

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
  FakeWebView* webView = nullptr;  // the last made
  FakeAudioPlayer* audioPlayer = nullptr;
  std::vector<std::string> played;
  int screensShown = 0;
};

}  // namespace rivo::test
