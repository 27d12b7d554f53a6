#include "shell/Command.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "app/AppDelegate.h"
#include "app/ConsoleUi.h"
#include "app/Preferences.h"
#include "app/ProfileManager.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

// The profile a launch opens: the one asked for, else the current one, else the one a first
// run makes.
std::string profileToOpen(const CommandSettings& s) {
  if (!s.profile.empty()) return s.profile;
  const std::string prefsPath = s.data + "/Preferences.json";
  std::error_code ec;
  if (fs::exists(prefsPath, ec)) {
    const std::string current = Preferences(prefsPath).stringForKey("currentProfile");
    if (!current.empty()) return current;
  }
  return ProfileManager::kFirstProfile;
}

std::string checkCollection(const std::string& path) {
  std::error_code ec;
  if (fs::exists(path, ec) && access(path.c_str(), R_OK | W_OK) != 0)
    return "the collection " + path + " is read-only or unreadable";
  return {};
}

}  // namespace

int Command::fail(const std::string& message) {
  std::fprintf(stderr, "rivo: %s\n", message.c_str());
  return 1;
}

int Command::withApp(const CommandSettings& s, bool createMissing,
                     const std::function<void(AppDelegate&)>& work, bool endsItself) {
  ConsoleUi ui;
  AppDelegate::Options options;
  options.dataDir = s.data;
  options.profile = s.profile;
  options.createProfile = createMissing;
  AppDelegate app(ui, options);
  const fs::path collection = fs::path(s.data) / "profiles" / profileToOpen(s) / "collection.rivo2";
  const std::string problem = checkCollection(collection.string());
  if (!problem.empty()) return fail(problem);
  app.launch();
  app.doOnMain([&] {
    try {
      work(app);
    } catch (...) {
      app.terminate(1, false);
      throw;
    }
    if (!endsItself) app.terminate(0);
  });
  return app.run();
}

}  // namespace rivo
