#pragma once
// The choice of one value of a settings row ("Titles" shown, "Values" stored): a list with
// the current one checked; a tap chooses and goes back. Main loop only.

#include "app/ViewController.h"
#include "librivo/Json.h"

namespace rivo {

class SettingsViewController;

class MultiValueEditorViewController : public ViewController {
 public:
  // `owner` is the page below this one on the stack, and outlives it there.
  MultiValueEditorViewController(SettingsViewController& owner, Json item)
      : _owner(owner), _item(std::move(item)) {}

  Screen describe() override;
  bool handle(const Event& event) override;

  // The title of the stored value, or the value as text when no title has it.
  static std::string titleForValue(const Json& item, const Json& value);

 private:
  SettingsViewController& _owner;
  Json _item;
};

}  // namespace rivo
