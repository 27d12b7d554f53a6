#include "app/Preferences.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TempDir.h"

namespace rivo {
namespace {

TEST(Preferences, KeepsEveryKindOfValueAcrossInstances) {
  test::TempDir dir;
  std::string path = dir.file("Preferences.json");
  {
    Preferences prefs(path);
    EXPECT_TRUE(prefs.keys().empty());
    prefs.setObject("User 1", "currentProfile");
    prefs.setObject(Json::array({"User 1", "Work"}), "profiles");
    prefs.setObject(30, "User 1_numBackups");
    prefs.setObject(1.5f, "User 1_FontScale");
    prefs.setObject(true, "User 1_stripHTML");
    prefs.setDate(1700000000.25, "firstRunOn");
    prefs.setObject("gone", "removed");
    prefs.removeObjectForKey("removed");
    prefs.setObject("also gone", "nulled");
    prefs.setObject(Json(), "nulled");  // null removes too
    ASSERT_TRUE(prefs.synchronize());
  }
  // Only the owner may read it (it holds the sync key), and no temporary file is left.
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));

  Preferences prefs(path);
  EXPECT_EQ(prefs.keys(),
            (std::vector<std::string>{"User 1_FontScale", "User 1_numBackups", "User 1_stripHTML",
                                      "currentProfile", "firstRunOn", "profiles"}));
  EXPECT_EQ(prefs.stringForKey("currentProfile"), "User 1");
  EXPECT_EQ(prefs.objectForKey("profiles"), Json::array({"User 1", "Work"}));
  EXPECT_EQ(prefs.integerForKey("User 1_numBackups"), 30);
  EXPECT_TRUE(prefs.objectForKey("User 1_numBackups").is_number_integer());
  EXPECT_DOUBLE_EQ(prefs.doubleForKey("User 1_FontScale"), 1.5);
  EXPECT_TRUE(prefs.boolForKey("User 1_stripHTML"));
  EXPECT_EQ(prefs.dateForKey("firstRunOn"), 1700000000.25);
  EXPECT_FALSE(prefs.dateForKey("currentProfile").has_value());
}

TEST(Preferences, ReadsValuesTheWaySettingsAreRead) {
  // Build numbers are stored as strings and compared as integers.
  EXPECT_EQ(Preferences::integerValue("200"), 200);
  EXPECT_EQ(Preferences::integerValue(" -12abc"), -12);
  EXPECT_EQ(Preferences::integerValue("99999999999999999999"), INT64_MAX);
  EXPECT_EQ(Preferences::integerValue(1.9), 1);
  EXPECT_TRUE(Preferences::boolValue("YES"));
  EXPECT_TRUE(Preferences::boolValue("007"));
  EXPECT_FALSE(Preferences::boolValue("no"));
  EXPECT_FALSE(Preferences::boolValue(Json::array({1})));
  EXPECT_EQ(Preferences::stringValue(182), "182");
  EXPECT_DOUBLE_EQ(Preferences::doubleValue("1.25x"), 1.25);
}

TEST(Preferences, DamagedFileIsSetAsideAndTheStoreStartsEmpty) {
  test::TempDir dir;
  std::string path = dir.file("Preferences.json");
  for (const std::string& damage :
       {std::string("{\"profiles\": [\"User 1\""), std::string("[\"an array, not an object\"]")}) {
    test::writeFile(path, damage);
    Preferences prefs(path);
    EXPECT_TRUE(prefs.keys().empty());
    // Only the latest damaged file is kept.
    EXPECT_EQ(test::readFile(path + ".bad"), damage);
    EXPECT_FALSE(std::filesystem::exists(path));
    prefs.setObject("User 1", "currentProfile");
    ASSERT_TRUE(prefs.synchronize());
    EXPECT_EQ(Preferences(path).stringForKey("currentProfile"), "User 1");
  }
}

TEST(Preferences, ChangesFromManyThreadsAreAllKept) {
  test::TempDir dir;
  std::string path = dir.file("Preferences.json");
  {
    Preferences prefs(path);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&prefs, t] {
        for (int i = 0; i < 100; ++i) {
          prefs.setObject(i, std::to_string(t * 1000 + i));  // t3 i99 is "3099"
          if (i % 25 == 0) prefs.synchronize();
          prefs.keys();
        }
      });
    }
    for (auto& thread : threads) thread.join();
  }  // what wasn't synchronised yet is written on destruction
  Preferences prefs(path);
  EXPECT_EQ(prefs.keys().size(), 400u);
  EXPECT_EQ(prefs.integerForKey("3099"), 99);
}

}  // namespace
}  // namespace rivo
