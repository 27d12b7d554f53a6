#include "app/Upgrader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>

#include "app/AppDelegate.h"
#include "app/AppError.h"
#include "app/Preferences.h"
#include "app/ProfileManager.h"
#include "librivo/DB.h"
#include "librivo/MediaManager.h"
#include "librivo/SysLog.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

// Moves a file unless the target's name is taken; false when it wasn't moved.
bool moveUnlessTaken(const fs::path& from, const fs::path& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  // A file system without that flag: a link can't take a name either.
  if (errno != EINVAL || link(from.c_str(), to.c_str()) != 0) return false;
  unlink(from.c_str());
  return true;
}

// The name a first-generation deck file gets in Documents: the deck's name, as a plain file name
// without its extension, else the file's.
std::string deckFileName(const std::string& deck, const std::string& file) {
  std::string name = fs::path(MediaManager::stripIllegal(deck)).stem().string();
  if (!MediaManager::isPlainName(name)) name = fs::path(file).stem().string();
  return name + ".rivo";
}

}  // namespace

void Upgrader::upgradeIfNeeded(AppDelegate& app) {
  ProfileManager& pm = app.pm();
  const fs::path hidden = pm.hiddenDocumentsDir();
  std::error_code ec;
  if (!fs::exists(hidden / "collection.rivo2", ec)) {
    maybeUpgradeFromRivo1(app);
    return;
  }
  sysLog("Upgrading previous 2.0 install");
  app.showSpinner("Upgrading...");
  // The old settings become those of the current profile; keys with "_" are a profile's already.
  Preferences& ud = pm.ud();
  for (const std::string& key : ud.keys())
    if (key.find('_') == std::string::npos) pm.setObject(ud.objectForKey(key), key);
  const std::string theme = pm.stringForKey("currentTheme");
  if (pm.objectForKey("currentTheme").is_string() && theme.empty())
    pm.setObject("blue", "currentTheme");
  else if (theme == "black-")
    pm.setObject("black", "currentTheme");
  pm.synchronize();

  const fs::path folder = pm.profileFolder();
  fs::create_directories(folder, ec);
  for (fs::directory_iterator it(hidden, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    // The journal goes along with the collection.
    if (!name.starts_with("collection.rivo2") && !name.starts_with("media")) continue;
    const fs::path to = folder / name;
    std::error_code step;
    if (fs::exists(to, step)) {
      sysLog("unlink existing " + to.string());
      fs::remove_all(to, step);
      if (step) throw AppError("The older " + to.string() + " can't be removed: " + step.message());
    }
    sysLog("mv " + it->path().string() + " -> " + to.string());
    fs::rename(it->path(), to, step);
    if (step) {
      sysLog("error upgrading profile: " + step.message());
      throw AppError("The collection of the earlier version can't be moved to " + folder.string() +
                     ": " + step.message());
    }
  }
  app.hideSpinner();
}

void Upgrader::maybeUpgradeFromRivo1(AppDelegate& app) {
  ProfileManager& pm = app.pm();
  const fs::path support = pm.hiddenDocumentsDir();
  const fs::path index = support / "database" / "decks.db.sql";
  std::error_code ec;
  if (!fs::exists(index, ec)) return;
  app.showSpinner("Upgrading...");
  sysLog("Upgrading previous 1.0 install");

  std::map<std::string, std::string> decks;  // file to deck name
  {
    DB db(index.string());
    for (const Row& row : db.all("select name, file from decks"))
      if (row.size() == 2) decks[toText(row[1]) + ".sql"] = toText(row[0]);
    db.close();
  }
  const fs::path documents = pm.backupFolder();
  for (const auto& [file, deck] : decks) {
    if (!MediaManager::isPlainName(file)) continue;
    const fs::path from = support / "database" / file;
    const fs::path to = documents / deckFileName(deck, file);
    sysLog("mv " + from.string() + " -> " + to.string());
    moveUnlessTaken(from, to);
  }

  const fs::path media = pm.mediaFolder();
  fs::create_directories(media, ec);
  for (fs::directory_iterator it(support / "media", ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code step;
    if (!it->is_directory(step)) continue;
    sysLog("mv media files for " + it->path().filename().string());
    for (fs::directory_iterator f(it->path(), step), fend; !step && f != fend; f.increment(step)) {
      const fs::path to = media / f->path().filename();
      sysLog("mv " + f->path().string() + " -> " + to.string());
      moveUnlessTaken(f->path(), to);
    }
  }

  // The action had this name in the first generation.
  const Json settings = pm.dictionaryRepresentation();
  for (const auto& [key, value] : settings.items())
    if (value == "answerDefault") pm.setObject("answerGood", key);
  pm.synchronize();
  fs::remove(index, ec);
  app.hideSpinner();
}

}  // namespace rivo
