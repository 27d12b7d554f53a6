#include "app/StudySettingsViewController.h"

#include <algorithm>
#include <cstdio>

#include "app/ActionsManager.h"
#include "app/AppDelegate.h"
#include "app/ProfileManager.h"

namespace rivo {

namespace {

// The action of a button slot, or "" when the slot is unused.
std::string slotAction(ProfileManager& pm, int slot) {
  std::string key = pm.stringForKey("button" + std::to_string(slot));
  if (key == "off" || !ActionsManager::longNames().count(key)) return "";
  return key;
}

}  // namespace

StudySettingsViewController::StudySettingsViewController(AppDelegate& app)
    : _app(app), _fontScale(app.pm().floatForKey("FontScale")) {
  if (_fontScale <= 0) _fontScale = 1;
}

Screen StudySettingsViewController::describe() {
  Screen s;
  s.title = "Tools";
  Screen::Section options;
  Screen::Row study;
  study.id = "studyOptions";
  study.text = "Study Options";
  study.accessory = Screen::Accessory::push;
  options.rows.push_back(study);
  Screen::Row font;
  font.id = "fontScale";
  font.text = "Text Size";
  font.selectable = false;
  font.hasSlider = true;
  font.min = 0.2;
  font.max = 2.0;
  font.step = 0.1;
  font.value = _fontScale;
  font.decimals = 1;
  font.unit = "x";
  char detail[16];
  std::snprintf(detail, sizeof detail, "%.1fx", static_cast<double>(_fontScale));
  font.detail = detail;
  options.rows.push_back(font);
  s.sections.push_back(std::move(options));

  Screen::Section buttons;
  buttons.title = "Actions";
  for (int slot = 1; slot <= 12; ++slot) {
    std::string key = slotAction(_app.pm(), slot);
    if (key.empty()) continue;
    Screen::Row row;
    row.id = "button" + std::to_string(slot);
    row.text = ActionsManager::longNames().at(key);
    buttons.rows.push_back(std::move(row));
  }
  if (!buttons.rows.empty()) s.sections.push_back(std::move(buttons));
  return s;
}

bool StudySettingsViewController::handle(const Event& e) {
  if (e.element != "row") return false;
  if (e.id == "fontScale" && e.kind == "change" && e.value.is_number()) {
    _fontScale = std::clamp(e.value.get<float>(), 0.2f, 2.0f);
    setNeedsDisplay();
    return true;
  }
  if (e.kind != "select") return false;
  if (e.id == "studyOptions") return _app.acts().perform("studyOptions");
  if (e.id.rfind("button", 0) != 0) return false;
  int slot = std::atoi(e.id.c_str() + 6);
  std::string key = slot >= 1 && slot <= 12 ? slotAction(_app.pm(), slot) : "";
  return !key.empty() && _app.acts().perform(key);
}

void StudySettingsViewController::viewWillDisappear() {
  _app.pm().setFloat(_fontScale, "FontScale");
}

}  // namespace rivo
