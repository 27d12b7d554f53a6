#include "app/ProfileManager.h"

#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "app/AppError.h"
#include "app/Preferences.h"
#include "app/SettingsMetadataSource.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/Storage.h"
#include "librivo/SysLog.h"
#include "librivo/Version.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

// The characters a media file name can't hold; a profile name becomes a folder name.
bool isIllegalChar(UChar32 c) {
  switch (c) {
    case ']':
    case '[':
    case '>':
    case '<':
    case ':':
    case '"':
    case '/':
    case '?':
    case '*':
    case '^':
    case '\\':
    case '|':
      return true;
    default:
      return false;
  }
}

bool isWhitespaceOrNewline(UChar32 c) {
  if ((c >= 0x09 && c <= 0x0D) || c == 0x85) return true;
  int8_t type = u_charType(c);
  return type == U_SPACE_SEPARATOR || type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR;
}

std::string utf8(const icu::UnicodeString& s) {
  std::string out;
  s.toUTF8String(out);
  return out;
}

// Moves a file aside, replacing what is at the target; across file systems it copies.
bool moveReplacing(const std::string& from, const std::string& to, std::error_code& ec) {
  fs::remove(to, ec);
  ec.clear();
  fs::rename(from, to, ec);
  if (!ec) return true;
  if (ec != std::errc::cross_device_link) return false;
  ec.clear();
  fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec);
  if (ec) return false;
  fs::remove(from, ec);
  return !ec;
}

}  // namespace

ProfileManager::ProfileManager(Preferences& ud, std::string dataDir, CollectionHost* host)
    : _ud(ud), _dataDir(std::move(dataDir)), _host(host) {
  ensureSetUp();
}

// Settings of the current profile.

Json ProfileManager::objectForKey(const std::string& k) const {
  return _ud.objectForKey(profileKey(k));
}

void ProfileManager::setObject(const Json& value, const std::string& k) {
  _ud.setObject(value, profileKey(k));
}

void ProfileManager::removeObjectForKey(const std::string& k) {
  _ud.removeObjectForKey(profileKey(k));
}

bool ProfileManager::boolForKey(const std::string& k) const {
  return Preferences::boolValue(objectForKey(k));
}

std::string ProfileManager::stringForKey(const std::string& k) const {
  return Preferences::stringValue(objectForKey(k));
}

int64_t ProfileManager::integerForKey(const std::string& k) const {
  return Preferences::integerValue(objectForKey(k));
}

float ProfileManager::floatForKey(const std::string& k) const {
  return static_cast<float>(Preferences::doubleValue(objectForKey(k)));
}

void ProfileManager::setValuesForKeysWithDictionary(const Json& values) {
  if (!values.is_object()) return;
  for (const auto& [k, value] : values.items()) setObject(value, k);
}

bool ProfileManager::synchronize() {
  return _ud.synchronize();
}

Json ProfileManager::dictionaryRepresentation() const {
  Json out = Json::object();
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexPattern> pattern(icu::RegexPattern::compile(
      icu::UnicodeString::fromUTF8(std::string("^").append(currentProfile()).append("_")), 0,
      status));
  if (U_FAILURE(status)) return out;
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(status));
  if (U_FAILURE(status)) return out;
  Json all = _ud.dictionaryRepresentation();
  for (const auto& [key, value] : all.items()) {
    icu::UnicodeString ukey = icu::UnicodeString::fromUTF8(key);
    matcher->reset(ukey);
    if (!matcher->lookingAt(status) || U_FAILURE(status)) {
      status = U_ZERO_ERROR;
      continue;
    }
    int32_t end = matcher->end(status);
    if (U_FAILURE(status)) {
      status = U_ZERO_ERROR;
      continue;
    }
    out[utf8(ukey.tempSubString(end))] = value;
  }
  return out;
}

std::string ProfileManager::profileKey(const std::string& k) const {
  return profileKey(k, currentProfile());
}

std::string ProfileManager::profileKey(const std::string& k, const std::string& profile) {
  return profile + "_" + k;
}

