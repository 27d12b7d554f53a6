#include "app/ProfilesViewController.h"

#include "app/AppDelegate.h"
#include "app/AppError.h"
#include "app/NavigationController.h"
#include "app/ProfileManager.h"
#include "app/StudyViewController.h"
#include "app/Ui.h"

namespace rivo {

Screen ProfilesViewController::describe() {
  Screen s;
  s.title = "Profiles";
  s.right.push_back({"add", "Add", "add"});
  Screen::Section section;
  section.footer = "Each profile has its own collection and settings.";
  std::string current = _app.pm().currentProfile();
  for (const std::string& name : _app.pm().profiles()) {
    Screen::Row row;
    row.id = row.text = name;
    if (name == current) {
      row.accessory = Screen::Accessory::check;
      row.tone = "current";
    }
    row.hasMenu = true;
    section.rows.push_back(std::move(row));
  }
  s.sections.push_back(std::move(section));
  return s;
}

bool ProfilesViewController::handle(const Event& e) {
  if (e.element == "button" && e.id == "add") {
    addProfile();
    return true;
  }
  if (e.element != "row" || !_app.pm().hasProfile(e.id)) return false;
  if (e.kind == "select")
    switchTo(e.id);
  else if (e.kind == "menu")
    showActions(e.id);
  else
    return false;
  return true;
}

std::string ProfilesViewController::_acceptableName(const std::string& typed,
                                                    const char* existsMessage) {
  std::string name = ProfileManager::sanitizeName(typed);
  if (!ProfileManager::isLegalName(name)) {
    _app.showInfo(ProfileManager::kBadNameMessage);
    return "";
  }
  if (_app.pm().hasProfile(name)) {
    _app.showInfo(existsMessage);
    return "";
  }
  return name;
}

void ProfilesViewController::addProfile() {
  _app.ui().askText("Create profile", "", {{"Name", "", false}}, "Cancel", "OK",
                    [this](int index, std::vector<std::string> texts) {
                      if (index != 1 || texts.empty()) return;
                      std::string name = _acceptableName(texts[0], kExistsOnAdd);
                      if (name.empty()) return;
                      _app.pm().create(name);
                      setNeedsDisplay();
                    });
}

void ProfilesViewController::showActions(const std::string& name) {
  if (name == _app.pm().currentProfile()) {
    _app.showInfo("To rename or delete this profile, please select another first.");
    return;
  }
  _app.ui().showActionSheet("Action", {"Rename", "Delete"}, "Cancel", [this, name](int index) {
    if (index == 0) renameProfile(name);
    if (index == 1) deleteProfile(name);
  });
}

void ProfilesViewController::renameProfile(const std::string& old) {
  if (old == _app.pm().currentProfile()) {
    _app.showInfo("Please select another profile before renaming this one.");
    return;
  }
  _app.ui().askText("Rename '" + old + "'", "", {{"Name", old, false}}, "Cancel", "OK",
                    [this, old](int index, std::vector<std::string> texts) {
                      if (index != 1 || texts.empty() || !_app.pm().hasProfile(old)) return;
                      std::string name = _acceptableName(texts[0], kExistsOnRename);
                      if (name.empty()) return;
                      try {
                        _app.pm().renameFrom(old, name);
                      } catch (const AppError& e) {
                        _app.showInfo(e.what());
                      }
                      setNeedsDisplay();
                    });
}

void ProfilesViewController::deleteProfile(const std::string& name) {
  if (name == _app.pm().currentProfile()) {
    _app.showInfo("Please select another profile before deleting this one.");
    return;
  }
  _app.askUser("Delete profile?", "Confirm Delete", [this, name](bool yes) {
    // The list may have changed while the question was up.
    if (!yes || !_app.pm().hasProfile(name) || name == _app.pm().currentProfile()) return;
    try {
      _app.pm().remove(name);
    } catch (const AppError& e) {
      _app.showInfo(e.what());
    }
    setNeedsDisplay();
  });
}

void ProfilesViewController::switchTo(const std::string& name) {
  if (name == _app.pm().currentProfile()) return;
  AppDelegate& app = _app;
  app.doWork(
      "Loading profile: " + name, [&app, name] { app.pm().loadProfileWithName(name); },
      [&app] {
        app.applyStyleSheet();
        // The review screen's card belonged to the collection just closed.
        if (StudyViewController* svc = app.svc()) svc->reset();
      });
  // The deck list reloads on appearing, in a job behind this one.
  navigationController()->popToRoot();
}

}  // namespace rivo
