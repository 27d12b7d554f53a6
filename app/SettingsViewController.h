#pragma once
// A settings page from its description (resources/settings/NAME.json): switches, choices
// (opening a MultiValueEditorViewController), child pages (another page, a code-described
// table by its delegate's name, or a screen by its class name), and buttons whose actions
// log out, force a full sync, check the database or check the media. Main loop only.

#include <memory>
#include <string>

#include "app/SettingsMetadataSource.h"
#include "app/ViewController.h"

namespace rivo {

class AppDelegate;

class SettingsViewController : public ViewController {
 public:
  // Raises AppError when the page doesn't exist.
  SettingsViewController(AppDelegate& app, const std::string& file);

  Screen describe() override;
  bool handle(const Event& event) override;
  void viewWillAppear() override;
  void viewWillDisappear() override;

  SettingsMetadataSource& source() { return _source; }
  // Stores an edit and shows the rows that depend on it.
  void setValue(const Json& value, const std::string& key);

  // The screen a child pane names by "ConfigDelegateClass" or "ViewControllerClass"; null for
  // a name that isn't known.
  static std::shared_ptr<ViewController> screenForClass(AppDelegate& app, const std::string& name);

 private:
  const Json* _itemForId(const std::string& id) const;
  void _showEditor(const Json& item);
  void _performAction(const std::string& action);
  void _checkDatabase();

  AppDelegate& _app;
  SettingsMetadataSource _source;
};

}  // namespace rivo
