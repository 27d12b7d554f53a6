#include "app/PreviewController.h"

#include <unicode/regex.h>

#include "app/AppDelegate.h"
#include "app/HTMLAudioPlayer.h"
#include "app/ProfileManager.h"
#include "app/Resources.h"
#include "app/Ui.h"
#include "app/UrlText.h"
#include "librivo/Card.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/FieldText.h"
#include "librivo/MediaManager.h"

namespace rivo {

namespace {

std::string withoutTypeTags(const std::string& html) {
  UErrorCode status = U_ZERO_ERROR;
  static const icu::UnicodeString pattern = icu::UnicodeString::fromUTF8("\\[\\[type:(.+?)\\]\\]");
  const icu::UnicodeString input = icu::UnicodeString::fromUTF8(html);
  icu::RegexMatcher m(pattern, input, 0, status);
  std::string out;
  m.replaceAll("", status).toUTF8String(out);
  return U_SUCCESS(status) ? out : html;
}

}  // namespace

PreviewController::PreviewController(AppDelegate& app, std::unique_ptr<Card> card, bool adding)
    : _app(app), _card(std::move(card)), _adding(adding) {}

PreviewController::~PreviewController() = default;

Screen PreviewController::describe() {
  Screen s;
  s.title = "Preview";
  s.right.push_back({"flip", "Flip"});
  s.webView = _webview ? _webview->id() : "";
  s.keys = {{" ", "flip", "Flip"}};
  return s;
}

bool PreviewController::handle(const Event& e) {
  if ((e.element == "button" || e.element == "key") && e.id == "flip") {
    flip();
    return true;
  }
  return false;
}

void PreviewController::viewWillAppear() {
  if (_webview) return;
  _baseDir = _app.ui().baseUrlForFolder(_app.pm().mediaFolder());
  ProfileManager& pm = _app.pm();
  AppDelegate& app = _app;
  Col& col = *_app.col();
  HTMLAudioPlayer::Host host{[&col](const std::string& name) { return col.media().have(name); },
                             [&pm] { return pm.boolForKey("audioButtons"); },
                             [&app](const std::string& text) { app.showInfo(text); },
                             [&app](const std::string& text) { app.log(text); }};
  _audioPlayer = std::make_unique<HTMLAudioPlayer>(
      _baseDir, _app.ui().resourceBaseUrl() + "reviewer/", _app.ui().makeAudioPlayer(), host);
  _webview = _app.ui().makeWebView();
  _webview->setDelegate(this);
  auto page = Resources::get("reviewer/reviewer.html");
  std::string html = page ? std::string(*page) : "<div id=qa></div>";
  _webview->loadHTMLString(UrlText::replaceAll(html, "$RES/", _app.ui().resourceBaseUrl()),
                           _baseDir);
}

void PreviewController::viewWillDisappear() {
  // Only leaving for good matters: nothing is pushed over a preview.
  _audioPlayer.reset();
  _webview.reset();
  if (_adding) _app.col()->rollback();
}

void PreviewController::didFinishLoad(WebView&) {
  const float scale = _app.pm().floatForKey("FontScale");
  _webview->runJavaScript("document.getElementsByTagName('body')[0].style.webkitTextSizeAdjust='" +
                          std::to_string(static_cast<int>((scale > 0 ? scale : 1) * 100)) + "%';");
  _show();
}

void PreviewController::flip() {
  _state = _state == kQuestion ? kAnswer : kQuestion;
  _show();
}

void PreviewController::_show() {
  if (!_webview) return;
  std::string html = withoutTypeTags(_state == kQuestion ? _card->q() : _card->a());
  const Json* conf = _app.col()->decks().confForDid(Json(_card->odid ? _card->odid : _card->did));
  const bool autoplay = !conf || !conf->contains("autoplay") || jsonBool((*conf)["autoplay"]);
  if (_audioPlayer) html = _audioPlayer->mungeHTML(html, autoplay, false);
  _webview->runJavaScript("document.getElementById('qa').innerHTML = " + jsEscape(html) +
                          "; window.location = '#qa';1");
  _webview->runJavaScript("document.body.className = 'card card" + std::to_string(_card->ord + 1) +
                          "';");
  _webview->runJavaScript("rivo.runScripts();");
}

bool PreviewController::shouldStartLoad(WebView&, const std::string& url,
                                        WebView::NavigationType type) {
  const std::string scheme = UrlText::schemeOf(url);
  if (scheme == "rivolog" || scheme == "rivotap" || scheme == "rivointernal") return false;
  if (type != WebView::NavigationType::linkClicked) return true;
  std::string link = UrlText::replaceAll(url, _baseDir, "");
  if (UrlText::schemeOf(link) == "playsound") {
    if (_audioPlayer) _audioPlayer->playAudio(UrlText::lastPathComponent(link));
  } else if (scheme == "http" || scheme == "https") {
    _app.ui().openURL(url);
  }
  return false;
}

}  // namespace rivo
