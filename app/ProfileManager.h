#pragma once
// The profiles on this machine, their folders, the loading of a profile's collection, and
// the current profile's settings: a setting `k` of profile P is the preference "P_k".

#include <string>
#include <vector>

#include "app/CollectionHost.h"
#include "librivo/Json.h"

namespace rivo {

class Preferences;

class ProfileManager {
 public:
  static constexpr const char* kFirstProfile = "User 1";
  static constexpr const char* kBadNameMessage = "Please avoid symbols and underscores.";
  static constexpr const char* kCorruptMessage =
      "Your collection couldn't be loaded. It has been moved to Documents/corrupt.rivo2, and a "
      "fresh collection has been loaded.";

  // `dataDir` holds profiles/, Documents/ and the preferences. Loaded collections go to `host`
  // (not owned; the application); without it everything but loading a collection works.
  // Makes the first profile if there is none.
  ProfileManager(Preferences& ud, std::string dataDir, CollectionHost* host = nullptr);

  Preferences& ud() { return _ud; }

  // The current profile's settings.
  Json valueForKey(const std::string& k) const { return objectForKey(k); }
  void setValue(const Json& value, const std::string& k) { setObject(value, k); }
  Json objectForKey(const std::string& k) const;
  void setObject(const Json& value, const std::string& k);
  void removeObjectForKey(const std::string& k);
  bool boolForKey(const std::string& k) const;
  void setBool(bool value, const std::string& k) { setObject(value, k); }
  std::string stringForKey(const std::string& k) const;
  int64_t integerForKey(const std::string& k) const;
  void setInteger(int64_t value, const std::string& k) { setObject(value, k); }
  float floatForKey(const std::string& k) const;
  void setFloat(float value, const std::string& k) { setObject(value, k); }
  void setValuesForKeysWithDictionary(const Json& values);
  bool synchronize();
  bool save() { return synchronize(); }

  // The current profile's settings without the prefix. The profile's name is used as a
  // regular expression as it stands, so a name with pattern characters may find too few.
  Json dictionaryRepresentation() const;
  std::string profileKey(const std::string& k) const;
  static std::string profileKey(const std::string& k, const std::string& profile);
  // Every preference of a profile; the name is matched literally.
  std::vector<std::string> _keysForProfile(const std::string& name) const;
  std::vector<std::string> _keysForCurrentProfile() const;

  std::vector<std::string> profiles() const;
  bool hasProfile(const std::string& name) const;
  std::string currentProfile() const;
  // Writes the preferences at once.
  void setCurrentProfile(const std::string& name);

  // These raise AppError for a name that is illegal, in use or unknown, for removing the
  // last profile and when a profile folder can't be moved or removed.
  void create(const std::string& name);
  void remove(const std::string& name);
  void renameFrom(const std::string& from, const std::string& to);

  // Opens the profile's collection into the application, replacing a damaged file by a new
  // one (the old one is kept as Documents/corrupt.rivo2). Raises AppError when even a new
  // collection can't be opened.
  bool loadCurrentProfile();
  bool loadProfileWithName(const std::string& name, const std::string& passwd = {});

  // Moves the study toolbar's buttons of profiles last used before build 182; then records
  // this build.
  void addNewOptions();
  void applyDefaults();
  static Json defaultSettings();
  void ensureSetUp();

  // What the profile screen makes of a typed name: without the characters media names
  // can't hold, without underscores, trimmed. Empty means refused (kBadNameMessage).
  static std::string sanitizeName(const std::string& text);
  // A name that can be used as it stands: unchanged by sanitizeName, valid UTF-8, not a
  // relative folder name, short enough for a folder.
  static bool isLegalName(const std::string& name);

  // Paths. Folders are created when asked for; raising AppError when a profile's can't be.
  std::string hiddenDocumentsDir() const;
  std::string profileFolder() const { return profileFolderForName(currentProfile()); }
  std::string profileFolderForName(const std::string& name) const;
  std::string backupFolder() const;
  std::string collectionPath() const;
  std::string mediaFolder() const;
  std::string _profileDir() const;
  // The path, or empty (and a log line) when the directory can't be made.
  std::string _ensureExists(const std::string& path) const;

 private:
  void _applySettingsPageDefaults(const std::string& page);
  void _checkName(const std::string& name) const;
  void _requireApp() const;

  Preferences& _ud;
  std::string _dataDir;
  CollectionHost* _host;
};

}  // namespace rivo
