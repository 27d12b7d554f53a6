#pragma once
// Shows one card of a note being edited, question first, in the same card page as the review
// screen; "Flip" turns it. Sounds play as the deck's autoplay says; links other than sounds
// open outside. When the note is being added, leaving rolls back whatever the preview wrote.
// Main loop only.

#include <memory>
#include <string>

#include "app/ViewController.h"
#include "app/WebView.h"

namespace rivo {

class AppDelegate;
class Card;
class HTMLAudioPlayer;

class PreviewController : public ViewController, private WebView::Delegate {
 public:
  enum State { kQuestion, kAnswer };

  PreviewController(AppDelegate& app, std::unique_ptr<Card> card, bool adding);
  ~PreviewController() override;

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;
  void viewWillDisappear() override;

  void flip();
  State state() const { return _state; }
  WebView* webView() const { return _webview.get(); }

 private:
  void didFinishLoad(WebView& view) override;
  bool shouldStartLoad(WebView& view, const std::string& url,
                       WebView::NavigationType type) override;
  void _show();

  AppDelegate& _app;
  std::unique_ptr<WebView> _webview;
  std::unique_ptr<Card> _card;
  bool _adding;
  std::unique_ptr<HTMLAudioPlayer> _audioPlayer;
  State _state = kQuestion;
  std::string _baseDir;
};

}  // namespace rivo
