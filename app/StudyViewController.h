#pragma once
// The review screen: asks the scheduler for a card, shows its question and answer in the
// card web view (reviewer.html, which sends back taps, links and gestures), shows the counts
// and answer buttons, passes the chosen ease to the scheduler and goes on. Its typed answer,
// sounds and scratchpad live here too. Everything it does, it does on the main loop, and the
// collection is touched only there, between jobs.

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/TypedAnswer.h"
#include "app/ViewController.h"
#include "app/WebView.h"

namespace rivo {

class AppDelegate;
class Card;
class Col;
class HTMLAudioPlayer;

class StudyViewController : public ViewController, private WebView::Delegate {
 public:
  // What `_state` holds.
  enum State { kQuestion = 0, kAnswer = 1, kNoCard = 2 };

  // The colours of the new, learning and review counts.
  static constexpr const char* kNewColour = "#C0DEED";
  static constexpr const char* kLearnColour = "#FFB35B";
  static constexpr const char* kReviewColour = "#7CFC00";
  // A typed answer's field ignores a return or a blur this soon after it opened: they
  // belonged to the previous card.
  static constexpr int64_t kFieldGraceMs = 500;

  explicit StudyViewController(AppDelegate& app);
  ~StudyViewController() override;

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;
  void viewWillDisappear() override;

  // The study loop.
  void setupFromPreferences();
  void setupBaseDir();
  void setupWebViewAndBeginStudy();
  void showCurrentOrNextCard();
  void reshowCard();
  void loadNextCard();
  void showCard();
  void showAnswer();
  // Ignored unless the answer is shown.
  void answerCard(int ease);
  int defaultEase();
  // Saves, resets the scheduler's queues and drops the card: the next showing fetches one.
  void reset();
  void undo();
  void replayAudio();
  bool _replayq();
  bool _autoplay();

  // What is drawn around the card.
  void updateMarkStar();
  void flashAnswerIcon(int ease);
  void updateAndShowCardCounts();
  void hideCardCounts() { _countsShown = false; }
  void updateAndShowAnswerButtons();
  void hideAnswerButtons() { _buttonsShown = false; }
  void setupQuickBar();
  void showHideNavbar();
  void loadTools();

  // Input.
  void handleTap(const std::string& zone);
  void handleSwipe(const std::string& direction, double x, double width);
  void handlePinchGesture(double velocity);
  void handleKeySpace();
  void handleKey(int number);
  void handleKeyR();
  void handleQuickBarButton(size_t index);

  // The typed answer's field (events of the page's text field).
  void presentTypeAnswerField();
  void dismissTypeAnswerField();
  void textFieldDidBeginEditing();
  // False (and the field keeps the input) within kFieldGraceMs of its opening.
  bool textFieldShouldEndEditing(const std::string& text);
  bool textFieldShouldReturn(const std::string& text);

  // The scratchpad.
  bool cardHasScratchPad();
  void toggleScratchPad();
  void maybeShowScratchpad();
  void hideScratchpad() { _padShown = false; }
  void clearScratchpad() { ++_padClearSeq; }

  // State, for the actions and for tests.
  Card* card() const { return _card.get(); }
  State state() const { return _state; }
  int rightCount() const { return _rightCount; }
  int reviews() const { return _reviews; }
  bool inTypeAnswer() const { return _inTypeAnswer; }
  const std::string& baseDir() const { return _baseDir; }
  WebView* webView() const { return _webView.get(); }
  HTMLAudioPlayer* audioPlayer() const { return _audioPlayer.get(); }
  const TypedAnswer& typedAnswer() const { return _typed; }
  const std::vector<std::string>& quickBarActions() const { return _quickBarActions; }

 private:
  // WebView::Delegate
  void didFinishLoad(WebView& view) override;
  bool shouldStartLoad(WebView& view, const std::string& url,
                       WebView::NavigationType type) override;
  void didGesture(WebView& view, const WebView::Gesture& gesture) override;
  void didFail(WebView& view, const std::string& reason) override;

  Col& _col() const;
  void _js(const std::string& script);
  void _sendTextSize();
  std::string _typeAnsFilter(const std::string& html);
  void _handleLink(const std::string& url);

  AppDelegate& _app;
  std::unique_ptr<Card> _card;
  State _state = kQuestion;
  int _rightCount = 0;
  int _reviews = 0;
  std::array<int, 3> _counts{};
  float _fontSizeAdjust = 1;
  double _lastPinchTime = 0;
  std::string _baseDir;
  std::unique_ptr<WebView> _webView;
  std::unique_ptr<HTMLAudioPlayer> _audioPlayer;
  std::vector<std::string> _quickBarActions;
  // The card whose scripts hung or left the page: shown without them.
  int64_t _scriptsOffFor = 0;

  // From the preferences, at each appearance.
  bool _quickBarNeedsSetup = false;
  bool _allowCardCounts = true;
  bool _allowBottomBar = true;
  bool _allowNextTimes = true;
  bool _pinchScalesText = true;
  bool _neverTypeAnswer = false;
  bool _openLinksExternally = true;
  bool _navBarHidden = false;
  std::string _forceOrientation;

  // What the description shows.
  bool _countsShown = false;
  bool _buttonsShown = false;
  bool _markShown = false;
  std::string _flash;
  uint64_t _flashSeq = 0;
  bool _padShown = false;
  uint64_t _padClearSeq = 0;

  // The typed answer.
  TypedAnswer _typed;
  bool _fieldShown = false;
  bool _inTypeAnswer = false;
  std::string _typedText;
  int64_t _timeFieldShown = 0;
  uint64_t _focusSeq = 0;
  uint64_t _blurSeq = 0;
};

}  // namespace rivo
