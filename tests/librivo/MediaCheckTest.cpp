#include <gtest/gtest.h>

#include <filesystem>

#include "librivo/MediaManager.h"
#include "librivo/Note.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

namespace fs = std::filesystem;

class MediaCheck : public test::CollectionTest {
 protected:
  std::optional<MediaManager::CheckResult> check() {
    return col->media().check([this](const std::string& text) {
      progress.push_back(text);
      return true;
    });
  }
  void put(const std::string& name) { test::writeFile(dir.file("media/" + name), "x"); }
  std::vector<std::string> progress;
};

TEST_F(MediaCheck, NothingToReport) {
  auto result = check();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->report(),
            "0 file(s) referenced in notes but missing file:\n<none>\n\n"
            "0 file(s) present but not used by any notes:\n<none>\n");
}

TEST_F(MediaCheck, ComparesReferencesWithTheFolder) {
  insertNote("<img src=\"here.png\">[sound:gone.mp3]\037<img src='gone.mp3'>");
  insertNote("[sound:_hidden.mp3]<img src=\"latex-abc.png\">\037<img src=\"http://x/y.png\">");
  insertNote("<img src=\"cafe\xCC\x81.png\">\037<img src=\"B.png\">");
  put("here.png");
  put("unused.png");
  put("a.png");
  put("_private.png");
  put("latex-def.png");
  put("thumbs.db");
  put("odd:name.png");
  put("caf\xC3\xA9.png");  // referenced in decomposed form, stored composed
  fs::create_directory(dir.file("media/folder"));

  auto result = check();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->missing, (std::vector<std::string>{"B.png", "gone.mp3"}));
  EXPECT_EQ(result->unused,
            (std::vector<std::string>{"a.png", "odd:name.png", "thumbs.db", "unused.png"}));
  EXPECT_EQ(result->report(),
            "2 file(s) referenced in notes but missing file:\nB.png\ngone.mp3\n\n"
            "4 file(s) present but not used by any notes:\na.png\nodd:name.png\nthumbs.db\n"
            "unused.png\n\nLaTeX use found. Please use the computer version to check LaTeX "
            "files.\n");
  EXPECT_EQ(col->media().db()->scalarInt("select count() from media"), 0)
      << "the check leaves the change log alone";
}

TEST_F(MediaCheck, RepairsDecomposedNoteTextAndReportsProgress) {
  for (int i = 0; i < 21; ++i) insertNote("plain\037");
  const Id nid = insertNote("cafe\xCC\x81\037<img src=\"x.png\">");
  col->save();
  ASSERT_TRUE(check());
  EXPECT_EQ(col->getNote(nid)->fields[0], "caf\xC3\xA9");
  col->db()->rollback();
  EXPECT_EQ(col->getNote(nid)->fields[0], "caf\xC3\xA9") << "saved";
  EXPECT_EQ(progress, (std::vector<std::string>{"Scanned 1 notes...", "Scanned 21 notes...",
                                                "Fixed 1 note refs...", "Saving notes..."}));

  // Cancelling at the first question gives nothing.
  put("x.png");
  auto cancelled = col->media().check([](const std::string&) { return false; });
  EXPECT_FALSE(cancelled);
}

}  // namespace
}  // namespace rivo
