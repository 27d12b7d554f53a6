#include "shell/BrowserBridge.h"

#include <algorithm>
#include <chrono>

#include <openssl/rand.h>

#include <cstdio>

#include "app/AppDelegate.h"
#include "app/AppError.h"
#include "app/NavigationController.h"
#include "app/Resources.h"
#include "shell/BrowserAudioPlayer.h"
#include "shell/BrowserWebView.h"

namespace rivo {

namespace {

const size_t kMaxText = 64 * 1024;
// Files offered for download that can still be fetched.
const size_t kMaxDownloads = 8;

bool isShortString(const Json& e, const char* key, size_t max = kMaxText) {
  auto it = e.find(key);
  return it != e.end() && it->is_string() && it->get_ref<const std::string&>().size() <= max;
}

bool isId(const Json& e, const char* key) {
  auto it = e.find(key);
  return it != e.end() && it->is_number_unsigned() && it->get<uint64_t>() > 0;
}

bool isNumber(const Json& e, const char* key) {
  return !e.contains(key) || e[key].is_number();
}

bool wellFormedGesture(const Json& g) {
  return g.is_object() && isShortString(g, "kind", 16) &&
         (!g.contains("direction") || isShortString(g, "direction", 16)) && isNumber(g, "x") &&
         isNumber(g, "width") && isNumber(g, "velocity");
}

// The shape of a tab's report; what it refers to is checked on the main loop.
const char* const kUploading = "Uploading...";

bool wellFormed(const Json& e) {
  if (!e.is_object()) return false;
  int targets =
      e.contains("screen") + e.contains("alert") + e.contains("web") + e.contains("audio");
  if (targets != 1) return false;
  if (e.contains("audio")) {
    static const std::vector<std::string> kinds = {"ended", "error", "decode"};
    return isShortString(e, "audio", 32) && isShortString(e, "kind", 16) &&
           std::find(kinds.begin(), kinds.end(), e["kind"]) != kinds.end() && e.contains("seq") &&
           e["seq"].is_number_unsigned() && (!e.contains("message") || isShortString(e, "message"));
  }
  if (e.contains("screen")) {
    static const std::vector<std::string> elements = {"row", "button",  "title", "refresh", "back",
                                                      "key", "segment", "field", "search",  "more"};
    if (!isId(e, "screen") || !isShortString(e, "element", 16)) return false;
    if (std::find(elements.begin(), elements.end(), e["element"]) == elements.end()) return false;
    if (e.contains("id") && !isShortString(e, "id")) return false;
    if (e.contains("kind") && !isShortString(e, "kind", 16)) return false;
    // Only the server reports an upload, once it has stored the file.
    return !e.contains("kind") || e["kind"] != "upload";
  }
  if (e.contains("alert")) {
    if (!isId(e, "alert") || !e.contains("button") || !e["button"].is_number_integer())
      return false;
    if (!e.contains("texts")) return true;
    if (!e["texts"].is_array() || e["texts"].size() > 8) return false;
    return std::all_of(e["texts"].begin(), e["texts"].end(), [](const Json& t) {
      return t.is_string() && t.get_ref<const std::string&>().size() <= kMaxText;
    });
  }
  if (!isShortString(e, "web", 32) || !isShortString(e, "kind", 16)) return false;
  const std::string& kind = e["kind"].get_ref<const std::string&>();
  if (kind == "loaded") return true;
  if (kind == "navigate") return isShortString(e, "url");
  if (kind == "result") return isId(e, "call") && e.contains("result") && e["result"].is_string();
  if (kind == "gesture") return e.contains("gesture") && wellFormedGesture(e["gesture"]);
  if (kind == "failed") return isShortString(e, "reason", 32);
  return false;
}

}  // namespace

// Client.

bool BrowserBridge::Client::next(std::string& message, double timeout) {
  std::unique_lock lock(_m);
  _cv.wait_for(lock, std::chrono::duration<double>(timeout),
               [this] { return _closed || !_queue.empty(); });
  if (_closed || _queue.empty()) return false;
  message = std::move(_queue.front());
  _queue.pop_front();
  return true;
}

bool BrowserBridge::Client::closed() const {
  std::lock_guard lock(_m);
  return _closed;
}

void BrowserBridge::Client::_push(std::string message) {
  std::lock_guard lock(_m);
  _queue.push_back(std::move(message));
  _cv.notify_all();
}

void BrowserBridge::Client::_close() {
  std::lock_guard lock(_m);
  _closed = true;
  _cv.notify_all();
}

// The bridge.

BrowserBridge::BrowserBridge(Options options) : _options(std::move(options)) {
  if (_options.token.empty()) _options.token = randomToken();
}

BrowserBridge::~BrowserBridge() {
  close();
}

std::string BrowserBridge::randomToken() {
  unsigned char bytes[24];
  if (RAND_bytes(bytes, sizeof bytes) != 1) throw AppError("No random bytes for a secret.");
  std::string out;
  char hex[3];
  for (unsigned char b : bytes) {
    std::snprintf(hex, sizeof hex, "%02x", b);
    out += hex;
  }
  return out;
}

void BrowserBridge::attach(AppDelegate& app) {
  _app = &app;
}

void BrowserBridge::close() {
  std::lock_guard lock(_m);
  _closed = true;
  for (auto& client : _clients) client->_close();
  _clients.clear();
  _evalCv.notify_all();
}

std::string BrowserBridge::_message(const std::string& name, const Json& data) {
  return "event: " + name + "\ndata: " + data.dump(-1, ' ', false, Json::error_handler_t::replace) +
         "\n\n";
}

void BrowserBridge::_broadcast(const std::string& name, const Json& data) {
  if (_clients.empty()) return;
  std::string message = _message(name, data);
  for (auto& client : _clients) client->_push(message);
}

Json BrowserBridge::snapshot() const {
  std::lock_guard lock(_m);
  Json web = Json::object();
  for (const auto& [id, page] : _webPages) web[id] = {{"id", id}, {"src", page["src"]}};
  return Json{{"screen", _screen},
              {"alerts", _alerts},
              {"popup", _popup},
              {"tint", _tint},
              {"web", std::move(web)}};
}

std::shared_ptr<BrowserBridge::Client> BrowserBridge::connect() {
  Json state = snapshot();
  size_t count;
  auto client = std::make_shared<Client>();
  {
    std::lock_guard lock(_m);
    if (_closed || _clients.size() >= _options.maxClients) return nullptr;
    client->_id = _nextClient++;
    state["tab"] = client->_id;
    client->_push(_message("state", state));
    _clients.push_back(client);
    count = _clients.size();
  }
  _clientsChanged(count);
  return client;
}

void BrowserBridge::disconnect(const std::shared_ptr<Client>& client) {
  size_t count;
  {
    std::lock_guard lock(_m);
    auto it = std::find(_clients.begin(), _clients.end(), client);
    if (it == _clients.end()) return;
    _clients.erase(it);
    count = _clients.size();
  }
  client->_close();
  _clientsChanged(count);
}

size_t BrowserBridge::clientCount() const {
  std::lock_guard lock(_m);
  return _clients.size();
}

void BrowserBridge::_clientsChanged(size_t count) {
  if (!_app) return;
  AppDelegate& app = *_app;
  app.doOnMain([this, &app, count] {
    if (count > 0) {
      if (_idleTimer) _idleTimer->invalidate();
      _idleTimer.reset();
      if (_inBackground) {
        _inBackground = false;
        app.applicationWillEnterForeground();
      }
      return;
    }
    if (_idleTimer || _inBackground) return;
    // A reload comes back at once; a tab closed for good leaves no one to save for.
    _idleTimer = app.performAfterDelay(static_cast<float>(_options.idleSeconds), [this, &app] {
      _idleTimer.reset();
      if (clientCount() > 0 || _inBackground) return;
      _inBackground = true;
      app.applicationWillResignActive();
      app.applicationDidEnterBackground();
    });
  });
}

// Events from the tabs.

BrowserBridge::Result BrowserBridge::handleEvent(const Json& event, uint64_t tab) {
  if (!wellFormed(event)) return Result::badRequest;
  if (event.contains("web") && event["kind"] == "result") {
    // Answered here: the main loop may be waiting for it.
    std::lock_guard lock(_m);
    auto it = _evals.find(event["call"].get<uint64_t>());
    if (it == _evals.end()) return Result::stale;
    it->second->done = true;
    it->second->result = event["result"].get<std::string>();
    _evalCv.notify_all();
    return Result::ok;
  }
  {
    std::lock_guard lock(_m);
    if (_closed || !_app) return Result::unavailable;
  }
  Result result = Result::unavailable;
  _app->dispatch().main().sync([&] {
    result = _onMain(event);
    if (result == Result::ok && tab) {
      std::lock_guard lock(_m);
      _lastTab = tab;
    }
  });
  return result;
}

void BrowserBridge::uploadStarted() {
  if (_app) _app->showSpinner(kUploading);
}

void BrowserBridge::uploadProgress(uint64_t received, uint64_t total) {
  if (_app && total)
    _app->updateSpinner(std::string(kUploading) + " " + std::to_string(received * 100 / total) +
                        "%");
}

void BrowserBridge::uploadEnded() {
  if (_app) _app->hideSpinner();
}

void BrowserBridge::uploadFailed(const std::string& text) {
  if (_app) _app->doOnMain([this, text] { showAlert("Upload Failed", text); });
}

BrowserBridge::Result BrowserBridge::handleUpload(uint64_t screen, const std::string& button,
                                                  const std::string& name,
                                                  const std::string& path) {
  {
    std::lock_guard lock(_m);
    if (_closed || !_app) return Result::unavailable;
  }
  const Json event = {{"screen", screen},
                      {"element", "button"},
                      {"id", button},
                      {"kind", "upload"},
                      {"value", {{"name", name}, {"path", path}}}};
  Result result = Result::unavailable;
  _app->dispatch().main().sync([&] { result = _onMain(event); });
  return result;
}

BrowserBridge::Result BrowserBridge::_onMain(const Json& event) {
  if (event.contains("web")) return _webEvent(event);
  if (event.contains("audio")) return _audioEvent(event);
  {
    // Input is frozen while a spinner or popup is up, as on the phone, and an open alert
    // keeps the screen below from being touched.
    std::lock_guard lock(_m);
    if (!_popup.is_null()) return Result::busy;
    if (!event.contains("alert") && !_alerts.empty()) return Result::busy;
  }
  if (event.contains("alert")) return _answerAlert(event);
  NavigationController* nc = _app->nc();
  if (!nc) return Result::unavailable;
  ViewController::Event e{event["element"].get<std::string>(), event.value("id", std::string()),
                          event.value("kind", std::string()), event.value("value", Json())};
  return nc->dispatch(event["screen"].get<uint64_t>(), e) ? Result::ok : Result::stale;
}

BrowserBridge::Result BrowserBridge::_answerAlert(const Json& event) {
  uint64_t id = event["alert"].get<uint64_t>();
  auto callback = _alertCallbacks.find(id);
  if (callback == _alertCallbacks.end()) return Result::stale;
  int button = event["button"].get<int>();
  size_t fields = 0;
  {
    std::lock_guard lock(_m);
    auto it =
        std::find_if(_alerts.begin(), _alerts.end(), [id](const Json& a) { return a["id"] == id; });
    if (it == _alerts.end()) return Result::stale;
    int buttons = static_cast<int>((*it)["buttons"].size());
    int lowest = (*it)["style"] == "sheet" ? -1 : 0;
    if (button < lowest || button >= buttons) return Result::badRequest;
    fields = (*it)["fields"].size();
    _alerts.erase(it);
    _broadcast("alerts", _alerts);
  }
  std::vector<std::string> texts;
  if (event.contains("texts"))
    for (const Json& t : event["texts"]) texts.push_back(t.get<std::string>());
  texts.resize(fields);
  AlertCallback answered = std::move(callback->second);
  _alertCallbacks.erase(callback);
  if (answered) answered(button, std::move(texts));
  return Result::ok;
}

BrowserBridge::Result BrowserBridge::_webEvent(const Json& event) {
  auto it = _webViews.find(event["web"].get<std::string>());
  if (it == _webViews.end()) return Result::stale;
  BrowserWebView& view = *it->second;
  WebView::Delegate* delegate = view.delegate();
  if (!delegate) return Result::ok;
  if (event["kind"] == "loaded") {
    delegate->didFinishLoad(view);
  } else if (event["kind"] == "gesture") {
    const Json& g = event["gesture"];
    delegate->didGesture(
        view, {g["kind"].get<std::string>(), g.value("direction", std::string()), g.value("x", 0.0),
               g.value("width", 0.0), g.value("velocity", 0.0)});
  } else if (event["kind"] == "failed") {
    delegate->didFail(view, event["reason"].get<std::string>());
  } else {
    bool link = event.value("navigation", std::string()) == "link";
    delegate->shouldStartLoad(
        view, event["url"].get<std::string>(),
        link ? WebView::NavigationType::linkClicked : WebView::NavigationType::other);
  }
  return Result::ok;
}

BrowserBridge::Result BrowserBridge::_audioEvent(const Json& event) {
  auto it = _audioPlayers.find(event["audio"].get<std::string>());
  // A sound that was stopped or replaced since; or a second tab telling the same end.
  if (it == _audioPlayers.end() || it->second->seq() != event["seq"].get<uint64_t>())
    return Result::stale;
  BrowserAudioPlayer& player = *it->second;
  AudioPlayer::Delegate* delegate = player.delegate();
  if (!delegate) return Result::ok;
  const std::string& kind = event["kind"].get_ref<const std::string&>();
  std::string message = event.value("message", std::string());
  if (kind == "ended")
    delegate->audioPlayerDidFinishPlaying(player, true);
  else if (kind == "decode")
    delegate->audioPlayerDecodeErrorDidOccur(player, message);
  else
    delegate->audioPlayerDidFail(player, message);
  return Result::ok;
}

// Ui.

void BrowserBridge::_openAlert(Json alert, AlertCallback callback) {
  uint64_t id = _nextAlert++;
  alert["id"] = id;
  if (!alert.contains("fields")) alert["fields"] = Json::array();
  _alertCallbacks[id] = std::move(callback);
  std::lock_guard lock(_m);
  // Alerts stack: the newest is in front.
  _alerts.push_back(std::move(alert));
  _broadcast("alerts", _alerts);
}

void BrowserBridge::showAlert(const std::string& title, const std::string& text) {
  _openAlert(
      {{"style", "alert"}, {"title", title}, {"text", text}, {"buttons", {"OK"}}, {"cancel", 0}},
      nullptr);
}

void BrowserBridge::askQuestion(const std::string& title, const std::string& text,
                                const std::string& cancelButton, const std::string& otherButton,
                                std::function<void(int)> answered) {
  _openAlert(
      {{"style", "alert"},
       {"title", title},
       {"text", text},
       {"buttons", {cancelButton, otherButton}},
       {"cancel", 0}},
      [answered = std::move(answered)](int button, std::vector<std::string>) { answered(button); });
}

void BrowserBridge::askText(const std::string& title, const std::string& text,
                            std::vector<TextField> fields, const std::string& cancelButton,
                            const std::string& otherButton,
                            std::function<void(int, std::vector<std::string>)> answered) {
  Json list = Json::array();
  for (const auto& f : fields) {
    Json field{{"placeholder", f.placeholder}, {"text", f.text}, {"secure", f.secure}};
    if (!f.keyboard.empty()) field["keyboard"] = f.keyboard;
    list.push_back(std::move(field));
  }
  _openAlert({{"style", "alert"},
              {"title", title},
              {"text", text},
              {"fields", std::move(list)},
              {"buttons", {cancelButton, otherButton}},
              {"cancel", 0}},
             std::move(answered));
}

void BrowserBridge::showActionSheet(const std::string& title,
                                    const std::vector<std::string>& buttons,
                                    const std::string& cancelButton,
                                    std::function<void(int)> chosen) {
  _openAlert({{"style", "sheet"},
              {"title", title},
              {"text", ""},
              {"buttons", buttons},
              {"cancelTitle", cancelButton},
              {"cancel", -1}},
             [chosen = std::move(chosen)](int index, std::vector<std::string>) { chosen(index); });
}

void BrowserBridge::showPopupView(const std::string& text, bool activity) {
  std::lock_guard lock(_m);
  _popup = {{"text", text}, {"activity", activity}};
  _broadcast("popup", _popup);
}

void BrowserBridge::setPopupText(const std::string& text) {
  std::lock_guard lock(_m);
  if (_popup.is_null()) return;
  _popup["text"] = text;
  _broadcast("popup", _popup);
}

void BrowserBridge::hidePopupView() {
  std::lock_guard lock(_m);
  _popup = nullptr;
  _broadcast("popup", _popup);
}

void BrowserBridge::showScreen(const Json& screen) {
  std::lock_guard lock(_m);
  _screen = screen;
  _broadcast("screen", _screen);
}

void BrowserBridge::setTint(const std::string& tint) {
  std::lock_guard lock(_m);
  _tint = tint;
  _broadcast("tint", _tint);
}

void BrowserBridge::offerDownload(const std::string& path, const std::string& name) {
  std::string token;
  try {
    token = randomToken().substr(0, 32);
  } catch (const std::exception&) {
    return;  // no token that can't be guessed, no download
  }
  std::lock_guard lock(_m);
  _downloads.emplace_back(token, Download{path, name});
  if (_downloads.size() > kMaxDownloads) _downloads.erase(_downloads.begin());
  const std::string message = _message("download", {{"url", "/download/" + token}, {"name", name}});
  auto tab = std::find_if(_clients.begin(), _clients.end(),
                          [this](const auto& c) { return c->_id == _lastTab; });
  if (tab != _clients.end()) {
    (*tab)->_push(message);
    return;
  }
  // The tab that asked is gone: whichever is open takes it.
  if (!_clients.empty()) _clients.front()->_push(message);
}

std::optional<BrowserBridge::Download> BrowserBridge::download(const std::string& token) const {
  std::lock_guard lock(_m);
  for (const auto& [known, file] : _downloads)
    if (known == token) return file;
  return std::nullopt;
}

// Web views.

std::unique_ptr<WebView> BrowserBridge::makeWebView() {
  auto view = std::make_unique<BrowserWebView>(*this, "w" + std::to_string(_nextWebView++));
  _webViews[view->id()] = view.get();
  return view;
}

std::string BrowserBridge::baseUrlForFolder(const std::string& folder) {
  std::lock_guard lock(_m);
  _mediaFolder = folder;
  return "/m/" + _options.token + "/";
}

std::string BrowserBridge::resourceBaseUrl() {
  return "/r/" + _options.token + "/";
}

std::string BrowserBridge::mediaFolder() const {
  std::lock_guard lock(_m);
  return _mediaFolder;
}

void BrowserBridge::openURL(const std::string& url) {
  // Only what a browser opens as a page or a mail; never a script.
  static const std::vector<std::string> schemes = {"http://", "https://", "mailto:"};
  if (std::none_of(schemes.begin(), schemes.end(),
                   [&url](const std::string& s) { return url.rfind(s, 0) == 0; }))
    return;
  std::lock_guard lock(_m);
  _broadcast("openUrl", {{"url", url}});
}

void BrowserBridge::_loadWebPage(BrowserWebView& view, const std::string& html,
                                 const std::string& baseUrl) {
  std::lock_guard lock(_m);
  // A new address for each load, so that a tab never shows a cached older page.
  std::string src =
      "/m/" + _options.token + "/?page=" + view.id() + "&v=" + std::to_string(++_pageVersion);
  _webPages[view.id()] = {{"html", html}, {"base", baseUrl}, {"src", src}};
  _broadcast("web", {{"id", view.id()}, {"src", src}});
}

std::optional<std::string> BrowserBridge::pageDocument(const std::string& id) const {
  std::lock_guard lock(_m);
  auto it = _webPages.find(id);
  if (it == _webPages.end()) return std::nullopt;
  const std::string& html = it->second["html"].get_ref<const std::string&>();
  const std::string& base = it->second["base"].get_ref<const std::string&>();
  // The frame's own script (answers script calls, reports loads, links and keys) runs
  // before anything of the page. Relative links already resolve in the media folder; any
  // other base is set as the page asked.
  auto boot = Resources::get("web/frame.js");
  std::string head = "<script>" + (boot ? std::string(*boot) : std::string()) + "</script>";
  if (!base.empty() && base != "/m/" + _options.token + "/") {
    std::string quoted;
    for (char c : base) quoted += c == '"' ? std::string("&quot;") : std::string(1, c);
    head = "<base href=\"" + quoted + "\">" + head;
  }
  size_t at = 0;
  for (size_t i = 0; i + 5 <= html.size(); ++i) {
    if (html[i] == '<' &&
        (html.compare(i + 1, 4, "head") == 0 || html.compare(i + 1, 4, "HEAD") == 0) &&
        (html[i + 5] == '>' || html[i + 5] == ' ')) {
      size_t end = html.find('>', i);
      if (end != std::string::npos) at = end + 1;
      break;
    }
  }
  return html.substr(0, at) + head + html.substr(at);
}

std::string BrowserBridge::_evaluate(BrowserWebView& view, const std::string& script) {
  std::unique_lock lock(_m);
  if (_clients.empty() || _closed) return "";
  uint64_t call = _nextEval++;
  auto pending = std::make_shared<PendingEval>();
  _evals[call] = pending;
  _broadcast("eval", {{"web", view.id()}, {"call", call}, {"script", script}});
  _evalCv.wait_for(lock, std::chrono::duration<double>(_options.evalTimeout),
                   [&] { return pending->done || _closed; });
  _evals.erase(call);
  return pending->done ? pending->result : "";
}

void BrowserBridge::_run(BrowserWebView& view, const std::string& script) {
  std::lock_guard lock(_m);
  _broadcast("eval", {{"web", view.id()}, {"call", 0}, {"script", script}});
}

std::unique_ptr<AudioPlayer> BrowserBridge::makeAudioPlayer() {
  auto player =
      std::make_unique<BrowserAudioPlayer>(*this, "a" + std::to_string(_nextAudioPlayer++));
  _audioPlayers[player->id()] = player.get();
  return player;
}

void BrowserBridge::_audio(BrowserAudioPlayer& player, Json command) {
  command["id"] = player.id();
  std::lock_guard lock(_m);
  _broadcast("audio", command);
}

void BrowserBridge::_forgetAudio(BrowserAudioPlayer& player) {
  _audioPlayers.erase(player.id());
}

void BrowserBridge::_forgetWebView(BrowserWebView& view) {
  _webViews.erase(view.id());
  std::lock_guard lock(_m);
  _webPages.erase(view.id());
  _broadcast("webGone", {{"id", view.id()}});
}

}  // namespace rivo
