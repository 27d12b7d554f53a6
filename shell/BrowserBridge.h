#pragma once
// The Ui of the browser front end. It keeps what every open tab must show (the top screen,
// the open alerts, the popup, the web pages) and sends each change to every tab's event
// stream; what a tab reports comes back through handleEvent() and is acted on on the main
// loop. Several tabs show the same state, and an alert answered in one is gone in all.
//
// Web views are sandboxed frames whose documents the server serves under this run's token,
// in the folder of the profile's media, so that a card's relative links find its media; the
// frames can't send the page's cookie, so the token is what admits them (read-only).
//
// A file offered for download goes to the tab the user last acted in (each tab's stream tells
// it its number, which it sends with its events): a job that ends in a download began with a
// click there, and the frozen interface kept the other tabs still meanwhile.
//
// Threads: the Ui calls, web-view calls and audio calls come on the main loop. connect(),
// disconnect(), Client::next(), handleEvent(), the upload calls, download(), evalResult(),
// pageDocument() and mediaFolder() come on the HTTP server's threads. `_m` guards the shown
// state, the clients, the pending script calls, the web pages, the media folder, the offered
// downloads and the last tab; the alerts' callbacks, the web views and the audio players by id
// belong to the main loop alone.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/Timer.h"
#include "app/Ui.h"

namespace rivo {

class AppDelegate;
class BrowserAudioPlayer;
class BrowserWebView;

class BrowserBridge : public Ui {
 public:
  // One tab's event stream: messages in "event: NAME\ndata: JSON\n\n" form.
  class Client {
   public:
    // The next message, waiting at most `timeout` seconds; false when none came (or the
    // stream is closed).
    bool next(std::string& message, double timeout);
    bool closed() const;
    uint64_t id() const { return _id; }

   private:
    friend class BrowserBridge;
    uint64_t _id = 0;
    // Guards the queue and the closed flag: the bridge pushes, the tab's HTTP thread takes.
    mutable std::mutex _m;
    std::condition_variable _cv;
    std::deque<std::string> _queue;
    bool _closed = false;
    void _push(std::string message);
    void _close();
  };

  enum class Result { ok, badRequest, stale, busy, unavailable };

  struct Options {
    // Tabs at once; more are refused.
    size_t maxClients = 8;
    // With no tab open this long, the program saves as it does when put in the background.
    double idleSeconds = 20;
    // How long a script in a web view may take to answer.
    double evalTimeout = 2;
    // The path token of media and frame documents; given for tests, random otherwise.
    std::string token = "";
  };

  BrowserBridge() : BrowserBridge(Options()) {}
  explicit BrowserBridge(Options options);
  ~BrowserBridge() override;

  // Before launch: the application whose main loop takes the events.
  void attach(AppDelegate& app);
  // Ends every stream and refuses new ones; script calls waiting give up.
  void close();

  // A new tab: its stream starts with the whole state. Null when too many are open.
  std::shared_ptr<Client> connect();
  void disconnect(const std::shared_ptr<Client>& client);
  size_t clientCount() const;

  // A tab's report, as parsed JSON, from the tab numbered `tab` (0: unknown). Checked here,
  // then acted on on the main loop.
  Result handleEvent(const Json& event, uint64_t tab = 0);

  // A file offered for download, by the token of its address "/download/TOKEN".
  struct Download {
    std::string path;
    std::string name;
  };
  std::optional<Download> download(const std::string& token) const;

  // An upload coming in: a spinner on every tab shows how far it is, until it ends, however.
  void uploadStarted();
  void uploadProgress(uint64_t received, uint64_t total);
  void uploadEnded();
  // An upload refused or cut short: every tab is told in an alert.
  void uploadFailed(const std::string& text);
  // A file a tab uploaded (now at `path`), handed to the button of the screen it was chosen
  // on as the event "upload". A tab can't send that event itself.
  Result handleUpload(uint64_t screen, const std::string& button, const std::string& name,
                      const std::string& path);

