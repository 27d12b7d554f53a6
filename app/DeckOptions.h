#pragma once
// The options table of one deck: which options group it uses (choose, add as a copy, delete)
// and every value of that group. Each row writes its key and saves the group at once; the
// study screen is reset so the next card follows. During the review of a filtered deck's
// card the group shown is that of the card's home deck, while a change of group goes to the
// current deck. Main loop only, with the collection idle.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/RVConfigTableDelegate.h"
#include "librivo/Json.h"

namespace rivo {

class AppDelegate;
class RVConfigTableController;

class DeckOptions : public RVConfigTableDelegate {
 public:
  explicit DeckOptions(AppDelegate& app) : _app(app) {}

  void setupConfigTable(RVConfigTableController& table) override;
  void reload();

  static std::string stepsToString(const Json& steps);
  // Numbers of the text, each limited to 1..144000, words dropped; nothing when none is left.
  static std::optional<Json> stringToSteps(const std::string& text);

  const std::vector<std::string>& optionGroupIds() const { return _optionGroupIds; }

 private:
  Json* _deck() const;   // the deck whose group is shown
  Json* _group() const;  // that group
  void _buildRows();
  void _buildGroupList(std::vector<std::string>& texts, int& idx);
  void _saveGroup();
  void _setOptionsGroupIdx(int idx);
  void _commitOptionsGroupDelete(RVConfigTableController& detail, int idx);
  void _addOptionsGroupItem(RVConfigTableController& detail);
  void _restoreDefaults();

  AppDelegate& _app;
  RVConfigTableController* _table = nullptr;
  std::vector<std::string> _optionGroupIds;
  // Expires with this object, so an alert answered later does nothing.
  std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
};

}  // namespace rivo
