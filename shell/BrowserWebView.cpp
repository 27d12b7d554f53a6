#include "shell/BrowserWebView.h"

#include "shell/BrowserBridge.h"

namespace rivo {

BrowserWebView::~BrowserWebView() {
  _bridge._forgetWebView(*this);
}

void BrowserWebView::loadHTMLString(const std::string& html, const std::string& baseUrl) {
  _bridge._loadWebPage(*this, html, baseUrl);
}

std::string BrowserWebView::evaluateJavaScript(const std::string& script) {
  return _bridge._evaluate(*this, script);
}

void BrowserWebView::runJavaScript(const std::string& script) {
  _bridge._run(*this, script);
}

}  // namespace rivo
