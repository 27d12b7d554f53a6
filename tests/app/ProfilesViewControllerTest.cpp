#include "app/ProfilesViewController.h"

#include <algorithm>
#include <filesystem>

#include "app/DecksViewController.h"
#include "app/ProfileManager.h"
#include "librivo/Col.h"
#include "librivo/DeckManager.h"
#include "tests/app/ScreenFixture.h"

namespace rivo {
namespace {

using Strings = std::vector<std::string>;
namespace fs = std::filesystem;

class ProfilesViewControllerTest : public test::ScreenFixture {
 protected:
  void SetUp() override {
    ScreenFixture::SetUp();
    send("title");
  }
  // Adds through the screen; the alert or sheet that followed, if any.
  std::string add(const std::string& typed) {
    ui.events.clear();
    send("button", "add");
    EXPECT_EQ(ui.events.at(0), "text:Create profile||[]|Cancel|OK");
    ui.type(typed);
    settle();
    return ui.events.size() > 1 ? ui.events.back() : "";
  }
  std::string rename(const std::string& from, const std::string& typed) {
    ui.events.clear();
    send("row", from, "menu");
    ui.sheetAnswers.back()(0);
    EXPECT_EQ(ui.events.at(1), "text:Rename '" + from + "'||[" + from + "]|Cancel|OK");
    ui.type(typed);
    settle();
    return ui.events.size() > 2 ? ui.events.back() : "";
  }
};

TEST_F(ProfilesViewControllerTest, AddAndRenameRefuseWithTheirMessages) {
  EXPECT_EQ(ui.screen["title"], "Profiles");
  EXPECT_EQ(rowIds(), Strings{"User 1"});
  EXPECT_EQ(row("User 1")["accessory"], "check");

  EXPECT_EQ(add("  Work_  "), "");
  EXPECT_EQ(rowIds(), (Strings{"User 1", "Work"}));
  EXPECT_EQ(add("__ ::"), "alert:|Please avoid symbols and underscores.");
  EXPECT_EQ(add(".."), "alert:|Please avoid symbols and underscores.");
  EXPECT_EQ(add("Work"), "alert:|A profile with that name already exists.");

  add("Home");
  EXPECT_EQ(rename("Work", "Home"), "alert:|A profile with the same name already exists.");
  EXPECT_EQ(rename("Work", "Work"), "alert:|A profile with the same name already exists.");
  EXPECT_EQ(rename("Work", "?"), "alert:|Please avoid symbols and underscores.");
  EXPECT_EQ(rename("Work", "Job"), "");
  // A renamed profile moves to the end, with its folder.
  EXPECT_EQ(rowIds(), (Strings{"User 1", "Home", "Job"}));
  EXPECT_TRUE(fs::is_directory(dir.file("data/profiles/Job")));

  // The current profile has no menu; the list's title shows the profile once there are two.
  ui.events.clear();
  send("row", "User 1", "menu");
  EXPECT_EQ(ui.events,
            Strings{"alert:|To rename or delete this profile, please select another first."});
  send("back");
  EXPECT_EQ(ui.screen["title"], "User 1");
}

TEST_F(ProfilesViewControllerTest, SwitchingLoadsInAJobAndDeletingAsksFirst) {
  add("Work");
  ui.events.clear();
  EXPECT_TRUE(send("row", "Work", "select"));
  // The load job, the backup its unloading queued (which finds the new profile's collection
  // open and makes its first backup) and the deck list's own load. Their order is the work
  // queue's and the deck list's delayed start, which a busy machine may interleave otherwise.
  for (const char* shown : {"spinner:Loading profile: Work", "spinner:Finishing Backup...",
                            "text:Finishing Backup... 100%", "spinner:Checking..."})
    EXPECT_NE(std::find(ui.events.begin(), ui.events.end(), shown), ui.events.end()) << shown;
  EXPECT_TRUE(fs::exists(dir.file("data/Documents/backup-Work-1.rpkg")));
  EXPECT_EQ(app->nc()->depth(), 1u);
  EXPECT_EQ(ui.screen["title"], "Work");
  EXPECT_EQ(app->pm().currentProfile(), "Work");
  EXPECT_EQ(app->col()->path(), dir.file("data/profiles/Work/collection.rivo2"));

  send("title");
  ui.events.clear();
  send("row", "User 1", "menu");
  EXPECT_EQ(ui.events.at(0), "sheet:Action|Rename|Delete|Cancel");
  ui.sheetAnswers.back()(1);
  EXPECT_EQ(ui.events.at(1), "ask:Confirm Delete|Delete profile?|No|Yes");
  ui.answers.back()(0);
  EXPECT_EQ(rowIds(), (Strings{"User 1", "Work"}));
  send("row", "User 1", "menu");
  ui.sheetAnswers.back()(1);
  ui.answers.back()(1);
  settle();
  EXPECT_EQ(rowIds(), Strings{"Work"});
  EXPECT_FALSE(fs::exists(dir.file("data/profiles/User 1")));
  // The screen refuses for the current profile even when asked directly.
  auto* profiles = dynamic_cast<ProfilesViewController*>(app->nc()->top());
  ui.events.clear();
  profiles->deleteProfile("Work");
  profiles->renameProfile("Work");
  EXPECT_EQ(ui.events, (Strings{"alert:|Please select another profile before deleting this one.",
                                "alert:|Please select another profile before renaming this one."}));
}

}  // namespace
}  // namespace rivo
