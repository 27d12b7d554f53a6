#pragma once
// "Card Info": the table of one card's dates, interval, ease and counts in a web view, styled
// by the resource "stats/cardInfo.html". The card is read when the screen is made. Main loop
// only.

#include <memory>

#include "app/ViewController.h"
#include "app/WebView.h"
#include "librivo/Value.h"

namespace rivo {

class AppDelegate;

class CardStatsViewController : public ViewController, private WebView::Delegate {
 public:
  CardStatsViewController(AppDelegate& app, Id cardId);

  Screen describe() override;
  bool handle(const Event& event) override;

  void loadStats();

  WebView& webView() { return *_webView; }

 private:
  bool shouldStartLoad(WebView& view, const std::string& url,
                       WebView::NavigationType type) override;

  AppDelegate& _app;
  Id _cardId;
  std::unique_ptr<WebView> _webView;
};

}  // namespace rivo