std::vector<std::string> ProfileManager::_keysForProfile(const std::string& name) const {
  // A literal prefix: what the escaped pattern "^name_" matches.
  std::string prefix = name + "_";
  std::vector<std::string> out;
  for (const std::string& key : _ud.keys())
    if (key.compare(0, prefix.size(), prefix) == 0) out.push_back(key);
  return out;
}

std::vector<std::string> ProfileManager::_keysForCurrentProfile() const {
  return _keysForProfile(currentProfile());
}

// The list of profiles.

std::vector<std::string> ProfileManager::profiles() const {
  std::vector<std::string> out;
  Json list = _ud.objectForKey("profiles");
  if (!list.is_array()) return out;
  for (const Json& name : list)
    if (name.is_string()) out.push_back(name.get<std::string>());
  return out;
}

bool ProfileManager::hasProfile(const std::string& name) const {
  auto list = profiles();
  return std::find(list.begin(), list.end(), name) != list.end();
}

std::string ProfileManager::currentProfile() const {
  return _ud.stringForKey("currentProfile");
}

void ProfileManager::setCurrentProfile(const std::string& name) {
  _ud.setObject(name, "currentProfile");
  _ud.synchronize();
}

void ProfileManager::create(const std::string& name) {
  _checkName(name);
  if (hasProfile(name)) throw AppError("A profile named '" + name + "' already exists.");
  Json defaults = defaultSettings();
  for (const auto& [k, value] : defaults.items()) _ud.setObject(value, profileKey(k, name));
  // applyDefaults writes to the current profile: make the new one current meanwhile.
  {
    struct Restore {
      Preferences& ud;
      Json previous;
      ~Restore() { ud.setObject(previous, "currentProfile"); }
    } restore{_ud, _ud.objectForKey("currentProfile")};
    _ud.setObject(name, "currentProfile");
    applyDefaults();
  }
  auto list = profiles();
  list.push_back(name);
  _ud.setObject(list, "profiles");
  save();
  _ensureExists(_profileDir() + "/" + name);
}

void ProfileManager::remove(const std::string& name) {
  _checkName(name);
  if (!hasProfile(name)) throw AppError("There is no profile named '" + name + "'.");
  auto list = profiles();
  if (list.size() <= 1) throw AppError("The only profile can't be removed.");
  bool wasCurrent = name == currentProfile();
  // Its collection must not be open while its folder goes.
  if (wasCurrent && _host) _host->unloadCollection();
  std::error_code ec;
  fs::remove_all(_profileDir() + "/" + name, ec);
  if (ec) throw AppError("Removing the folder of profile '" + name + "' failed: " + ec.message());
  for (const std::string& key : _keysForProfile(name)) _ud.removeObjectForKey(key);
  list.erase(std::find(list.begin(), list.end(), name));
  _ud.setObject(list, "profiles");
  save();
  sysLog("new profiles list: " + Json(list).dump());
  if (wasCurrent) {
    setCurrentProfile(list.front());
    if (_host) loadCurrentProfile();
  }
}

void ProfileManager::renameFrom(const std::string& from, const std::string& to) {
  _checkName(to);
  if (hasProfile(to)) throw AppError("A profile named '" + to + "' already exists.");
  if (from == to) return;
  _checkName(from);
  if (!hasProfile(from)) throw AppError("There is no profile named '" + from + "'.");
  std::string source = _profileDir() + "/" + from;
  std::string target = _profileDir() + "/" + to;
  std::error_code ec;
  if (fs::exists(target, ec))
    throw AppError("Renaming profile '" + from + "' failed: " + target + " is in the way.");
  if (_ensureExists(source).empty())
    throw AppError("Renaming profile '" + from + "' failed: no folder at " + source);
  // An open collection would go on writing its journal beside the old path.
  bool reopen = _host && _host->col() && from == currentProfile();
  if (reopen) _host->unloadCollection();
  for (const std::string& key : _keysForProfile(from)) {
    _ud.setObject(_ud.objectForKey(key), profileKey(key.substr(from.size() + 1), to));
    _ud.removeObjectForKey(key);
  }
  auto list = profiles();
  list.erase(std::find(list.begin(), list.end(), from));
  list.push_back(to);
  _ud.setObject(list, "profiles");
  if (currentProfile() == from) setCurrentProfile(to);
  fs::rename(source, target, ec);
  if (ec) throw AppError("Renaming profile '" + from + "' failed: " + ec.message());
  save();
  if (reopen) loadCurrentProfile();
}

