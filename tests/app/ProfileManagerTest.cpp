#include "app/ProfileManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "app/AppError.h"
#include "app/Preferences.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> keysWithPrefix(Preferences& prefs, const std::string& prefix) {
  std::vector<std::string> out;
  for (const auto& key : prefs.keys())
    if (key.rfind(prefix, 0) == 0) out.push_back(key);
  return out;
}

constexpr size_t kKeysPerProfile = 78;

class ProfileManagerTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  Preferences prefs{dir.file("Preferences.json")};
  ProfileManager pm{prefs, dir.path()};
};

TEST_F(ProfileManagerTest, FirstSetUpMakesUser1WithEveryDefault) {
  EXPECT_EQ(pm.profiles(), std::vector<std::string>{"User 1"});
  EXPECT_EQ(pm.currentProfile(), "User 1");
  EXPECT_TRUE(fs::is_directory(dir.file("profiles/User 1")));
  // Written to disk at once, not only held in memory.
  EXPECT_EQ(Preferences(dir.file("Preferences.json")).stringForKey("currentProfile"), "User 1");

  // 14 built-in settings, 38 explicit assignments, and 26 keys only the settings pages name.
  EXPECT_EQ(keysWithPrefix(prefs, "User 1_").size(), kKeysPerProfile);
  const Json defaults = ProfileManager::defaultSettings();
  for (const auto& [key, value] : defaults.items())
    EXPECT_TRUE(prefs.hasKey("User 1_" + key)) << key;
  // Typed reads of stored defaults.
  EXPECT_EQ(pm.integerForKey("numBackups"), 30);
  EXPECT_FLOAT_EQ(pm.floatForKey("FontScale"), 1.0f);
  EXPECT_TRUE(pm.boolForKey("showQuickbar"));
  EXPECT_EQ(pm.stringForKey("lastBuildUsed"), "200");
  // Defaults that only the settings pages give, a hidden row's among them; a slot with no
  // default is empty, and an explicit assignment wins over the page.
  EXPECT_TRUE(pm.boolForKey("remainingCount"));
  EXPECT_TRUE(pm.boolForKey("nextTimes"));
  EXPECT_TRUE(pm.boolForKey("downloadMedia"));
  EXPECT_FALSE(pm.boolForKey("navBarHidden"));
  EXPECT_EQ(pm.objectForKey("statsPeriod"), Json(0));
  EXPECT_EQ(pm.objectForKey("button9"), Json(""));
  EXPECT_EQ(pm.stringForKey("button1"), "mark");
}

TEST_F(ProfileManagerTest, CreateRenameRemoveMoveKeysFoldersAndTheCurrentProfile) {
  pm.create("Work");
  pm.create("Zoo");
  EXPECT_EQ(pm.currentProfile(), "User 1");  // creating doesn't switch
  EXPECT_EQ(pm.profiles(), (std::vector<std::string>{"User 1", "Work", "Zoo"}));
  EXPECT_EQ(keysWithPrefix(prefs, "Work_").size(), kKeysPerProfile);
  EXPECT_THROW(pm.create("Work"), AppError);

  // A setting whose own name holds an underscore belongs to the profile all the same.
  prefs.setObject(true, "Work_expandedStateFor a_b");
  prefs.setObject("kept", "Workshop_key");  // another prefix entirely
  test::writeFile(dir.file("profiles/Work/collection.rivo2"), "data");
  fs::create_directories(dir.file("profiles/Work/media"));
  test::writeFile(dir.file("profiles/Work/media/a.jpg"), "jpg");

  pm.renameFrom("Work", "Job");
  EXPECT_EQ(pm.profiles(), (std::vector<std::string>{"User 1", "Zoo", "Job"}));
  EXPECT_TRUE(keysWithPrefix(prefs, "Work_").empty());
  EXPECT_EQ(keysWithPrefix(prefs, "Job_").size(), kKeysPerProfile + 1);
  EXPECT_TRUE(prefs.boolForKey("Job_expandedStateFor a_b"));
  EXPECT_EQ(prefs.stringForKey("Workshop_key"), "kept");
  EXPECT_FALSE(fs::exists(dir.file("profiles/Work")));
  EXPECT_EQ(test::readFile(dir.file("profiles/Job/collection.rivo2")), "data");
  EXPECT_EQ(test::readFile(dir.file("profiles/Job/media/a.jpg")), "jpg");
  EXPECT_EQ(pm.currentProfile(), "User 1");

  // The check for a name in use comes first, so renaming to the same name is refused too.
  EXPECT_THROW(pm.renameFrom("Job", "Zoo"), AppError);
  EXPECT_THROW(pm.renameFrom("Job", "Job"), AppError);
  EXPECT_THROW(pm.renameFrom("Nobody", "Somebody"), AppError);

  // Renaming the current profile takes the current name along.
  pm.renameFrom("User 1", "Me");
  EXPECT_EQ(pm.currentProfile(), "Me");
  EXPECT_EQ(pm.stringForKey("button1"), "mark");
  EXPECT_EQ(pm.profiles(), (std::vector<std::string>{"Zoo", "Job", "Me"}));

  pm.remove("Job");
  EXPECT_EQ(pm.profiles(), (std::vector<std::string>{"Zoo", "Me"}));
  EXPECT_TRUE(keysWithPrefix(prefs, "Job_").empty());
  EXPECT_FALSE(fs::exists(dir.file("profiles/Job")));
  EXPECT_THROW(pm.remove("Job"), AppError);

  // Removing the current profile makes the first remaining one current.
  pm.remove("Me");
  EXPECT_EQ(pm.currentProfile(), "Zoo");
  EXPECT_THROW(pm.remove("Zoo"), AppError);  // the last one stays
  EXPECT_EQ(pm.profiles(), std::vector<std::string>{"Zoo"});
  EXPECT_EQ(Preferences(dir.file("Preferences.json")).objectForKey("profiles"),
            Json::array({"Zoo"}));
}

