#pragma once
// A settings page read from its description in resources/settings/NAME.json: sections of row
// specifiers ("Type", "Title", "Key", "DefaultValue", "Hidden", "Visible" and the rest of the
// settings-page format). Reading a page stores the default of every keyed row that has no
// value yet, hidden rows included, so defaults exist as soon as a page has been read. Edits
// wait in changedSettings() until save(). Main loop only.

#include <map>
#include <string>
#include <vector>

#include "librivo/Json.h"

namespace rivo {

class ProfileManager;

class SettingsMetadataSource {
 public:
  // The version that "MinVersion" and "MaxVersion" rows are compared with. The pages were
  // written for a current system, so rows limited to older ones are hidden.
  static constexpr double kSystemVersion = 16.0;

  // Raises AppError when the page isn't among the resources or isn't valid JSON.
  SettingsMetadataSource(const std::string& configFile, ProfileManager& settings);
  // A page given as it stands.
  SettingsMetadataSource(Json page, ProfileManager& settings);

  // Each section is an array of row specifiers, or for an editable section (a group with a
  // "Key") an object with "_ArrayKeyPath" and "_Array".
  const std::vector<Json>& sections() const { return _sections; }
  const std::vector<std::string>& sectionTitles() const { return _sectionTitles; }
  const std::string& title() const { return _title; }

  bool isHidden(const Json& specifier) const;
  // The edited value if there is one, else the stored one.
  Json valueForKey(const std::string& key) const;
  // An edit; the first value given to a key that had none is stored at once instead.
  void setValue(const Json& value, const std::string& key);
  const std::map<std::string, Json>& changedSettings() const { return _changed; }
  // Writes the edits to the settings and forgets them.
  void save();
  // Reads the page again, so rows shown by "Hidden" or "Visible" follow a change.
  void reload();

 private:
  void _configurationFromPList();
  bool _isTrue(const std::string& key) const;

  Json _page;
  ProfileManager& _settings;
  std::vector<Json> _sections;
  std::vector<std::string> _sectionTitles;
  std::string _title;
  std::map<std::string, Json> _changed;
};

}  // namespace rivo
