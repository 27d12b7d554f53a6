#pragma once
// A web page inside a screen: card faces, the editor, statistics, help. The page's scripts
// may be untrusted; they reach the program only through the delegate. Main loop only.

#include <cstdint>
#include <string>

namespace rivo {

class WebView {
 public:
  enum class NavigationType { linkClicked, formSubmitted, other };

  // Told of the page's life; set by the screen that owns the web view, which outlives it.
  class Delegate {
   public:
    virtual ~Delegate() = default;
    virtual void didFinishLoad(WebView& view) { (void)view; }
    // A request of the page (a link, or one of the program's URL schemes). True lets a link
    // open; the program's own schemes are consumed here.
    virtual bool shouldStartLoad(WebView& view, const std::string& url, NavigationType type) {
      (void)view, (void)url, (void)type;
      return true;
    }
  };

  virtual ~WebView() = default;

  // Replaces the page. `baseUrl` resolves the page's relative links (media).
  virtual void loadHTMLString(const std::string& html, const std::string& baseUrl) = 0;
  // Runs a script in the page and returns its result as text; "" when no page answers within
  // a short time.
  virtual std::string evaluateJavaScript(const std::string& script) = 0;
  // How screens name this view in their descriptions.
  virtual std::string id() const = 0;

  void setDelegate(Delegate* delegate) { _delegate = delegate; }
  Delegate* delegate() const { return _delegate; }

 private:
  Delegate* _delegate = nullptr;
};

}  // namespace rivo
