#include "app/DeckStatsViewController.h"

#include "app/AppDelegate.h"
#include "app/ProfileManager.h"
#include "app/Ui.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/stats/CollectionStats.h"
#include "librivo/stats/RivoJS.h"

namespace rivo {

namespace {

const char* const kPeriods[] = {"1 Month", "1 Year", "Life"};

}  // namespace

DeckStatsViewController::DeckStatsViewController(AppDelegate& app)
    : _app(app), _webView(app.ui().makeWebView()) {
  _webView->setDelegate(this);
}

Screen DeckStatsViewController::describe() {
  Screen s;
  s.title = _title.empty() ? "Statistics" : _title;
  s.webView = _webView->id();
  std::vector<Screen::Button> scope = {{"deck", "Deck"}, {"all", "All"}};
  scope[_whole ? 1 : 0].selected = true;
  std::vector<Screen::Button> period;
  for (int i = 0; i < 3; ++i) period.push_back({"period" + std::to_string(i), kPeriods[i]});
  period[static_cast<size_t>(_period)].selected = true;
  s.controls = {scope, period};
  s.keys = {{"d", "deck", "Deck"},
            {"a", "all", "All"},
            {"m", "period0", "1 Month"},
            {"y", "period1", "1 Year"},
            {"l", "period2", "Life"}};
  return s;
}

bool DeckStatsViewController::handle(const Event& e) {
  if (e.element != "segment" && e.element != "key") return false;
  if (e.id == "deck" || e.id == "all") {
    _whole = e.id == "all";
    _app.pm().setBool(_whole, "statsForWholeCollection");
  } else if (e.id.size() == 7 && e.id.rfind("period", 0) == 0 && e.id[6] >= '0' && e.id[6] <= '2') {
    _period = e.id[6] - '0';
    _app.pm().setInteger(_period, "statsPeriod");
  } else {
    return false;
  }
  setNeedsDisplay();
  loadStats();
  return true;
}

void DeckStatsViewController::viewWillAppear() {
  if (!_loaded) loadStats();
}

void DeckStatsViewController::loadStats() {
  const bool whole = _whole;
  const int period = _period;
  _app.doWork(
      "Loading...",
      [this, whole, period] {
        CollectionStats stats(*_app.col(), 260, 100);
        stats.wholeCollection = whole;
        _page = stats.reportOfType(period);
      },
      [this, whole] {
        if (_loaded) _scrollY = _webView->evaluateJavaScript("String(window.scrollY)");
        const Json* deck = _app.col()->decks().current();
        _title = whole || !deck ? "Collection" : jsonText(*deck, "name");
        // An empty head first, so that the page's base (the scripts' folder) and its own
        // script come before the chart scripts the report names.
        const std::string base = RivoJS::jQuery().substr(0, RivoJS::jQuery().rfind('/') + 1);
        _webView->loadHTMLString(
            std::string("<head>") + CollectionStats::kWideStyle + "</head>" + _page,
            _app.ui().resourceBaseUrl() + base);
        _page.clear();
        _loaded = true;
        setNeedsDisplay();
      });
}

void DeckStatsViewController::didFinishLoad(WebView& view) {
  (void)view;
  if (_scrollY.empty() || _scrollY == "0") return;
  bool digits = _scrollY.find_first_not_of("0123456789.") == std::string::npos;
  if (digits) _webView->runJavaScript("window.scrollTo(0, " + _scrollY + ")");
}

bool DeckStatsViewController::shouldStartLoad(WebView& view, const std::string& url,
                                              WebView::NavigationType type) {
  (void)view, (void)url, (void)type;
  // The page has no links of its own.
  return false;
}

}  // namespace rivo