// Loading.

bool ProfileManager::loadCurrentProfile() {
  return loadProfileWithName(currentProfile());
}

bool ProfileManager::loadProfileWithName(const std::string& name, const std::string& passwd) {
  (void)passwd;  // accepted for the callers that have one; collections have no password
  _requireApp();
  _checkName(name);
  if (!hasProfile(name)) throw AppError("There is no profile named '" + name + "'.");
  synchronize();
  _host->unloadCollection();
  if (name != currentProfile()) setCurrentProfile(name);
  addNewOptions();
  std::string path = collectionPath();
  std::string documents = backupFolder();
  sysLog("loading collection at path: " + path);
  std::unique_ptr<Col> col = Storage::open(path, true, false, true, documents);
  if (!col) {
    _host->showInfo(kCorruptMessage);
    // Kept where the user can take it away; only the latest damaged file is kept.
    std::string corrupt = documents + "/corrupt.rivo2";
    std::error_code ec;
    if (!moveReplacing(path, corrupt, ec))
      throw AppError("Moving the damaged collection to " + corrupt + " failed: " + ec.message());
    // A journal left beside it belongs to the damaged file, never to the new one.
    for (const char* suffix : {"-journal", "-wal", "-shm"}) {
      fs::remove(corrupt + suffix, ec);
      if (fs::exists(path + suffix, ec) && !moveReplacing(path + suffix, corrupt + suffix, ec))
        throw AppError("Moving " + path + suffix + " aside failed: " + ec.message());
    }
    col = Storage::open(path, true, false, true, documents);
    if (!col) throw AppError("A new collection couldn't be created at " + path);
  }
  _host->setCol(std::move(col));
  return true;
}

// Settings.

void ProfileManager::addNewOptions() {
  if (integerForKey("lastBuildUsed") < 182) {
    // Two buttons were added in front of "more"; the old sixth moves to the end.
    setObject(objectForKey("button6"), "button8");
    setObject("deckInfo", "button6");
    setObject("customStudy", "button7");
  }
  setObject(kBundleVersion, "lastBuildUsed");
}

Json ProfileManager::defaultSettings() {
  return Json{
      {"key", "none"},
      {"numBackups", 30},
      {"lastOptimize", intTime()},
      {"fullSearch", false},
      {"searchHistory", Json::array()},
      {"lastColor", "#00f"},
      {"stripHTML", true},
      {"pastePNG", false},
      {"syncMedia", true},
      {"autoSync", true},
      {"allowHTML", false},
      {"importMode", 0},
      {"currentTheme", "black"},
      {"currentPattern", "lightmesh"},
  };
}

void ProfileManager::applyDefaults() {
  for (const char* page : {"Root", "Study", "Quickbar", "Review", "Swipes", "Syncing", "Taps"})
    _applySettingsPageDefaults(page);

  const char* buttons[] = {"mark", "deleteNote", "undo",        "cardInfo",
                           "bury", "deckInfo",   "customStudy", "more"};
  for (int i = 0; i < 8; ++i) setObject(buttons[i], "button" + std::to_string(i + 1));
  const char* rows[] = {"top", "mid", "bottom"};
  const char* columns[] = {"Left", "Center", "Right"};
  for (const char* row : rows)
    for (const char* column : columns) setObject("showAnswer", std::string(row) + column);
  const char* answerSide[] = {"answerWrong", "off", "answerGood"};
  for (const char* row : rows)
    for (int c = 0; c < 3; ++c) setObject(answerSide[c], std::string(row) + columns[c] + "A");
  setFloat(1.0f, "FontScale");
  setBool(true, "showQuickbar");
  const char* quick[] = {"add", "edit", "search", "off"};
  for (int i = 0; i < 4; ++i) setObject(quick[i], "quickButton" + std::to_string(i + 1));
  setObject("tools", "swipeLeft");
  setObject("finish", "swipeRight");
  setObject("off", "swipeUp");
  setObject("off", "swipeDown");
  setObject("undo", "shakeAction");
  setObject(kBundleVersion, "lastBuildUsed");
}

