#include "app/MultiValueEditorViewController.h"

#include "app/NavigationController.h"
#include "app/SettingsViewController.h"

namespace rivo {

std::string MultiValueEditorViewController::titleForValue(const Json& item, const Json& value) {
  const Json& values = item.value("Values", Json::array());
  const Json& titles = item.value("Titles", Json::array());
  for (size_t i = 0; i < values.size() && i < titles.size(); ++i)
    if (values[i] == value) return titles[i].get<std::string>();
  return value.is_string() ? value.get<std::string>() : value.is_null() ? "" : value.dump();
}

Screen MultiValueEditorViewController::describe() {
  Screen s;
  s.title = _item.value("Title", "");
  Json current = _owner.source().valueForKey(_item.value("Key", ""));
  const Json& values = _item.value("Values", Json::array());
  const Json& titles = _item.value("Titles", Json::array());
  Screen::Section section;
  for (size_t i = 0; i < values.size() && i < titles.size(); ++i) {
    Screen::Row r;
    r.id = "v" + std::to_string(i);
    r.text = titles[i].get<std::string>();
    if (values[i] == current) {
      r.accessory = Screen::Accessory::check;
      r.tone = "current";
    }
    section.rows.push_back(std::move(r));
  }
  s.sections.push_back(std::move(section));
  return s;
}

bool MultiValueEditorViewController::handle(const Event& e) {
  if (e.element != "row" || e.kind != "select" || e.id.size() < 2 || e.id[0] != 'v') return false;
  size_t i = std::stoul(e.id.substr(1));
  const Json& values = _item.value("Values", Json::array());
  if (i >= values.size()) return false;
  _owner.setValue(values[i], _item.value("Key", ""));
  if (NavigationController* nc = navigationController()) nc->pop();
  return true;
}

}  // namespace rivo
