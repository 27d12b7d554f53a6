#pragma once
// The profile list: add, rename, delete and switch, with the refusals the profile screen
// gives. A switch loads the other profile's collection in a job and returns to the deck
// list. Main loop only.

#include <string>

#include "app/ViewController.h"

namespace rivo {

class AppDelegate;

class ProfilesViewController : public ViewController {
 public:
  static constexpr const char* kExistsOnAdd = "A profile with that name already exists.";
  static constexpr const char* kExistsOnRename = "A profile with the same name already exists.";

  explicit ProfilesViewController(AppDelegate& app) : _app(app) {}

  Screen describe() override;
  bool handle(const Event& event) override;

  void addProfile();
  void renameProfile(const std::string& name);
  void deleteProfile(const std::string& name);
  void switchTo(const std::string& name);
  // The long press: the action sheet, or why there is none.
  void showActions(const std::string& name);

 private:
  // The name to use, or empty after telling the user why there is none.
  std::string _acceptableName(const std::string& typed, const char* existsMessage);

  AppDelegate& _app;
};

}  // namespace rivo
