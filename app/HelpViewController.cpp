#include "app/HelpViewController.h"

#include "app/Resources.h"
#include "app/Ui.h"

namespace rivo {

HelpViewController::HelpViewController(Ui& ui) : _webView(ui.makeWebView()) {
  _webView->setDelegate(this);
}

Screen HelpViewController::describe() {
  Screen s;
  s.title = "Help";
  s.webView = _webView->id();
  return s;
}

bool HelpViewController::handle(const Event& event) {
  (void)event;
  return false;
}

void HelpViewController::viewWillAppear() {
  if (_loaded) return;
  auto page = Resources::get("help/index.html");
  _webView->loadHTMLString(page ? std::string(*page) : "<p>The manual is missing.</p>", "");
  _loaded = true;
}

bool HelpViewController::shouldStartLoad(WebView& view, const std::string& url,
                                         WebView::NavigationType type) {
  (void)view, (void)type;
  // Anchors within the manual; nothing else is loaded into it.
  return !url.empty() && url[0] == '#';
}

}  // namespace rivo
