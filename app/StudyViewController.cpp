#include "app/StudyViewController.h"

#include <chrono>
#include <cmath>

#include "app/ActionsManager.h"
#include "app/AppDelegate.h"
#include "app/HTMLAudioPlayer.h"
#include "app/NavigationController.h"
#include "app/ProfileManager.h"
#include "app/Resources.h"
#include "app/StudySettingsViewController.h"
#include "app/Ui.h"
#include "app/UrlText.h"
#include "librivo/Card.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "librivo/FieldText.h"
#include "librivo/MediaManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"
#include "librivo/Scheduler.h"

namespace rivo {

namespace {

const char* const kZones[] = {"topLeft",  "topCenter",  "topRight",     "midLeft",    "midCenter",
                              "midRight", "bottomLeft", "bottomCenter", "bottomRight"};

bool isZone(const std::string& zone) {
  for (const char* z : kZones)
    if (zone == z) return true;
  return false;
}

bool truthy(const Json& v) {
  if (v.is_boolean()) return v.get<bool>();
  if (v.is_number()) return v.get<double>() != 0;
  return false;
}

double monotonicSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

StudyViewController::StudyViewController(AppDelegate& app)
    : _app(app), _typed([&app](const std::string& line) { app.log(line); }) {}

StudyViewController::~StudyViewController() = default;

Col& StudyViewController::_col() const {
  return *_app.col();
}

void StudyViewController::_js(const std::string& script) {
  if (_webView) _webView->runJavaScript(script);
}

// Appearing and leaving.

void StudyViewController::viewWillAppear() {
  setupFromPreferences();
  setupBaseDir();
  _markShown = false;
  _flash.clear();
  hideCardCounts();
  hideAnswerButtons();
  dismissTypeAnswerField();
  hideScratchpad();
  ProfileManager& pm = _app.pm();
  AppDelegate& app = _app;
  HTMLAudioPlayer::Host host{[this](const std::string& name) { return _col().media().have(name); },
                             [&pm] { return pm.boolForKey("audioButtons"); },
                             [&app](const std::string& text) { app.showInfo(text); },
                             [&app](const std::string& text) { app.log(text); }};
  _audioPlayer = std::make_unique<HTMLAudioPlayer>(
      _baseDir, _app.ui().resourceBaseUrl() + "reviewer/", _app.ui().makeAudioPlayer(), host);
  setupWebViewAndBeginStudy();
  setupQuickBar();
}

void StudyViewController::viewWillDisappear() {
  _quickBarActions.clear();
  _audioPlayer.reset();
  dismissTypeAnswerField();
  // The page goes with the screen; the next appearance loads a new one.
  _webView.reset();
}

void StudyViewController::setupFromPreferences() {
  ProfileManager& pm = _app.pm();
  _navBarHidden = pm.boolForKey("navBarHidden");
  _quickBarNeedsSetup = pm.boolForKey("showQuickbar");
  _forceOrientation = pm.stringForKey("forceOrientation");
  _allowCardCounts = pm.boolForKey("remainingCount");
  _allowBottomBar = pm.boolForKey("bottomBar");
  _allowNextTimes = pm.boolForKey("nextTimes");
  _pinchScalesText = pm.boolForKey("pinchScalesText");
  _neverTypeAnswer = pm.boolForKey("neverTypeAnswer");
  _openLinksExternally = true;
}

void StudyViewController::setupBaseDir() {
  _baseDir = _app.ui().baseUrlForFolder(_app.pm().mediaFolder());
}

void StudyViewController::setupWebViewAndBeginStudy() {
  _webView.reset();
  _webView = _app.ui().makeWebView();
  _webView->setDelegate(this);
  auto page = Resources::get("reviewer/reviewer.html");
  std::string html = page ? std::string(*page) : "<div id=qa></div>";
  _webView->loadHTMLString(UrlText::replaceAll(html, "$RES/", _app.ui().resourceBaseUrl()),
                           _baseDir);
}

void StudyViewController::didFinishLoad(WebView&) {
  _fontSizeAdjust = _app.pm().floatForKey("FontScale");
  _sendTextSize();
  showCurrentOrNextCard();
}

void StudyViewController::_sendTextSize() {
  _js("document.getElementsByTagName('body')[0].style.webkitTextSizeAdjust= '" +
      std::to_string(static_cast<int>(_fontSizeAdjust * 100)) + "%'");
}

// The loop.

void StudyViewController::showCurrentOrNextCard() {
  _col().save();
  if (_card) {
    reshowCard();
  } else {
    loadNextCard();
    showCard();
  }
}

void StudyViewController::reshowCard() {
  _card->load();
  showCard();
}

void StudyViewController::loadNextCard() {
  _card = _col().sched().getCard();
}

void StudyViewController::showCard() {
  hideAnswerButtons();
  if (_card) {
    _state = kQuestion;
    std::string q = _card->q();
    if (_audioPlayer) q = _audioPlayer->mungeHTML(q, _autoplay(), false);
    _typed.clearShouldShowTypeField();
    q = _typeAnsFilter(q);
    if (_typed.shouldShowTypeField())
      presentTypeAnswerField();
    else
      dismissTypeAnswerField();
    maybeShowScratchpad();
    _js("rivo.markTapUnready(); document.getElementById('qa').innerHTML = " + jsEscape(q) +
        ";window.scrollTo(0,0); 1");
    _js("document.body.className = 'card card" + std::to_string(_card->ord + 1) + "';");
    if (_scriptsOffFor != _card->id) _js("rivo.runScripts();");
    if (!_neverTypeAnswer) _js("rivo.setupType();");
    updateMarkStar();
    updateAndShowCardCounts();
  } else {
    _state = kNoCard;
    dismissTypeAnswerField();
    hideScratchpad();
    Json msg = _col().sched().finishedMsg();
    _js("rivo.markTapUnready(); document.getElementById('qa').innerHTML = '<div "
        "style=\"font-family: arial;\">'+" +
        msg.dump() + "+'</div>';");
    _state = kQuestion;
    _markShown = false;
    hideCardCounts();
  }
  setNeedsDisplay();
}

void StudyViewController::showAnswer() {
  if (_inTypeAnswer) {
    // Only ends the typing; the next tap shows the answer.
    if (intTime(1000) - _timeFieldShown >= kFieldGraceMs) {
      _inTypeAnswer = false;
      ++_blurSeq;
      setNeedsDisplay();
    }
    return;
  }
  if (!_card) return;
  hideCardCounts();
  _state = kAnswer;
  std::string a = _card->a();
  if (_audioPlayer) a = _audioPlayer->mungeHTML(a, _autoplay(), false);
  a = _typeAnsFilter(a) + "<br><br>";
  _js("rivo.markTapUnready(); document.getElementById('qa').innerHTML = " + jsEscape(a) +
      "; window.location = '#answer';");
  if (_scriptsOffFor != _card->id) _js("rivo.runScripts();");
  updateAndShowAnswerButtons();
  setNeedsDisplay();
}

void StudyViewController::answerCard(int ease) {
  if (_state != kAnswer || !_card) return;
  flashAnswerIcon(ease);
  if (ease != 1) ++_rightCount;
  ++_reviews;
  _col().sched().answerCard(*_card, ease);
  if (_audioPlayer) _audioPlayer->clear();
  _card.reset();
  // The next question goes to the page before the save, so that the save's wait for the disk
  // overlaps the page's work; both happen in this one task of the main loop, so nothing else
  // sees the collection in between.
  loadNextCard();
  showCard();
  _col().save();
}

int StudyViewController::defaultEase() {
  return _col().sched().answerButtons(*_card) == 4 ? 3 : 2;
}

void StudyViewController::reset() {
  _col().save();
  _col().reset();
  _card.reset();
}

void StudyViewController::undo() {
  _col().undoSavingCurrentCard(_card.get());
  _card.reset();
}

void StudyViewController::replayAudio() {
  if (_state == kNoCard || !_card || !_audioPlayer) return;
  std::string text = _card->q();
  if (_state == kAnswer) text = _replayq() ? text + _card->a() : _card->a();
  _audioPlayer->mungeHTML(text, true, true);
}

bool StudyViewController::_replayq() {
  const Json* conf = _col().decks().confForDid(Json(_card->odid ? _card->odid : _card->did));
  return !conf || !conf->contains("replayq") || truthy((*conf)["replayq"]);
}

bool StudyViewController::_autoplay() {
  const Json* conf = _col().decks().confForDid(Json(_card->odid ? _card->odid : _card->did));
  return !conf || !conf->contains("autoplay") || truthy((*conf)["autoplay"]);
}

std::string StudyViewController::_typeAnsFilter(const std::string& html) {
  if (_neverTypeAnswer) return TypedAnswer::removePlaceholders(html);
  if (_state == kAnswer) return _typed.typeAnsAnswerFilter(html, _typedText, _col().media());
  return _typed.typeAnsQuestionFilter(html, *_card);
}

// Around the card.

void StudyViewController::updateMarkStar() {
  _markShown = _card && _card->note()->hasTag("marked");
}

void StudyViewController::flashAnswerIcon(int ease) {
  static const char* const icons[] = {"cross", "tickyellow", "tickgreen", "tickblue"};
  int index = ease - 1;
  if (_card && ease >= 2 && _col().sched().answerButtons(*_card) < 4) index = ease;
  if (index < 0 || index > 3) return;
  _flash = icons[index];
  ++_flashSeq;
}

void StudyViewController::updateAndShowCardCounts() {
  _countsShown = _allowCardCounts && _card;
  if (!_countsShown) return;
  _counts = _col().sched().countsForCard(_card.get());
}

void StudyViewController::updateAndShowAnswerButtons() {
  _buttonsShown = _allowBottomBar && _card;
}

void StudyViewController::setupQuickBar() {
  _quickBarActions.clear();
  if (!_quickBarNeedsSetup) return;
  for (int i = 1; i <= 8; ++i) {
    std::string action = _app.pm().stringForKey("quickButton" + std::to_string(i));
    if (!action.empty() && action != "off") _quickBarActions.push_back(action);
  }
}

void StudyViewController::handleQuickBarButton(size_t index) {
  if (index < _quickBarActions.size()) _app.acts().run(_quickBarActions[index]);
}

void StudyViewController::showHideNavbar() {
  ProfileManager& pm = _app.pm();
  pm.setBool(!pm.boolForKey("navBarHidden"), "navBarHidden");
  _app.performAfterDelay(0.01f, [this] {
    _navBarHidden = _app.pm().boolForKey("navBarHidden");
    setNeedsDisplay();
  });
}

void StudyViewController::loadTools() {
  if (NavigationController* nc = navigationController())
    nc->push(std::make_shared<StudySettingsViewController>(_app));
}

Screen StudyViewController::describe() {
  Screen s;
  s.title = _quickBarNeedsSetup ? "" : "Study";
  s.right.push_back({"tools", "Tools", "tools"});
  const auto& shortNames = ActionsManager::shortNames();
  for (size_t i = 0; i < _quickBarActions.size(); ++i) {
    auto name = shortNames.find(_quickBarActions[i]);
    s.segments.push_back(
        {std::to_string(i), name != shortNames.end() ? name->second : _quickBarActions[i]});
  }
  s.webView = _webView ? _webView->id() : "";
  s.navBarHidden = _navBarHidden;
  if (_countsShown && _card) {
    const int current = Scheduler::countIdx(*_card);
    const char* tones[] = {"new", "learning", "review"};
    const char* colours[] = {kNewColour, kLearnColour, kReviewColour};
    for (int i = 0; i < 3; ++i)
      s.status.push_back(
          {std::to_string(_counts[static_cast<size_t>(i)]), tones[i], colours[i], i == current});
  }
  if (_buttonsShown && _card) {
    Scheduler& sched = _col().sched();
    const int buttons = sched.answerButtons(*_card);
    struct Place {
      const char* action;
      const char* name;
      const char* tone;
    };
    std::vector<Place> places;
    if (buttons == 2)
      places = {{"answerWrong", "Again", "red"}, {"answerGood", "Good", "green"}};
    else if (buttons == 3)
      places = {{"answerWrong", "Again", "red"},
                {"answerGood", "Good", "green"},
                {"answerEasy", "Easy", "tint"}};
    else
      places = {{"answerWrong", "Again", "red"},
                {"answerHard", "Hard", "tint"},
                {"answerGood", "Good", "green"},
                {"answerEasy", "Easy", "tint"}};
    for (size_t i = 0; i < places.size(); ++i) {
      Screen::Button b{.id = places[i].action, .title = places[i].name, .tone = places[i].tone};
      if (_allowNextTimes) {
        b.detail = b.title;
        b.title = sched.nextIvlStr(*_card, static_cast<int>(i) + 1, true);
      }
      s.actions.push_back(std::move(b));
    }
    s.bigActions = _app.pm().boolForKey("biggerButtons");
  }
  if (_markShown) s.badge = "star";
  s.flash = _flash;
  s.flashSeq = _flashSeq;
  if (_fieldShown) {
    s.field = {true,      _typedText, "Type the answer", _typed.typeFont(), _typed.typeSize(),
               _focusSeq, _blurSeq};
  }
  if (_padShown) {
    std::string pen = _app.pm().stringForKey("penSize");
    s.pad.shown = true;
    s.pad.clearSeq = _padClearSeq;
    if (pen == "fine") {
      s.pad.forceFactor = 1.0;
      s.pad.extraWidth = 0.3;
    } else if (pen == "normal" || pen.empty()) {
      s.pad.forceFactor = 2.0;
      s.pad.extraWidth = 2.0;
    } else {
      s.pad.forceFactor = 3.0;
      s.pad.extraWidth = 5.0;
    }
  }
  if (!_inTypeAnswer) {
    s.keys = {{" ", "space", "Show Answer/Answer Good"},
              {"Enter", "return", ""},
              {"1", "1", "Answer Again"},
              {"2", "2", "Answer Hard"},
              {"3", "3", "Answer Good"},
              {"4", "4", "Answer Easy"},
              {"r", "r", "Replay Audio"}};
  }
  return s;
}

// Input.

bool StudyViewController::handle(const Event& e) {
  if (e.element == "button") {
    if (e.id == "tools") {
      loadTools();
      return true;
    }
    // The answer buttons.
    return _buttonsShown && _app.acts().perform(e.id);
  }
  if (e.element == "segment") {
    size_t index = 0;
    try {
      index = std::stoul(e.id);
    } catch (...) {
      return false;
    }
    if (index >= _quickBarActions.size()) return false;
    handleQuickBarButton(index);
    return true;
  }
  if (e.element == "key") {
    if (_inTypeAnswer) return true;
    if (e.id == "space" || e.id == "return")
      handleKeySpace();
    else if (e.id == "r")
      handleKeyR();
    else if (e.id.size() == 1 && e.id[0] >= '1' && e.id[0] <= '4')
      handleKey(e.id[0] - '0');
    else
      return false;
    return true;
  }
  if (e.element == "field" && _fieldShown) {
    std::string text = e.value.is_string() ? e.value.get<std::string>() : _typedText;
    if (e.kind == "begin")
      textFieldDidBeginEditing();
    else if (e.kind == "end")
      textFieldShouldEndEditing(text);
    else if (e.kind == "return")
      textFieldShouldReturn(text);
    else
      return false;
    return true;
  }
  return false;
}

void StudyViewController::handleKeySpace() {
  if (_state == kAnswer)
    answerCard(defaultEase());
  else if (_state == kQuestion)
    showAnswer();
}

void StudyViewController::handleKey(int number) {
  if (_state != kAnswer || !_card) return;
  const int buttons = _col().sched().answerButtons(*_card);
  if (number <= 2 || number <= buttons) answerCard(number);
}

void StudyViewController::handleKeyR() {
  if (_card) replayAudio();
}

void StudyViewController::handleTap(const std::string& zone) {
  if (!isZone(zone)) return;
  std::string key = _state == kAnswer ? zone + "A" : zone;
  if (_state == kNoCard && _app.pm().stringForKey(key) != "toggleNavBar") return;
  _app.acts().runVar(key);
}

void StudyViewController::handleSwipe(const std::string& direction, double x, double width) {
  std::string key;
  if (direction == "right")
    key = "swipeRight";
  else if (direction == "left")
    key = "swipeLeft";
  else if (direction == "up")
    key = "swipeUp";
  else if (direction == "down")
    key = "swipeDown";
  else
    return;
  std::string action = _app.pm().stringForKey(key);
  if (action.empty() || action == "off") return;
  // Only from the outer sixths: the middle stays free for scrolling and selecting.
  const double sixth = std::trunc(width / 6);
  if (!(x < sixth || x > width - sixth)) return;
  _app.acts().run(action);
}

void StudyViewController::handlePinchGesture(double velocity) {
  const double now = monotonicSeconds();
  if (now - _lastPinchTime < 0.1 || std::fabs(velocity) < 0.05) return;
  _lastPinchTime = now;
  const bool shrink = velocity < 0;
  if (_pinchScalesText) {
    float scale = _app.pm().floatForKey("FontScale") + (shrink ? -0.2f : 0.2f);
    scale = std::min(2.0f, std::max(0.2f, scale));
    _app.pm().setFloat(scale, "FontScale");
    _fontSizeAdjust = scale;
    _sendTextSize();
  }
  _js(std::string("rivo.resizeImages(") + (shrink ? "1" : "0") + ");");
}

void StudyViewController::didGesture(WebView&, const WebView::Gesture& g) {
  if (g.kind == "swipe")
    handleSwipe(g.direction, g.x, g.width);
  else if (g.kind == "pinch")
    handlePinchGesture(g.velocity);
}

void StudyViewController::didFail(WebView&, const std::string& reason) {
  _app.log("js: the card page was " + reason + "; its scripts are off for this card");
  if (_card) _scriptsOffFor = _card->id;
}

bool StudyViewController::shouldStartLoad(WebView&, const std::string& url,
                                          WebView::NavigationType type) {
  const std::string scheme = UrlText::schemeOf(url);
  if (scheme == "rivolog") {
    _app.log("js: " + UrlText::lastPathComponent(url));
    return false;
  }
  if (scheme == "rivotap") {
    size_t start = url.find("://");
    std::string zone = start == std::string::npos ? "" : url.substr(start + 3);
    handleTap(zone.substr(0, zone.find_first_of("/?#")));
    return false;
  }
  // The page's own loads go on; a "rivointernal" signal is merely looked at.
  if (type != WebView::NavigationType::linkClicked) return true;
  _handleLink(url);
  return false;
}

void StudyViewController::_handleLink(const std::string& url) {
  const std::string last = UrlText::lastPathComponent(url);
  if (last == "_cstudy") {
    _app.acts().run("customStudy");
    return;
  }
  if (last == "_unbury") {
    _app.acts().run("unburyDeck");
    return;
  }
  std::string link = UrlText::replaceAll(UrlText::replaceAll(url, _baseDir, ""), "%22", "");
  if (UrlText::schemeOf(link) == "playsound") {
    std::string name = link.substr(link.find(':') + 1);
    name.erase(0, name.find_first_not_of('/'));
    if (_audioPlayer) _audioPlayer->playAudio(UrlText::percentDecode(name));
    return;
  }
  if (_openLinksExternally) _app.ui().openURL(url);
}

// The typed answer's field.

void StudyViewController::presentTypeAnswerField() {
  _typedText.clear();
  _timeFieldShown = intTime(1000);
  _fieldShown = true;
  ++_focusSeq;
}

void StudyViewController::dismissTypeAnswerField() {
  if (_fieldShown || _inTypeAnswer) ++_blurSeq;
  _fieldShown = false;
  _inTypeAnswer = false;
}

void StudyViewController::textFieldDidBeginEditing() {
  _inTypeAnswer = true;
  setNeedsDisplay();
}

bool StudyViewController::textFieldShouldEndEditing(const std::string& text) {
  _typedText = text;
  if (intTime(1000) - _timeFieldShown < kFieldGraceMs) {
    // A tap that belonged to the previous card: the field takes the input back.
    ++_focusSeq;
    setNeedsDisplay();
    return false;
  }
  _inTypeAnswer = false;
  setNeedsDisplay();
  return true;
}

bool StudyViewController::textFieldShouldReturn(const std::string& text) {
  _typedText = text;
  if (intTime(1000) - _timeFieldShown < kFieldGraceMs) return false;
  _inTypeAnswer = false;
  ++_blurSeq;
  if (_state != kAnswer)
    showAnswer();
  else
    setNeedsDisplay();
  return true;
}

// The scratchpad.

bool StudyViewController::cardHasScratchPad() {
  if (!_card) return false;
  const Json* tmpl = _card->template_();
  return tmpl && tmpl->contains("scratchPad") && truthy((*tmpl)["scratchPad"]);
}

void StudyViewController::toggleScratchPad() {
  if (!_card) return;
  Json* model = _card->model();
  Json* tmpl = const_cast<Json*>(_card->template_());
  if (!model || !tmpl) return;
  (*tmpl)["scratchPad"] = cardHasScratchPad() ? 0 : 1;
  _col().models().save(model);
  maybeShowScratchpad();
  setNeedsDisplay();
}

void StudyViewController::maybeShowScratchpad() {
  if (cardHasScratchPad()) {
    clearScratchpad();
    _padShown = true;
  } else {
    hideScratchpad();
  }
}

}  // namespace rivo
