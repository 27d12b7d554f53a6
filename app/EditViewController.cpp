#include "app/EditViewController.h"

#include <unicode/regex.h>

#include <filesystem>
#include <fstream>

#include "app/ActionsManager.h"
#include "app/AppDelegate.h"
#include "app/DeckAndNoteTypeSelector.h"
#include "app/HTMLAudioPlayer.h"
#include "app/NavigationController.h"
#include "app/PreviewController.h"
#include "app/ProfileManager.h"
#include "app/RecordingConverter.h"
#include "app/Resources.h"
#include "app/StudyViewController.h"
#include "app/Ui.h"
#include "app/UrlText.h"
#include "librivo/Card.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/MediaManager.h"
#include "librivo/ModelManager.h"
#include "librivo/Note.h"
#include "librivo/Scheduler.h"
#include "librivo/StoredCodes.h"
#include "librivo/TagManager.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

// Field text may hold bytes that aren't UTF-8 (notes from elsewhere): they are replaced in
// what the page sees rather than stopping the program.
std::string js(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string htmlAttribute(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '<':
        out += "&lt;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

bool boolAt(const Json& obj, const char* key, bool fallback) {
  if (!obj.contains(key)) return fallback;
  const Json& v = obj[key];
  return v.is_boolean() ? v.get<bool>() : fallback;
}

// The first bytes of every JPEG file; the page sends nothing else.
bool looksLikeJpeg(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  unsigned char head[3] = {0, 0, 0};
  in.read(reinterpret_cast<char*>(head), 3);
  return in.gcount() == 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF;
}

}  // namespace

EditViewController::EditViewController(AppDelegate& app) : _app(app) {}

EditViewController::~EditViewController() = default;

Col& EditViewController::_col() const {
  return *_app.col();
}

void EditViewController::_js(const std::string& script) {
  if (_web) _web->runJavaScript(script);
}

void EditViewController::setupWithCard(std::unique_ptr<Card> card) {
  _card = std::move(card);
  _adding = !_card;
  if (_adding) {
    _note = _col().newNote();
    _did = _col().decks().selected();
  } else {
    _note = _card->note();
  }
  _checkDuplicate();
}

// The page.

void EditViewController::viewWillAppear() {
  if (_web) return;
  _web = _app.ui().makeWebView();
  _web->setDelegate(this);
  _loaded = false;
  auto page = Resources::get("editor/editor.html");
  std::string html = page ? std::string(*page) : "<div id=fields></div>";
  _web->loadHTMLString(UrlText::replaceAll(html, "$RES/", _app.ui().resourceBaseUrl()),
                       _app.ui().baseUrlForFolder(_app.pm().mediaFolder()));
}

void EditViewController::viewWillDisappear() {
  // The page stays while a screen above it (preview, selector) is shown; it reloads on return
  // in a browser, and didFinishLoad sends the note again.
}

void EditViewController::didFinishLoad(WebView&) {
  // A new page counts its reports from the start again.
  _seq = 0;
  _loaded = true;
  sendFields();
}

void EditViewController::sendFields() {
  if (!_note) return;
  Json items = Json::array();
  for (const auto& [name, value] : _note->items()) items.push_back({name, value});
  Json all = Json::array();
  for (const std::string& tag : _col().tags().all()) all.push_back(tag);
  _js(std::string("rivo.wysiwygMode = ") + (_wysiwygMode ? "true" : "false") + "; rivo.setFields(" +
      js(items) + "); rivo.setTags(" + js(Json(_note->tags)) + "," + js(all) + ");");
  if (_adding) {
    const Json* deck = _col().decks().getDeck(Json(_did), false);
    const std::string deckName = deck ? jsonText(*deck, "name") : "";
    _js("rivo.setDeckAndNoteType(" + js(deckName) + "," + js(jsonText(_note->model(), "name")) +
        ")");
  } else {
    _js("rivo.setDeckAndNoteType();");
  }
  _js("rivo.setWarning(" + js(_duplicate) + ");");
}

bool EditViewController::shouldStartLoad(WebView&, const std::string& url,
                                         WebView::NavigationType) {
  size_t hash = url.find('#');
  if (hash == std::string::npos || hash + 1 == url.size()) return true;
  handleFragment(UrlText::percentDecode(url.substr(hash + 1)));
  return false;
}

void EditViewController::handleFragment(const std::string& fragment) {
  UErrorCode status = U_ZERO_ERROR;
  static const icu::UnicodeString pattern = icu::UnicodeString::fromUTF8("^([^:]+):([^:]+):(.*)$");
  // The matcher keeps a reference to its input.
  const icu::UnicodeString input = icu::UnicodeString::fromUTF8(fragment);
  icu::RegexMatcher m(pattern, input, UREGEX_DOTALL, status);
  if (U_FAILURE(status) || !m.find()) {
    _app.log("couldn't split");
    return;
  }
  std::string command, middle, data;
  m.group(1, status).toUTF8String(command);
  m.group(2, status).toUTF8String(middle);
  m.group(3, status).toUTF8String(data);
  // The middle piece makes each report unique; this page puts its number there.
  const Json seq = Json(std::strtoll(middle.c_str(), nullptr, 10));
  const Json body = Json::parse(data, nullptr, false);
  if (command == "state") {
    if (body.is_object()) _applyState(body);
  } else if (command == "field") {
    if (!body.is_object() || !_fresh(seq)) return;
    const Json& idx = body.contains("idx") ? body["idx"] : Json();
    const Json& text = body.contains("data") ? body["data"] : Json();
    if (idx.is_number_integer() && idx.get<int64_t>() >= 0 && text.is_string())
      saveField(idx.get<size_t>(), text.get<std::string>());
  } else if (command == "tags") {
    if (!body.is_array() || !_fresh(seq)) return;
    std::vector<std::string> tags;
    for (const Json& t : body)
      if (t.is_string()) tags.push_back(t.get<std::string>());
    saveTags(tags);
  } else if (command == "log") {
    _app.log("log:" + data);
  } else if (command == "togglehtml") {
    toggleHTML();
  } else if (command == "changeNoteType") {
    changeNoteType();
  } else if (command == "changeDeck") {
    changeDeck();
  } else {
    // The page's scripts share the frame with field HTML, which may say anything: an unknown
    // report is logged, never obeyed.
    _app.log("uncaught location: " + command);
  }
}

bool EditViewController::_fresh(const Json& seq) {
  const int64_t n = seq.is_number_integer() ? seq.get<int64_t>() : 0;
  if (n < _seq) return false;
  _seq = n;
  return true;
}

void EditViewController::_applyState(const Json& state) {
  _focused = boolAt(state, "focused", _focused);
  _boldOn = boolAt(state, "bold", _boldOn);
  _italicsOn = boolAt(state, "italic", _italicsOn);
  _underlineOn = boolAt(state, "under", _underlineOn);
  _textSelected = boolAt(state, "selected", _textSelected);
  setNeedsDisplay();
}

void EditViewController::saveField(size_t idx, const std::string& txt) {
  if (!_note || idx >= _note->fields.size()) return;
  // What a browser leaves in an emptied editable element.
  const std::string value = txt == "<br>" ? "" : txt;
  if (_note->fields[idx] == value) return;
  _note->fields[idx] = value;
  markModified();
  if (idx == 0) _checkDuplicate();
}

void EditViewController::saveTags(const std::vector<std::string>& tags) {
  if (!_note || _note->tags == tags) return;
  _note->tags = tags;
  markModified();
}

void EditViewController::markModified() {
  if (_modified) return;
  _modified = true;
  setNeedsDisplay();
}

void EditViewController::clearModified() {
  _modified = false;
  setNeedsDisplay();
}

void EditViewController::_checkDuplicate() {
  std::string warning;
  if (_note && !_note->fields.empty() && _note->dupeOrEmpty() == 2)
    warning = "Another note of this type has the same first field.";
  if (warning == _duplicate) return;
  _duplicate = warning;
  if (_loaded) _js("rivo.setWarning(" + js(_duplicate) + ");");
}

bool EditViewController::removeFocus() {
  return _pull("rivo.removeFocus()");
}

bool EditViewController::_pull(const std::string& script) {
  if (!_web) return false;
  const std::string answer = _web->evaluateJavaScript(script);
  const Json state = Json::parse(answer, nullptr, false);
  if (!state.is_object()) return false;
  _tooLong = state.contains("tooLong");
  if (!_fresh(state.contains("seq") ? state["seq"] : Json(0))) return true;
  if (state.contains("fields") && state["fields"].is_array()) {
    const Json& fields = state["fields"];
    for (size_t i = 0; i < fields.size(); ++i)
      if (fields[i].is_string()) saveField(i, fields[i].get<std::string>());
  }
  if (state.contains("tags") && state["tags"].is_array()) {
    std::vector<std::string> tags;
    for (const Json& t : state["tags"])
      if (t.is_string()) tags.push_back(t.get<std::string>());
    saveTags(tags);
  }
  return true;
}

// The screen.

bool EditViewController::_isCloze() const {
  return _note &&
         jsonInt(_note->model().contains("type") ? _note->model()["type"] : Json(0)) == kModelCloze;
}

Screen EditViewController::describe() {
  Screen s;
  s.title = _adding ? "Add" : "Edit";
  s.titleIsButton = true;
  s.hidesBackButton = true;
  s.left.push_back({"cancel", "Cancel"});
  if (_modified) s.right.push_back({"save", "Save"});
  s.webView = _web ? _web->id() : "";
  s.keys = {{"Control+Enter", "save", "Save"}, {"Escape", "cancel", "Cancel"}};
  if (!_toolbarShown) return s;
  const bool editing = _wysiwygMode && _focused;
  auto button = [](const char* id, const char* title, const char* icon, bool enabled,
                   bool on = false) {
    Screen::Button b{id, title, icon, enabled};
    b.on = on;
    return b;
  };
  s.toolbar.push_back(button("bold", "Bold", "bold", editing, _boldOn));
  s.toolbar.push_back(button("italic", "Italic", "italic", editing, _italicsOn));
  s.toolbar.push_back(button("underline", "Underline", "underline", editing, _underlineOn));
  s.toolbar.push_back(button("removeFormat", "Remove Formatting", "eraser", _textSelected));
  if (_isCloze()) s.toolbar.push_back(button("cloze", "Cloze", "cloze", editing));
  Screen::Button rec = button("record", "Record", "mic", editing);
  rec.recordSeconds = RecordingConverter::kMaxSeconds;
  s.toolbar.push_back(rec);
  Screen::Button image = button("image", "Image", "image", editing);
  image.accept = "image/*";
  image.imageWidth = kImageWidth;
  s.toolbar.push_back(image);
  s.toolbar.push_back(button("preview", "Preview", "eye", true));
  s.toolbar.push_back(button("html", "HTML", "code", true, !_wysiwygMode));
  return s;
}

bool EditViewController::handle(const Event& e) {
  if (e.element == "title") {
    if (_adding) {
      _toolbarShown = !_toolbarShown;
      setNeedsDisplay();
    } else {
      editTools();
    }
    return true;
  }
  if (e.element == "key") {
    if (e.id == "save") save();
    if (e.id == "cancel") cancel();
    return e.id == "save" || e.id == "cancel";
  }
  if (e.element != "button") return false;
  if (e.kind == "upload") {
    if (!e.value.is_object() || !e.value.contains("path")) return false;
    if (e.id == "image")
      addPickedImage(jsonText(e.value, "path"));
    else if (e.id == "record")
      saveRecordingToMediaAndPlay(jsonText(e.value, "path"));
    else
      return false;
    return true;
  }
  if (e.id == "record" && e.kind == "failed") {
    recordingFailed(e.value.is_object() && e.value.contains("reason") ? jsonText(e.value, "reason")
                                                                      : "");
    return true;
  }
  if (e.id == "cancel") {
    cancel();
  } else if (e.id == "save") {
    save();
  } else if (e.id == "bold" || e.id == "italic" || e.id == "underline" || e.id == "removeFormat") {
    setFormat(e.id);
  } else if (e.id == "cloze") {
    cloze();
  } else if (e.id == "record") {
    record();
  } else if (e.id == "preview") {
    preview();
  } else if (e.id == "html") {
    _js("rivo.sendHTMLToggle();");
  } else {
    return false;
  }
  return true;
}

void EditViewController::setFormat(const std::string& command) {
  _js("rivo.setFormat(" + js(command) + ")");
}

int EditViewController::highestClozeNumber(const std::vector<std::string>& fields) {
  UErrorCode status = U_ZERO_ERROR;
  static const icu::UnicodeString pattern = icu::UnicodeString::fromUTF8("\\{\\{c(\\d+)::");
  int highest = 0;
  for (const std::string& field : fields) {
    const icu::UnicodeString input = icu::UnicodeString::fromUTF8(field);
    icu::RegexMatcher m(pattern, input, 0, status);
    while (U_SUCCESS(status) && m.find()) {
      std::string digits;
      m.group(1, status).toUTF8String(digits);
      if (digits.size() < 10) highest = std::max(highest, std::stoi(digits));
    }
  }
  return highest;
}

void EditViewController::cloze() {
  if (!_note) return;
  // The page may hold edits not yet reported; the number counts them.
  _pull("rivo.pendingChanges()");
  _js("rivo.wrap('{{c" + std::to_string(highestClozeNumber(_note->fields) + 1) + "::', '}}');");
}

void EditViewController::toggleHTML() {
  _wysiwygMode = !_wysiwygMode;
  setNeedsDisplay();
  sendFields();
}

void EditViewController::_insertHTML(const std::string& html) {
  _js("rivo.restoreSelection(); rivo.setFormat('inserthtml'," + js(html) + ");");
}

bool EditViewController::_targetsExist() {
  if (!_col().models().get(_note->mid)) {
    _app.showInfo("The note type of this note was deleted. Choose another type; the text is kept.");
    setupNewNoteForAdding();
    return false;
  }
  if (!_col().decks().getDeck(Json(_did), false)) {
    _did = _col().decks().selected();
    if (!_col().decks().getDeck(Json(_did), false)) _did = 1;
    _app.showInfo("The deck this note was going to was deleted. It goes to \"" +
                  _col().decks().name(Json(_did)) +
                  "\" now, unless you choose another; the text is kept.");
    sendFields();
    return false;
  }
  return true;
}

void EditViewController::save() {
  if (!_note) return;
  removeFocus();
  if (_tooLong) {
    _app.showInfo(
        "This note is too long to save from the browser (more than 200 KB of text). Shorten a "
        "field; nothing has been lost.");
    return;
  }
  if (!_adding) {
    _note->flush();
    _col().save();
    _resetStudy();
    _close();
    return;
  }
  if (!_targetsExist()) return;
  Json* model = _col().models().get(_note->mid);
  (*model)["did"] = _did;
  if (_col().addNote(*_note) == 0) {
    _app.showInfo("This note would not generate any cards.");
    return;
  }
  _col().save();
  _resetStudy();
  clearModified();
  const std::vector<std::string> tags = _note->tags;
  _note = _col().newNote();
  if (_note) _note->tags = tags;
  _checkDuplicate();
  sendFields();
  _app.showPopup("Added");
}

void EditViewController::cancel() {
  // Nothing of the page is wanted: its edits are dropped with the note in memory.
  _js("rivo.removeFocus();");
  if (_card) _card->load();
  _close();
}

void EditViewController::_close() {
  NavigationController* nc = navigationController();
  if (nc && nc->top() == this) nc->pop();
}

void EditViewController::_resetStudy() {
  if (StudyViewController* svc = _app.svc()) svc->reset();
}

// Preview.

void EditViewController::preview() {
  if (!_note) return;
  removeFocus();
  std::vector<Card> cards =
      _col().previewCards(*_note, _adding ? Col::kPreviewApplicable : Col::kPreviewExisting);
  if (cards.empty()) {
    _app.showInfo("The provided input does not generate any cards.");
    return;
  }
  size_t pick = 0;
  for (size_t i = 0; _card && i < cards.size(); ++i)
    if (cards[i].ord == _card->ord) pick = i;
  // Edits of an existing note show in its cards before they are saved.
  cards[pick].setNote(_note);
  // The preview rolls back what it wrote when adding; nothing else may go with it.
  if (_adding) _col().save();
  auto vc = std::make_shared<PreviewController>(_app, std::make_unique<Card>(cards[pick]), _adding);
  if (NavigationController* nc = navigationController()) nc->push(vc);
}

// The edit menu.

void EditViewController::editTools() {
  if (!_card) return;
  _card->load();
  const bool suspended = _card->queue == kQueueSuspended;
  std::vector<std::string> buttons = {"Toggle Toolbar", "Card Info",
                                      suspended ? "Unsuspend Card" : "Suspend Card",
                                      suspended ? "Unsuspend Note" : "Suspend Note", "Delete Note"};
  _app.ui().showActionSheet("", buttons, "Cancel", [this, suspended](int index) {
    switch (index) {
      case 0:
        _toolbarShown = !_toolbarShown;
        setNeedsDisplay();
        break;
      case 1:
        _app.acts().showCardInfo(_card->id);
        break;
      case 2:
        _suspend(false, !suspended);
        break;
      case 3:
        _suspend(true, !suspended);
        break;
      case 4:
        _deleteNote();
        break;
      default:
        break;
    }
  });
}

void EditViewController::_suspend(bool note, bool on) {
  std::vector<Id> ids = {_card->id};
  if (note) ids = _col().db()->ids("select id from cards where nid = ?", {_card->nid});
  if (on)
    _col().sched().suspendCards(ids);
  else
    _col().sched().unsuspendCards(ids);
  _col().save();
  _resetStudy();
  _card->load();
  _app.showPopup(std::string(note ? "Note" : "Card") + (on ? " suspended" : " unsuspended"));
}

void EditViewController::_deleteNote() {
  _js("rivo.removeFocus();");
  _col().remNotes({_card->nid});
  _col().save();
  _resetStudy();
  AppDelegate& app = _app;
  _close();
  app.showPopup("Note deleted");
}

// Images.

void EditViewController::addPickedImage(const std::string& path) {
  std::error_code ec;
  const auto size = fs::file_size(path, ec);
  if (ec || size > static_cast<uintmax_t>(kMaxImageBytes) || !looksLikeJpeg(path)) {
    fs::remove(path, ec);
    _app.showInfo(
        "That image can't be added: the browser couldn't turn it into a picture Rivo can "
        "store. Try another file.");
    return;
  }
  const std::string jpg = _ownName(fs::path(path).parent_path(), "image", "jpg");
  fs::rename(path, jpg, ec);
  const std::string name = ec ? std::string() : _col().media().addFile(jpg);
  fs::remove(ec ? path : jpg, ec);
  if (name.empty()) {
    _app.showInfo("The image couldn't be stored in the media folder.");
    return;
  }
  _insertHTML("<img src=\"" + htmlAttribute(name) + "\">");
}

std::string EditViewController::_ownName(const std::string& folder, const std::string& prefix,
                                         const std::string& ext) {
  const std::string stem = prefix + "-" + std::to_string(intTime(1000));
  std::error_code ec;
  fs::path named = fs::path(folder) / (stem + "." + ext);
  for (int i = 1; fs::exists(named, ec); ++i)
    named = fs::path(folder) / (stem + "-" + std::to_string(i) + "." + ext);
  return named.string();
}

// Recordings.

void EditViewController::record() {
  _js("rivo.saveSelection();");
  if (_audioPlayer) _audioPlayer->stop();
}

void EditViewController::recordingFailed(const std::string& reason) {
  if (reason == "denied")
    _app.showInfo(
        "Please go to your browser's site settings, and allow Rivo to access the microphone.");
  else if (reason == "absent")
    _app.showInfo("No microphone was found. Connect one, then try again.");
  else if (reason == "insecure")
    _app.showInfo(
        "The browser lets pages use the microphone only over a secure connection. Open Rivo on "
        "this machine (http://127.0.0.1) or over https to record.");
  else
    _app.showInfo("Error initializing recorder.");
}

void EditViewController::saveRecordingToMediaAndPlay(const std::string& path) {
  std::error_code ec;
  const auto size = fs::file_size(path, ec);
  if (ec || size == 0 || size > static_cast<uintmax_t>(kMaxRecordingBytes)) {
    fs::remove(path, ec);
    _app.showInfo("That recording can't be added: it is empty or larger than " +
                  std::to_string(kMaxRecordingBytes >> 20) + " MB.");
    return;
  }
  const std::string m4a = _ownName(fs::path(path).parent_path(), "rec", "m4a");
  auto error = std::make_shared<std::string>();
  _app.doWork(
      "Saving recording...",
      [path, m4a, error] {
        *error = RecordingConverter::toM4a(path, m4a);
        std::error_code ec;
        fs::remove(path, ec);
      },
      [this, m4a, error] {
        const std::string name = error->empty() ? _col().media().addFile(m4a) : std::string();
        std::error_code ec;
        fs::remove(m4a, ec);
        if (name.empty()) {
          _app.showInfo(
              "The recording couldn't be saved: " +
              (error->empty() ? std::string("the media folder can't be written.") : *error));
          return;
        }
        _insertHTML("[sound:" + name + "]");
        if (!_audioPlayer) {
          _audioPlayer = _app.ui().makeAudioPlayer();
          if (_audioPlayer) _audioPlayer->setDelegate(this);
        }
        if (_audioPlayer)
          _audioPlayer->play(_app.ui().baseUrlForFolder(_app.pm().mediaFolder()) +
                                 HTMLAudioPlayer::percentEncode(name),
                             true);
      });
}

void EditViewController::audioPlayerDidFinishPlaying(AudioPlayer&, bool) {}

void EditViewController::audioPlayerDidFail(AudioPlayer&, const std::string& error) {
  _app.showInfo("Error playing recording: " + error);
}

void EditViewController::audioPlayerDecodeErrorDidOccur(AudioPlayer&, const std::string& error) {
  _app.showInfo("Error playing recording: " + error);
}

// Deck and note type.

void EditViewController::changeNoteType() {
  if (!_adding) return;
  removeFocus();
  auto vc = std::make_shared<DeckAndNoteTypeSelector>(_app, DeckAndNoteTypeSelector::kNoteTypes,
                                                      [this] { setupNewNoteForAdding(); });
  if (NavigationController* nc = navigationController()) nc->push(vc);
}

void EditViewController::changeDeck() {
  if (!_adding) return;
  removeFocus();
  auto vc =
      std::make_shared<DeckAndNoteTypeSelector>(_app, DeckAndNoteTypeSelector::kDecks, [this] {
        _did = _col().decks().selected();
        sendFields();
      });
  if (NavigationController* nc = navigationController()) nc->push(vc);
}

void EditViewController::setupNewNoteForAdding() {
  std::shared_ptr<Note> fresh = _col().newNote();
  if (!fresh) return;
  if (_note) {
    for (size_t i = 0; i < std::min(fresh->fields.size(), _note->fields.size()); ++i)
      fresh->fields[i] = _note->fields[i];
    fresh->tags = _note->tags;
  }
  _note = std::move(fresh);
  _checkDuplicate();
  sendFields();
  setNeedsDisplay();
}

}  // namespace rivo
