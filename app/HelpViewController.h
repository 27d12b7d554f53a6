#pragma once
// The manual, a page of the program's resources shown in a web view. Links to other
// pages open in the user's browser; links within the page stay. Main loop only.

#include <memory>

#include "app/ViewController.h"
#include "app/WebView.h"

namespace rivo {

class Ui;

class HelpViewController : public ViewController, private WebView::Delegate {
 public:
  explicit HelpViewController(Ui& ui);

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;

  WebView& webView() { return *_webView; }

 private:
  bool shouldStartLoad(WebView& view, const std::string& url,
                       WebView::NavigationType type) override;

  std::unique_ptr<WebView> _webView;
  bool _loaded = false;
};

}  // namespace rivo
