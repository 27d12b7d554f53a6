#include "app/AllActionsViewController.h"

#include <algorithm>
#include <set>

#include "app/ActionsManager.h"
#include "app/AppDelegate.h"

namespace rivo {

AllActionsViewController::AllActionsViewController(AppDelegate& app) : _app(app) {
  // Those with controls of their own.
  static const std::set<std::string> left = {"more",        "off",        "showAnswer",
                                             "answerWrong", "answerHard", "answerGood",
                                             "answerEasy",  "tools"};
  const auto& names = ActionsManager::longNames();
  for (const auto& [key, name] : names)
    if (!left.count(key)) _keys.push_back(key);
  std::sort(_keys.begin(), _keys.end(), [&names](const std::string& a, const std::string& b) {
    return names.at(a) < names.at(b);
  });
}

Screen AllActionsViewController::describe() {
  Screen s;
  s.title = "All Actions";
  Screen::Section section;
  for (const std::string& key : _keys) {
    Screen::Row row;
    row.id = key;
    row.text = ActionsManager::longNames().at(key);
    section.rows.push_back(std::move(row));
  }
  s.sections.push_back(std::move(section));
  return s;
}

bool AllActionsViewController::handle(const Event& e) {
  if (e.element != "row" || e.kind != "select") return false;
  if (std::find(_keys.begin(), _keys.end(), e.id) == _keys.end()) return false;
  _app.acts().run(e.id);
  return true;
}

}  // namespace rivo