TEST_F(ProfileManagerTest, IllegalNamesAreRefusedBeforeTouchingTheFileSystem) {
  EXPECT_EQ(ProfileManager::sanitizeName("  My:Deck_1 \n"), "MyDeck1");
  EXPECT_EQ(ProfileManager::sanitizeName("[]><:\"/?*^\\|_"), "");
  EXPECT_EQ(ProfileManager::sanitizeName("\u00a0Ana\u2028"), "Ana");
  EXPECT_EQ(ProfileManager::sanitizeName("Deutsch (B1)"), "Deutsch (B1)");
  EXPECT_EQ(ProfileManager::sanitizeName("\tÉmile\r"), "Émile");

  auto before = [&] {
    std::set<std::string> entries;
    for (const auto& e : fs::recursive_directory_iterator(dir.path()))
      entries.insert(e.path().string());
    return entries;
  };
  auto entries = before();
  for (const std::string& name : std::vector<std::string>{
           "", "..", ".", "a/b", "../escape", "x_y", " pad", "a\nb ", "what?",
           std::string("nul\0byte", 8), std::string("\xff\xfe"), std::string(256, 'a')}) {
    EXPECT_FALSE(ProfileManager::isLegalName(name)) << name;
    EXPECT_THROW(pm.create(name), AppError) << name;
    EXPECT_THROW(pm.renameFrom("User 1", name), AppError) << name;
    EXPECT_THROW(pm.remove(name), AppError) << name;
    EXPECT_THROW(pm.profileFolderForName(name), AppError) << name;
  }
  EXPECT_EQ(before(), entries);
  EXPECT_EQ(pm.profiles(), std::vector<std::string>{"User 1"});
  EXPECT_TRUE(ProfileManager::isLegalName("Émile 2 (old)"));
}

TEST_F(ProfileManagerTest, KeysForProfileMatchLiterallyDictionaryRepresentationDoesNot) {
  pm.setObject("v", "key_with_underscore");
  Json plain = pm.dictionaryRepresentation();
  EXPECT_EQ(plain.size(), kKeysPerProfile + 1);
  EXPECT_EQ(plain["key_with_underscore"], "v");
  EXPECT_EQ(plain["button1"], "mark");

  pm.create("C++");
  EXPECT_EQ(pm._keysForProfile("C++").size(), kKeysPerProfile);
  pm.setCurrentProfile("C++");
  EXPECT_EQ(pm._keysForCurrentProfile().size(), kKeysPerProfile);
  // The name goes into the pattern unescaped: "C++" is a pattern, not the name.
  EXPECT_TRUE(pm.dictionaryRepresentation().empty());
}

TEST_F(ProfileManagerTest, OldBuildsHaveTheirButtonsShiftedOnce) {
  pm.setObject("b6", "button6");
  pm.setObject("b7", "button7");
  pm.setObject("b8", "button8");
  pm.setObject("182", "lastBuildUsed");
  pm.addNewOptions();
  EXPECT_EQ(pm.stringForKey("button6"), "b6");
  EXPECT_EQ(pm.stringForKey("button8"), "b8");
  EXPECT_EQ(pm.stringForKey("lastBuildUsed"), "200");

  pm.setObject("181", "lastBuildUsed");
  pm.addNewOptions();
  EXPECT_EQ(pm.stringForKey("button8"), "b6");
  EXPECT_EQ(pm.stringForKey("button6"), "deckInfo");
  EXPECT_EQ(pm.stringForKey("button7"), "customStudy");
  EXPECT_EQ(pm.stringForKey("lastBuildUsed"), "200");
  pm.setObject("mine", "button6");
  pm.addNewOptions();  // the build was written back: no second shift
  EXPECT_EQ(pm.stringForKey("button6"), "mine");
  EXPECT_EQ(pm.stringForKey("button8"), "b6");

  // Settings from before builds were recorded count as old, and a missing sixth button
  // leaves no eighth.
  pm.removeObjectForKey("lastBuildUsed");
  pm.removeObjectForKey("button6");
  pm.addNewOptions();
  EXPECT_FALSE(pm.objectForKey("button8").is_string());
  EXPECT_EQ(pm.stringForKey("button6"), "deckInfo");
}

TEST_F(ProfileManagerTest, ACurrentProfileMissingFromTheListFallsBackToTheFirst) {
  pm.create("Work");
  prefs.setObject("Gone", "currentProfile");
  ProfileManager again(prefs, dir.path());
  EXPECT_EQ(again.currentProfile(), "User 1");
  EXPECT_EQ(again.profiles(), (std::vector<std::string>{"User 1", "Work"}));
}

TEST(ProfileManagerPaths, AFileWhereTheDataFolderShouldBeIsAnError) {
  test::TempDir dir;
  test::writeFile(dir.file("data"), "not a folder");
  Preferences prefs(dir.file("Preferences.json"));
  EXPECT_THROW(ProfileManager(prefs, dir.file("data")), AppError);
}

}  // namespace
}  // namespace rivo
