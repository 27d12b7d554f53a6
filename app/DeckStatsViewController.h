#pragma once
// The statistics screen: the report of the active decks or the whole collection over a month,
// a year or the deck's life, in a web view under two segmented controls. The report is made
// on the work queue under the spinner; the page loads with the chart scripts' folder as its
// base. Main loop only; the report's text passes from the job to the main loop in `_page`,
// which only the job writes while it runs and only its main block reads.

#include <memory>
#include <string>

#include "app/ViewController.h"
#include "app/WebView.h"

namespace rivo {

class AppDelegate;

class DeckStatsViewController : public ViewController, private WebView::Delegate {
 public:
  explicit DeckStatsViewController(AppDelegate& app);

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;

  // Makes the report in the background and shows it.
  void loadStats();

  bool wholeCollection() const { return _whole; }
  int period() const { return _period; }
  WebView& webView() { return *_webView; }

 private:
  void didFinishLoad(WebView& view) override;
  bool shouldStartLoad(WebView& view, const std::string& url,
                       WebView::NavigationType type) override;

  AppDelegate& _app;
  std::unique_ptr<WebView> _webView;
  // Always starts on "Deck" and "1 Month": the stored choices aren't read back.
  bool _whole = false;
  int _period = 0;
  std::string _title;
  std::string _page;
  bool _loaded = false;
  std::string _scrollY;
};

}  // namespace rivo
