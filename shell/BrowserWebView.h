#pragma once
// A web view drawn by the browser front end: a sandboxed frame in every tab, fed through the
// bridge. Main loop only; the bridge must outlive it.

#include <string>

#include "app/WebView.h"

namespace rivo {

class BrowserBridge;

class BrowserWebView : public WebView {
 public:
  BrowserWebView(BrowserBridge& bridge, std::string id) : _bridge(bridge), _id(std::move(id)) {}
  ~BrowserWebView() override;

  void loadHTMLString(const std::string& html, const std::string& baseUrl) override;
  std::string evaluateJavaScript(const std::string& script) override;
  void runJavaScript(const std::string& script) override;
  std::string id() const override { return _id; }

 private:
  BrowserBridge& _bridge;
  std::string _id;
};

}  // namespace rivo
