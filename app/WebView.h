#pragma once
// A web page inside a screen: card faces, the editor, statistics, help. The page's scripts
// may be untrusted; they reach the program only through the delegate. Main loop only.

#include <cstdint>
#include <string>

namespace rivo {

class WebView {
 public:
  enum class NavigationType { linkClicked, formSubmitted, other };

  // A gesture over the page that its owner may act on. A swipe carries its direction
  // ("left", "right", "up", "down"), where it began across the view and the view's width; a
  // pinch, its speed (the change of scale per second; below 0 when shrinking).
  struct Gesture {
    std::string kind;  // "swipe" or "pinch"
    std::string direction;
    double x = 0;
    double width = 0;
    double velocity = 0;
  };

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
    virtual void didGesture(WebView& view, const Gesture& gesture) { (void)view, (void)gesture; }
    // The page misbehaved and was put back as it was loaded: a script kept it busy
    // ("unresponsive") or it tried to leave ("navigated"). didFinishLoad follows.
    virtual void didFail(WebView& view, const std::string& reason) { (void)view, (void)reason; }
  };

  virtual ~WebView() = default;

  // Replaces the page. `baseUrl` resolves the page's relative links (media).
  virtual void loadHTMLString(const std::string& html, const std::string& baseUrl) = 0;
  // Runs a script in the page and returns its result as text; "" when no page answers within
  // a short time.
  virtual std::string evaluateJavaScript(const std::string& script) = 0;
  // Runs a script in the page without waiting for it: scripts run in the order sent, also
  // among evaluateJavaScript's.
  virtual void runJavaScript(const std::string& script) { evaluateJavaScript(script); }
  // How screens name this view in their descriptions.
  virtual std::string id() const = 0;

  void setDelegate(Delegate* delegate) { _delegate = delegate; }
  Delegate* delegate() const { return _delegate; }

 private:
  Delegate* _delegate = nullptr;
};

}  // namespace rivo
