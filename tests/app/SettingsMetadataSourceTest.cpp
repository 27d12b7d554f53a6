#include "app/SettingsMetadataSource.h"

#include <gtest/gtest.h>

#include "app/AppError.h"
#include "app/Preferences.h"
#include "app/ProfileManager.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

class SettingsMetadataSourceTest : public ::testing::Test {
 protected:
  test::TempDir dir;
  Preferences prefs{dir.file("Preferences.json")};
  ProfileManager pm{prefs, dir.path()};
};

Json row(const std::string& key, Json extra = Json::object()) {
  Json r{{"Type", "PSToggleSwitchSpecifier"}, {"Title", key}, {"Key", key}};
  r.update(extra);
  return r;
}

TEST_F(SettingsMetadataSourceTest, SectionsHiddenRowsAndDefaults) {
  pm.setBool(true, "on");
  Json page{{"Title", "Test"},
            {"PreferenceSpecifiers",
             {row("first", {{"DefaultValue", 7}}),
              {{"Type", "PSGroupSpecifier"}, {"Title", "Group"}},
              row("hidden", {{"Hidden", true}, {"DefaultValue", "kept"}}),
              row("shown", {{"Visible", "on"}}),
              row("unset", {{"Visible", "nothing"}}),
              row("old", {{"Visible", "on"}, {"MaxVersion", 9.0}}),
              row("byKey", {{"Hidden", "on"}}),
              "not a row"}}};
  SettingsMetadataSource source(page, pm);
  // No group first: a section without a title.
  ASSERT_EQ(source.sectionTitles(), (std::vector<std::string>{"", "Group"}));
  EXPECT_EQ(source.sections()[0].size(), 1u);
  ASSERT_EQ(source.sections()[1].size(), 1u);
  EXPECT_EQ(source.sections()[1][0]["Key"], "shown");
  // A hidden row's default is stored all the same; a row with none stores "".
  EXPECT_EQ(pm.objectForKey("hidden"), Json("kept"));
  EXPECT_EQ(pm.objectForKey("first"), Json(7));
  EXPECT_EQ(pm.objectForKey("shown"), Json(""));

  // The first value of a key with none is stored at once; later ones wait for save().
  pm.removeObjectForKey("fresh");
  source.setValue(true, "fresh");
  EXPECT_EQ(pm.objectForKey("fresh"), Json(true));
  source.setValue(false, "on");
  EXPECT_TRUE(pm.boolForKey("on"));
  source.reload();
  // Rows that depend on "on" follow the edit.
  ASSERT_EQ(source.sections()[1].size(), 1u);
  EXPECT_EQ(source.sections()[1][0]["Key"], "byKey");
  source.save();
  EXPECT_FALSE(pm.boolForKey("on"));
  EXPECT_TRUE(source.changedSettings().empty());

  EXPECT_THROW(SettingsMetadataSource(std::string("Nowhere"), pm), AppError);
}

}  // namespace
}  // namespace rivo