  // Ui
  void showAlert(const std::string& title, const std::string& text) override;
  void askQuestion(const std::string& title, const std::string& text,
                   const std::string& cancelButton, const std::string& otherButton,
                   std::function<void(int)> answered) override;
  void askText(const std::string& title, const std::string& text, std::vector<TextField> fields,
               const std::string& cancelButton, const std::string& otherButton,
               std::function<void(int, std::vector<std::string>)> answered) override;
  void showActionSheet(const std::string& title, const std::vector<std::string>& buttons,
                       const std::string& cancelButton, std::function<void(int)> chosen) override;
  void showPopupView(const std::string& text, bool activity) override;
  void setPopupText(const std::string& text) override;
  void hidePopupView() override;
  void showScreen(const Json& screen) override;
  std::unique_ptr<WebView> makeWebView() override;
  void setTint(const std::string& tint) override;
  std::string baseUrlForFolder(const std::string& folder) override;
  std::string resourceBaseUrl() override;
  std::unique_ptr<AudioPlayer> makeAudioPlayer() override;
  void openURL(const std::string& url) override;

  // For the server: the token of the read-only paths "/m/TOKEN/" (media, and frame documents
  // as "?page=ID") and "/r/TOKEN/" (resources); the media folder they serve; a frame's
  // document as it is served.
  const std::string& token() const { return _options.token; }
  std::string mediaFolder() const;
  std::optional<std::string> pageDocument(const std::string& id) const;
  void offerDownload(const std::string& path, const std::string& name) override;

  // For BrowserWebView, on the main loop.
  void _loadWebPage(BrowserWebView& view, const std::string& html, const std::string& baseUrl);
  std::string _evaluate(BrowserWebView& view, const std::string& script);
  void _run(BrowserWebView& view, const std::string& script);
  void _forgetWebView(BrowserWebView& view);
  // For BrowserAudioPlayer, on the main loop.
  void _audio(BrowserAudioPlayer& player, Json command);
  void _forgetAudio(BrowserAudioPlayer& player);

  // The state as a new tab gets it, for tests.
  Json snapshot() const;

  // 48 random hexadecimal digits.
  static std::string randomToken();

 private:
  using AlertCallback = std::function<void(int, std::vector<std::string>)>;
  struct PendingEval {
    bool done = false;
    std::string result;
  };

  void _openAlert(Json alert, AlertCallback callback);
  Result _onMain(const Json& event);
  Result _answerAlert(const Json& event);
  Result _webEvent(const Json& event);
  Result _audioEvent(const Json& event);
  // Sends to every tab; `_m` held.
  void _broadcast(const std::string& name, const Json& data);
  static std::string _message(const std::string& name, const Json& data);
  void _clientsChanged(size_t count);

  Options _options;
  AppDelegate* _app = nullptr;

  mutable std::mutex _m;
  std::condition_variable _evalCv;
  Json _screen;
  std::vector<Json> _alerts;
  Json _popup;
  std::string _tint;
  std::map<std::string, Json> _webPages;
  uint64_t _pageVersion = 0;
  std::string _mediaFolder;
  std::vector<std::shared_ptr<Client>> _clients;
  std::map<uint64_t, std::shared_ptr<PendingEval>> _evals;
  uint64_t _nextEval = 1;
  bool _closed = false;
  uint64_t _nextClient = 1;
  uint64_t _lastTab = 0;
  // Newest last; the oldest goes beyond a few.
  std::vector<std::pair<std::string, Download>> _downloads;

  // Main loop only.
  std::map<uint64_t, AlertCallback> _alertCallbacks;
  uint64_t _nextAlert = 1;
  std::map<std::string, BrowserWebView*> _webViews;
  uint64_t _nextWebView = 1;
  std::map<std::string, BrowserAudioPlayer*> _audioPlayers;
  uint64_t _nextAudioPlayer = 1;
  std::shared_ptr<Timer> _idleTimer;
  bool _inBackground = false;
};

}  // namespace rivo