void ProfileManager::_applySettingsPageDefaults(const std::string& page) {
  // Reading a page stores its rows' defaults; the explicit assignments then override some.
  SettingsMetadataSource(page, *this).save();
}

void ProfileManager::ensureSetUp() {
  if (profiles().empty()) {
    create(kFirstProfile);
    setCurrentProfile(kFirstProfile);
  } else if (!hasProfile(currentProfile())) {
    // A current profile that isn't in the list would load a collection nobody can reach.
    setCurrentProfile(profiles().front());
  }
}

// Names.

std::string ProfileManager::sanitizeName(const std::string& text) {
  icu::UnicodeString in = icu::UnicodeString::fromUTF8(text);
  std::vector<UChar32> kept;
  for (int32_t i = 0; i < in.length();) {
    UChar32 c = in.char32At(i);
    i += U16_LENGTH(c);
    if (!isIllegalChar(c) && c != '_') kept.push_back(c);
  }
  size_t begin = 0, end = kept.size();
  while (begin < end && isWhitespaceOrNewline(kept[begin])) ++begin;
  while (end > begin && isWhitespaceOrNewline(kept[end - 1])) --end;
  icu::UnicodeString out;
  for (size_t i = begin; i < end; ++i) out.append(kept[i]);
  return utf8(out);
}

bool ProfileManager::isLegalName(const std::string& name) {
  if (name.empty() || name.size() > 255 || name == "." || name == "..") return false;
  if (name.find('\0') != std::string::npos) return false;
  if (utf8(icu::UnicodeString::fromUTF8(name)) != name) return false;
  return sanitizeName(name) == name;
}

void ProfileManager::_checkName(const std::string& name) const {
  if (!isLegalName(name))
    throw AppError("'" + name + "' can't be a profile name. " + kBadNameMessage);
}

void ProfileManager::_requireApp() const {
  if (!_host) throw AppError("No application to load a collection into.");
}

// Paths.

std::string ProfileManager::hiddenDocumentsDir() const {
  std::error_code ec;
  if (fs::exists(_dataDir, ec) && !fs::is_directory(_dataDir, ec))
    throw AppError(".data exists, and is a file: Path: " + _dataDir);
  if (!fs::is_directory(_dataDir, ec)) {
    fs::create_directories(_dataDir, ec);
    if (ec) throw AppError("Failed creating directory [" + _dataDir + "], " + ec.message());
  }
  return _dataDir;
}

std::string ProfileManager::_profileDir() const {
  std::string dir = _ensureExists(hiddenDocumentsDir() + "/profiles");
  if (dir.empty()) throw AppError("Failed creating directory " + _dataDir + "/profiles");
  return dir;
}

std::string ProfileManager::profileFolderForName(const std::string& name) const {
  _checkName(name);
  std::string path = _profileDir() + "/" + name;
  if (_ensureExists(path).empty()) throw AppError("Failed creating directory " + path);
  return path;
}

std::string ProfileManager::backupFolder() const {
  std::string path = hiddenDocumentsDir() + "/Documents";
  if (_ensureExists(path).empty()) throw AppError("Failed creating directory " + path);
  return path;
}

std::string ProfileManager::collectionPath() const {
  return profileFolder() + "/collection.rivo2";
}

std::string ProfileManager::mediaFolder() const {
  return profileFolder() + "/media";
}

std::string ProfileManager::_ensureExists(const std::string& path) const {
  std::error_code ec;
  if (fs::is_directory(path, ec)) return path;
  fs::create_directories(path, ec);
  if (ec || !fs::is_directory(path)) {
    sysLog("error creating directory: " + path + ": " + ec.message());
    return "";
  }
  return path;
}

}  // namespace rivo
