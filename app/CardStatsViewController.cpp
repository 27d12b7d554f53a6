#include "app/CardStatsViewController.h"

#include "app/AppDelegate.h"
#include "app/Resources.h"
#include "app/Ui.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/stats/CardStats.h"

namespace rivo {

CardStatsViewController::CardStatsViewController(AppDelegate& app, Id cardId)
    : _app(app), _cardId(cardId), _webView(app.ui().makeWebView()) {
  _webView->setDelegate(this);
  loadStats();
}

Screen CardStatsViewController::describe() {
  Screen s;
  s.title = "Card Info";
  s.webView = _webView->id();
  return s;
}

bool CardStatsViewController::handle(const Event& event) {
  (void)event;
  return false;
}

void CardStatsViewController::loadStats() {
  Card card(*_app.col(), _cardId);
  auto style = Resources::get("stats/cardInfo.html");
  // The closing tags in this order, as the page has always been written.
  _webView->loadHTMLString("<html><head>" + std::string(style ? *style : "") + "</head><body>" +
                               CardStats(*_app.col(), card).report() + "</html></body>",
                           "");
}

bool CardStatsViewController::shouldStartLoad(WebView& view, const std::string& url,
                                              WebView::NavigationType type) {
  (void)view, (void)url, (void)type;
  return false;
}

}  // namespace rivo
