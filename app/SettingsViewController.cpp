#include "app/SettingsViewController.h"

#include <cstdio>
#include <memory>

#include "app/AppDelegate.h"
#include "app/BackupManager.h"
#include "app/CheckMediaViewController.h"
#include "app/CollectionOptions.h"
#include "app/DeckOptions.h"
#include "app/MultiValueEditorViewController.h"
#include "app/NavigationController.h"
#include "app/ProfileManager.h"
#include "app/RVConfigTableController.h"
#include "app/SyncFlow.h"
#include "librivo/Col.h"

namespace rivo {

namespace {

std::string str(const Json& item, const char* key) {
  return item.contains(key) && item[key].is_string() ? item[key].get<std::string>() : "";
}

}  // namespace

SettingsViewController::SettingsViewController(AppDelegate& app, const std::string& file)
    : _app(app), _source(file, app.pm()) {}

std::shared_ptr<ViewController> SettingsViewController::screenForClass(AppDelegate& app,
                                                                       const std::string& name) {
  if (name == "CollectionOptions")
    return std::make_shared<RVConfigTableController>(std::make_shared<CollectionOptions>(app));
  if (name == "DeckOptions")
    return std::make_shared<RVConfigTableController>(std::make_shared<DeckOptions>(app));
  if (name == "BackupManager") return std::make_shared<BackupManager>(app);
  if (name == "CheckMediaViewController") return std::make_shared<CheckMediaViewController>(app);
  return nullptr;
}

void SettingsViewController::viewWillAppear() {
  // A child page may have changed what this one shows or hides.
  _source.reload();
}

void SettingsViewController::viewWillDisappear() {
  _source.save();
}

void SettingsViewController::setValue(const Json& value, const std::string& key) {
  _source.setValue(value, key);
  // Saved at once: a browser tab can close without leaving the page first.
  _source.save();
  if (key == "theme7") _app.applyStyleSheet();
  _source.reload();
  setNeedsDisplay();
}

const Json* SettingsViewController::_itemForId(const std::string& id) const {
  size_t s = 0, r = 0;
  if (std::sscanf(id.c_str(), "s%zur%zu", &s, &r) != 2) return nullptr;
  const auto& sections = _source.sections();
  if (s >= sections.size() || !sections[s].is_array() || r >= sections[s].size()) return nullptr;
  return &sections[s][r];
}

Screen SettingsViewController::describe() {
  Screen s;
  s.title = _source.title();
  const auto& sections = _source.sections();
  for (size_t i = 0; i < sections.size(); ++i) {
    Screen::Section out;
    if (i < _source.sectionTitles().size()) out.title = _source.sectionTitles()[i];
    if (!sections[i].is_array()) continue;  // editable arrays: no page here has one
    for (size_t j = 0; j < sections[i].size(); ++j) {
      const Json& item = sections[i][j];
      std::string type = str(item, "Type");
      std::string key = str(item, "Key");
      Screen::Row r;
      r.id = "s" + std::to_string(i) + "r" + std::to_string(j);
      r.text = str(item, "Title");
      r.indent = static_cast<int>(jsonInt(item.value("IndentLevel", Json(0))));
      if (type == "PSToggleSwitchSpecifier") {
        r.selectable = false;
        r.hasSwitch = true;
        Json v = _source.valueForKey(key);
        r.on = (v.is_boolean() && v.get<bool>()) || (v.is_number() && v.get<double>() != 0);
      } else if (type == "PSMultiValueSpecifier") {
        r.detail = MultiValueEditorViewController::titleForValue(item, _source.valueForKey(key));
        r.accessory = Screen::Accessory::push;
      } else if (type == "PSChildPaneSpecifier") {
        r.accessory = Screen::Accessory::push;
      } else if (type == "PSTextFieldSpecifier" || type == "Integer") {
        r.selectable = false;
        r.hasField = true;
        Json v = _source.valueForKey(key);
        r.field = v.is_string() ? v.get<std::string>() : v.is_null() ? "" : v.dump();
        if (type == "Integer") r.keyboard = "number";
      } else if (type == "PSTitleValueSpecifier") {
        r.selectable = false;
        Json v = _source.valueForKey(key);
        r.detail = v.is_string() ? v.get<std::string>() : v.is_null() ? "" : v.dump();
      } else if (type == "Button") {
        r.text = str(item, "ButtonText");
        r.tone = "button";
        if (str(item, "Action") == "deauthorize") {
          std::string uname = _app.pm().stringForKey("uname");
          if (!uname.empty()) r.detail = "Deauth " + uname;
        }
      } else {
        continue;  // a type no row knows
      }
      out.rows.push_back(std::move(r));
    }
    s.sections.push_back(std::move(out));
  }
  return s;
}

bool SettingsViewController::handle(const Event& e) {
  if (e.element != "row") return false;
  const Json* found = _itemForId(e.id);
  if (!found) return false;
  Json item = *found;  // a reload below replaces the sections
  std::string type = str(item, "Type");
  std::string key = str(item, "Key");
  if (type == "PSToggleSwitchSpecifier" && e.kind == "change" && e.value.is_boolean()) {
    setValue(e.value, key);
    return true;
  }
  if ((type == "PSTextFieldSpecifier" || type == "Integer") && e.kind == "change" &&
      e.value.is_string()) {
    setValue(e.value, key);
    return true;
  }
  if (e.kind != "select") return false;
  if (type == "Button") {
    _performAction(str(item, "Action"));
    return true;
  }
  if (type == "PSMultiValueSpecifier" || type == "PSChildPaneSpecifier") {
    _showEditor(item);
    return true;
  }
  return false;
}

void SettingsViewController::_showEditor(const Json& item) {
  NavigationController* nc = navigationController();
  if (!nc) return;
  if (str(item, "Type") == "PSMultiValueSpecifier") {
    nc->push(std::make_shared<MultiValueEditorViewController>(*this, item));
    return;
  }
  std::string file = str(item, "File");
  std::shared_ptr<ViewController> next;
  if (!file.empty())
    next = std::make_shared<SettingsViewController>(_app, file);
  else if (std::string cls = str(item, "ConfigDelegateClass"); !cls.empty())
    next = screenForClass(_app, cls);
  else
    next = screenForClass(_app, str(item, "ViewControllerClass"));
  if (next) nc->push(std::move(next));
}

void SettingsViewController::_performAction(const std::string& action) {
  if (action == "deauthorize") {
    SyncFlow::deauthorize(_app, [this] {
      _source.reload();
      setNeedsDisplay();
    });
  } else if (action == "fullSync") {
    SyncFlow::fullSync(_app);
  } else if (action == "checkDB") {
    _checkDatabase();
  } else if (action == "checkMedia") {
    if (NavigationController* nc = navigationController())
      nc->push(std::make_shared<CheckMediaViewController>(_app));
  }
}

void SettingsViewController::_checkDatabase() {
  AppDelegate& app = _app;
  // A fresh backup first, so the state before any repair can be had back.
  app.maybeBackup(true, [&app] {
    auto text = std::make_shared<std::string>();
    app.doWork(
        "Checking...",
        [&app, text] {
          *text = app.col()->fixIntegrity();
          if (text->empty()) *text = "Database rebuilt and optimized.";
        },
        [&app, text] { app.showInfo(*text); });
  });
}

}  // namespace rivo
