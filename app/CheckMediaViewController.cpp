#include "app/CheckMediaViewController.h"

#include "app/AppDelegate.h"
#include "librivo/Col.h"

namespace rivo {

void CheckMediaViewController::viewWillAppear() {
  if (_state != State::idle) return;
  _state = State::scanning;
  _text = "Checking media...";
  auto result = std::make_shared<std::optional<MediaManager::CheckResult>>();
  std::weak_ptr<bool> alive = _alive;
  AppDelegate& app = _app;
  app.doWork(
      "Checking media...",
      [&app, result, progress = _progress()] { *result = app.col()->media().check(progress); },
      [result, alive, this] {
        if (alive.expired() || !*result) return;
        _result = std::move(*result);
        _state = State::report;
        setNeedsDisplay();
      },
      AppDelegate::JobUi::ownScreen);
}

void CheckMediaViewController::viewWillDisappear() {
  _abort->store(true);
}

MediaManager::CheckProgress CheckMediaViewController::_progress() {
  std::weak_ptr<bool> alive = _alive;
  auto abort = _abort;
  AppDelegate& app = _app;
  return [&app, alive, abort, this](const std::string& text) {
    app.doOnMain([alive, this, text] {
      if (!alive.expired()) _setText(text);
    });
    return !abort->load();
  };
}

void CheckMediaViewController::_setText(const std::string& text) {
  _text = text;
  setNeedsDisplay();
}

Screen CheckMediaViewController::describe() {
  Screen s;
  s.title = "Check Media";
  if (_state == State::report && _result && !_result->unused.empty())
    s.right.push_back({"deleteUnused", "Delete Unused"});
  if (_state == State::scanning || _state == State::deleting || _state == State::done) {
    s.progress.shown = true;
    s.progress.text = _text;
    s.progress.activity = _state != State::done;
  }
  if (!_result) return s;
  auto list = [](const std::string& title, const std::vector<std::string>& names) {
    Screen::Section section;
    section.title = title;
    for (size_t i = 0; i < names.size(); ++i) {
      Screen::Row r;
      r.id = title.substr(0, 1) + std::to_string(i);
      r.text = names[i];
      r.selectable = false;
      section.rows.push_back(std::move(r));
    }
    if (names.empty()) section.footer = "<none>";
    return section;
  };
  s.sections.push_back(list(
      std::to_string(_result->missing.size()) + " file(s) referenced in notes but missing file:",
      _result->missing));
  Screen::Section unused =
      list(std::to_string(_result->unused.size()) + " file(s) present but not used by any notes:",
           _result->unused);
  if (_result->haveLatex)
    unused.footer += (unused.footer.empty() ? "" : "\n") +
                     std::string(
                         "LaTeX use found. Please use the computer version to check "
                         "LaTeX files.");
  s.sections.push_back(std::move(unused));
  return s;
}

bool CheckMediaViewController::handle(const Event& e) {
  if (e.element == "button" && e.id == "deleteUnused" && _state == State::report && _result &&
      !_result->unused.empty()) {
    _deleteUnused();
    return true;
  }
  return false;
}

void CheckMediaViewController::_deleteUnused() {
  _state = State::deleting;
  _text = "Deleted 0 files...";
  setNeedsDisplay();
  std::vector<std::string> names = _result->unused;
  std::weak_ptr<bool> alive = _alive;
  AppDelegate& app = _app;
  app.doWork(
      "Deleting...",
      [&app, names, progress = _progress()] {
        MediaManager::removeUnused(app.col()->media().dir(), names, progress);
      },
      [alive, this] {
        if (alive.expired()) return;
        _state = State::done;
        _setText("Unused files removed.");
      },
      AppDelegate::JobUi::ownScreen);
}

}  // namespace rivo
