#include "app/SettingsMetadataSource.h"

#include "app/AppError.h"
#include "app/Preferences.h"
#include "app/ProfileManager.h"
#include "app/Resources.h"

namespace rivo {

namespace {

Json readPage(const std::string& configFile) {
  auto text = Resources::get("settings/" + configFile + ".json");
  if (!text) throw AppError("There is no settings page named '" + configFile + "'.");
  std::string error;
  Json page = decodeJson(std::string(*text), &error);
  if (!page.is_object() || !page.contains("PreferenceSpecifiers") ||
      !page["PreferenceSpecifiers"].is_array())
    throw AppError("The settings page '" + configFile + "' can't be read.");
  return page;
}

}  // namespace

SettingsMetadataSource::SettingsMetadataSource(const std::string& configFile,
                                               ProfileManager& settings)
    : SettingsMetadataSource(readPage(configFile), settings) {}

SettingsMetadataSource::SettingsMetadataSource(Json page, ProfileManager& settings)
    : _page(std::move(page)), _settings(settings) {
  _configurationFromPList();
}

void SettingsMetadataSource::_configurationFromPList() {
  const Json& page = _page;
  _sections.clear();
  _sectionTitles.clear();
  const Json specifiers = page.value("PreferenceSpecifiers", Json::array());
  auto type = [](const Json& s) { return s.value("Type", std::string()); };
  if (specifiers.empty() || !specifiers.front().is_object() ||
      type(specifiers.front()) != "PSGroupSpecifier") {
    _sections.push_back(Json::array());
    _sectionTitles.push_back("");
  }
  for (const Json& spec : specifiers) {
    if (!spec.is_object()) continue;
    bool hidden = isHidden(spec);
    if (type(spec) == "PSGroupSpecifier") {
      if (hidden) continue;
      if (spec.contains("Key") && spec["Key"].is_string()) {
        Json editable = spec;
        editable["_ArrayKeyPath"] = spec["Key"];
        editable["_Array"] = _settings.objectForKey(spec["Key"].get<std::string>());
        _sections.push_back(std::move(editable));
      } else {
        _sections.push_back(Json::array());
      }
      _sectionTitles.push_back(spec.value("Title", std::string()));
      continue;
    }
    if (!hidden && _sections.back().is_array()) _sections.back().push_back(spec);
    // Defaults take effect by the mere reading of the page, hidden rows included.
    if (spec.contains("Key") && spec["Key"].is_string()) {
      std::string key = spec["Key"].get<std::string>();
      Json value = _settings.objectForKey(key);
      if (value.is_null() || value == Json(""))
        _settings.setObject(spec.value("DefaultValue", Json("")), key);
    }
  }
  if (page.contains("TitleKey") && page["TitleKey"].is_string())
    _title = _settings.stringForKey(page["TitleKey"].get<std::string>());
  else
    _title = page.value("Title", std::string());
}

bool SettingsMetadataSource::_isTrue(const std::string& key) const {
  Json value = valueForKey(key);
  if (value.is_null()) return false;
  // A value that isn't a number or a boolean counts as true.
  if (value.is_boolean() || value.is_number()) return Preferences::boolValue(value);
  return true;
}

bool SettingsMetadataSource::isHidden(const Json& spec) const {
  bool hidden = false;
  const Json* flag = spec.contains("Hidden") ? &spec["Hidden"] : nullptr;
  if (flag && flag->is_string()) {
    hidden = _isTrue(flag->get<std::string>());
  } else if (spec.contains("Visible") && spec["Visible"].is_string()) {
    hidden = !_isTrue(spec["Visible"].get<std::string>());
  }
  if (spec.contains("MinVersion") && spec["MinVersion"].is_number() &&
      kSystemVersion < spec["MinVersion"].get<double>())
    hidden = true;
  if (spec.contains("MaxVersion") && spec["MaxVersion"].is_number() &&
      kSystemVersion > spec["MaxVersion"].get<double>())
    hidden = true;
  if (flag && flag->is_boolean() && flag->get<bool>()) hidden = true;
  return hidden;
}

Json SettingsMetadataSource::valueForKey(const std::string& key) const {
  auto it = _changed.find(key);
  return it != _changed.end() ? it->second : _settings.objectForKey(key);
}

void SettingsMetadataSource::setValue(const Json& value, const std::string& key) {
  if (_settings.objectForKey(key).is_null() && !_changed.count(key)) {
    _settings.setObject(value, key);
    return;
  }
  _changed[key] = value;
}

void SettingsMetadataSource::save() {
  for (const auto& [key, value] : _changed) _settings.setObject(value, key);
  _changed.clear();
}

void SettingsMetadataSource::reload() {
  _configurationFromPList();
}

}  // namespace rivo
