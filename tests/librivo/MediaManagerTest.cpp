#include "librivo/MediaManager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "librivo/Checksum.h"
#include "librivo/Error.h"
#include "librivo/ZipReader.h"
#include "librivo/ZipWriter.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo {
namespace {

namespace fs = std::filesystem;

const std::string kComposed = "caf\xC3\xA9.png";     // é as one code point
const std::string kDecomposed = "cafe\xCC\x81.png";  // e and a combining accent

// Built in steps: "f" + std::to_string(i) trips a false -Wrestrict warning in GCC 12.
std::string numbered(const char* prefix, int i) {
  std::string name = prefix;
  name += std::to_string(i);
  return name;
}

class Media : public test::CollectionTest {
 protected:
  MediaManager& mm() { return col->media(); }
  std::string media(const std::string& name) const { return dir.file("media/" + name); }
  void put(const std::string& name, const std::string& bytes, int64_t mtime = 1700000000) {
    test::writeFile(media(name), bytes);
    setMtime(media(name), mtime);
  }
  static void setMtime(const std::string& path, int64_t seconds) {
    timespec times[2] = {{seconds, 0}, {seconds, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
  }
  // The folder's own time moves, as it does when a file comes or goes in a later second.
  void touchFolder(int64_t seconds) { setMtime(dir.file("media"), seconds); }
  std::vector<Row> rows() {
    return mm().db()->all("select fname, csum, mtime, dirty from media order by fname");
  }
  std::string zipOf(const std::vector<std::pair<std::string, std::string>>& entries) {
    const std::string path = dir.file("batch.zip");
    ZipWriter zip(path);
    for (const auto& [name, bytes] : entries) zip.add(name, bytes);
    EXPECT_TRUE(zip.close());
    return test::readFile(path);
  }
};

TEST_F(Media, TheDatabaseLiesBesideTheFolderAndIsRebuiltWhenUnreadable) {
  EXPECT_TRUE(fs::is_directory(dir.file("media")));
  EXPECT_EQ(mm().db()->all("select * from meta"), (std::vector<Row>{{int64_t{0}, int64_t{0}}}));
  put("a.png", "A");
  mm().findChanges();
  mm().setLastUsn(7);
  mm().db()->run("update media set dirty = 0");  // as after an upload
  mm().db()->commit();

  for (const std::string& damage : {std::string("not a database at all"), std::string()}) {
    col->close();
    if (damage.empty())
      fs::remove(dir.file("media.rm.db3"));
    else
      test::writeFile(dir.file("media.rm.db3"), damage);
    open();
    EXPECT_EQ(mm().lastUsn(), 0) << "a fresh log: the next sync starts from nothing";
    mm().findChanges();
    ASSERT_EQ(rows().size(), 1u);
    // Every file goes up again, as after a forced resync: never "no changes".
    EXPECT_TRUE(mm().haveDirty());
    EXPECT_EQ(test::readFile(media("a.png")), "A");
  }
  EXPECT_EQ(test::readFile(dir.file("media.rm.db3.corrupt")), "not a database at all");
}

TEST_F(Media, AddFileStoresByNameAndNeverOverwritesOtherContent) {
  const std::string src = dir.file("src");
  fs::create_directory(src);
  test::writeFile(src + "/a.png", "one");
  EXPECT_EQ(mm().addFile(src + "/a.png"), "a.png");
  EXPECT_EQ(mm().addFile(src + "/a.png"), "a.png") << "same bytes: already there";
  EXPECT_EQ(test::readFile(media("a.png")), "one");

  // Other bytes under a taken name go to the next free name; the first file stays.
  test::writeFile(src + "/a.png", "two");
  EXPECT_EQ(mm().addFile(src + "/a.png"), "a (1).png");
  EXPECT_EQ(test::readFile(media("a (1).png")), "two");
  EXPECT_EQ(test::readFile(media("a.png")), "one");
  test::writeFile(src + "/a.png", "three");
  EXPECT_EQ(mm().addFile(src + "/a.png"), "a (1) (1).png") << "the number never counts up";

  test::writeFile(src + "/x:y?[1].png", "s");
  EXPECT_EQ(mm().addFile(src + "/x:y?[1].png"), "xy1.png");
  test::writeFile(src + "/" + kDecomposed, "c");
  EXPECT_EQ(mm().addFile(src + "/" + kDecomposed), kComposed);
  EXPECT_EQ(test::readFile(media(kComposed)), "c");
  EXPECT_EQ(mm().addFile(src + "/.."), "");
  EXPECT_EQ(mm().addFile(src + "/missing.png"), "missing.png") << "a failed copy is only logged";
  EXPECT_FALSE(fs::exists(media("missing.png")));
  EXPECT_NE(debugLog().find("Error copying audio: "), std::string::npos);
}

TEST_F(Media, NoNameReachesOutsideTheFolder) {
  test::writeFile(dir.file("outside"), "keep");
  for (const std::string& name :
       {std::string("../outside"), std::string("a/b"), dir.file("outside"), std::string(".."),
        std::string("."), std::string(""), std::string("x\0y", 3), std::string("x\ny"),
        std::string("x\x7fy"), std::string("..\\outside")}) {
    EXPECT_FALSE(MediaManager::isPlainName(name)) << name;
    EXPECT_FALSE(mm().have(name)) << name;
    mm().syncDelete(name);
  }
  EXPECT_TRUE(MediaManager::isPlainName("a b (1).png"));
  EXPECT_TRUE(MediaManager::isPlainName(kComposed));
  EXPECT_EQ(test::readFile(dir.file("outside")), "keep");

  // The folder's own names: a decomposed file answers to its composed name.
  put(kDecomposed, "c");
  EXPECT_TRUE(mm().have(kComposed));
  EXPECT_EQ(MediaManager::stripIllegal("a]b[c>d<e:f\"g/h?i*j^k\\l|m\x01.png"),
            "abcdefghijklm\x01.png");
  EXPECT_TRUE(MediaManager::hasIllegal("a|b"));
  EXPECT_FALSE(MediaManager::hasIllegal(".hidden\tname"));
}

TEST_F(Media, ReferencesInFieldText) {
  const std::string text =
      "<IMG class=x SRC='a.png'>[sound:b.mp3]<img src=\"http://h/c.png\"> [Sound:b.mp3]"
      "<img src=d%20e.jpg><img src=\"see-https://x\">[sound:ftp://f.mp3]";
  EXPECT_EQ(mm().filesInStr(0, text),
            (std::vector<std::string>{"b.mp3", "b.mp3", "a.png", "d%20e.jpg"}));
  EXPECT_TRUE(mm().filesInStr(0, text, true).empty());
  EXPECT_EQ(mm().strip("x[sound:b.mp3]y<img src=a.png>z"), "xyz");
  EXPECT_EQ(mm().escapeImages("<img src=\"a b%.png\"> <img src='http://h/a b.png'>"),
            "<img src=\"a%20b%25.png\"> <img src='http://h/a b.png'>");
  const auto renamed = mm().transformNames(
      "[sound:a.mp3] <img src=\"b.png\">",
      [](const std::vector<std::string>& g) { return "{" + g[2] + "|" + g[1] + "}"; });
  EXPECT_EQ(renamed, "{a.mp3|[sound:a.mp3]} {b.png|<img src=\"b.png\">}");
}

TEST_F(Media, TheFirstScanRecordsWhatTheFolderHolds) {
  std::vector<std::string> status;
  mm().setStatusSink([&](const std::string& text) { status.push_back(text); });
  for (int i = 0; i < 26; ++i) put(numbered("f", i), numbered("bytes ", i));
  put(kDecomposed, "cafe");
  put("Thumbs.DB", "t");
  put("what?.png", "q");
  put("empty.png", "");
  fs::create_directory(media("sub"));
  touchFolder(0);
  mm().findChanges();  // runs although the folder's time is 0: nothing was scanned yet

  EXPECT_EQ(mm().mediaCount(), 27);
  EXPECT_EQ(mm().syncInfo(kComposed), std::make_pair(checksum(std::string("cafe")), int64_t{1}));
  EXPECT_EQ(mm().syncInfo("Thumbs.DB"), std::make_pair(std::string(), int64_t{0}));
  EXPECT_TRUE(fs::exists(media("Thumbs.DB")) && fs::exists(media("what?.png")));
  EXPECT_TRUE(fs::exists(media(kDecomposed))) << "names on disk are never changed";
  EXPECT_FALSE(fs::exists(media("empty.png")));
  EXPECT_EQ(status, (std::vector<std::string>{"Scanned 1 media file(s)...",
                                              "Scanned 26 media file(s)...", "Updating..."}));

  // Both spellings of one name on disk: the file the name opens counts, in every scan.
  put(kComposed, "composed", 1700000500);
  for (int64_t folderTime : {1, 2}) {
    touchFolder(folderTime);
    mm().findChanges();
    EXPECT_EQ(mm().syncInfo(kComposed),
              std::make_pair(checksum(std::string("composed")), int64_t{1}));
  }
  EXPECT_EQ(mm().mediaCount(), 27);
}

TEST_F(Media, LaterScansFollowChangesDeletionsAndRenames) {
  put("same", "s");
  put("edit", "e1");
  put("touch", "t");
  put("gone", "g");
  put("old-name", "r");
  mm().findChanges();
  mm().markClean({"same", "edit", "touch", "gone", "old-name"});
  const int64_t dirMod = mm().db()->scalarInt("select dirMod from meta");
  EXPECT_EQ(dirMod, mm()._mtime(dir.file("media")));

  // Unchanged folder time: no scan at all, so even an edited file goes unseen.
  put("edit", "e2", 1700000100);
  touchFolder(dirMod);
  mm().findChanges();
  EXPECT_EQ(mm().dirtyCount(), 0);

  put("touch", "t", 1700000200);
  fs::remove(media("gone"));
  fs::rename(media("old-name"), media("new-name"));
  put("same", "");  // emptied: removed at the scan
  touchFolder(dirMod + 10);
  mm().findChanges();
  EXPECT_EQ(rows(), (std::vector<Row>{
                        {"edit", checksum(std::string("e2")), int64_t{1700000100}, int64_t{1}},
                        {"gone", Null{}, int64_t{0}, int64_t{1}},
                        {"new-name", checksum(std::string("r")), int64_t{1700000000}, int64_t{1}},
                        {"old-name", Null{}, int64_t{0}, int64_t{1}},
                        {"same", Null{}, int64_t{0}, int64_t{1}},
                        {"touch", checksum(std::string("t")), int64_t{1700000000}, int64_t{0}}}))
      << "a file only touched keeps its row";
  EXPECT_EQ(mm().syncInfo("gone"), std::make_pair(std::string(), int64_t{1}));
}

TEST_F(Media, UploadBatchesAreStoredZipsWithAMetaList) {
  mm().db()->run("insert into media values ('deleted', null, 0, 1)");
  put("a.png", "A");
  put(kDecomposed, "accented");
  put("b.png", "B");
  mm().findChanges();

  auto batch = mm().mediaChangesZip();
  ASSERT_TRUE(batch);
  const std::string path = dir.file("up.zip");
  test::writeFile(path, batch->zip);
  ZipReader zip(path);
  const auto entries = zip.entries();
  ASSERT_EQ(entries.size(), 4u);
  for (size_t i = 0; i < 3; ++i) EXPECT_TRUE(entries[i].stored);
  EXPECT_EQ(entries.back().name, "_meta");
  const Json meta = Json::parse(*zip.read("_meta"));
  ASSERT_EQ(meta.size(), 4u);
  ASSERT_EQ(batch->names.size(), 4u);
  EXPECT_EQ(meta[0], Json::array({"deleted", ""}));
  for (size_t i = 1; i < meta.size(); ++i) {
    const std::string name = meta[i][0], entry = meta[i][1];
    EXPECT_EQ(name, batch->names[i]);
    EXPECT_EQ(entry, std::to_string(i)) << "the deletion used up ordinal 0";
    EXPECT_EQ(*zip.read(entry), name == kComposed ? "accented" : test::readFile(media(name)));
  }

  mm().markClean(batch->names);
  mm().db()->run("insert into media values ('only-deleted', null, 0, 1)");
  batch = mm().mediaChangesZip();
  ASSERT_TRUE(batch);
  test::writeFile(path, batch->zip);
  EXPECT_EQ(ZipReader(path).entries().size(), 1u) << "deletions only: just the list";
  mm().markClean(batch->names);
  EXPECT_EQ(mm().mediaChangesZip()->names.size(), 0u);
}

TEST_F(Media, UploadBatchesStopAt25RowsOrAfterTheFilePassing2Point5MiB) {
  put("big", std::string(3 << 20, 'b'));
  for (int i = 0; i < 30; ++i) put(numbered("s", i), "small");
  auto dirty = [&](const std::vector<std::string>& names) {
    mm().db()->run("delete from media");
    for (const std::string& name : names)
      mm().db()->run("insert into media values (?, 'x', 0, 1)", {name});
  };
  dirty({"big", "s0"});
  EXPECT_EQ(mm().mediaChangesZip()->names, std::vector<std::string>{"big"});
  dirty({"s0", "big", "s1"});
  EXPECT_EQ(mm().mediaChangesZip()->names, (std::vector<std::string>{"s0", "big"}));
  std::vector<std::string> many;
  for (int i = 0; i < 30; ++i) many.push_back(numbered("s", i));
  dirty(many);
  EXPECT_EQ(mm().mediaChangesZip()->names.size(), 25u);

  fs::remove(media("s0"));
  Error error;
  EXPECT_FALSE(mm().mediaChangesZip(&error));
  EXPECT_EQ(error.domain, "mediaError");
  EXPECT_EQ(error.message, "Couldn't find media file to send");
}

TEST_F(Media, UnreadableFilesKeepTheirRowsAndStopTheUploadWithAClearError) {
  put("a.png", "A");
  fs::create_directory(media("folder.png"));
  mm().findChanges();
  mm().db()->run("insert into media values ('folder.png', 'x', 0, 1)");
  mm().markClean({"a.png"});
  Error error;
  EXPECT_FALSE(mm().mediaChangesZip(&error));
  EXPECT_EQ(error.message, "Couldn't read media file to send: folder.png: Is a directory");

  if (geteuid() == 0) GTEST_SKIP() << "root reads any file";
  mm().db()->run("delete from media where fname='folder.png'");
  fs::permissions(media("a.png"), fs::perms::none);
  setMtime(media("a.png"), 1800000000);
  touchFolder(1800000000);
  mm().findChanges();
  EXPECT_EQ(mm().syncInfo("a.png"), std::make_pair(checksum(std::string("A")), int64_t{0}));
  mm().db()->run("update media set dirty=1");
  EXPECT_FALSE(mm().mediaChangesZip(&error));
  EXPECT_EQ(error.message, "Couldn't read media file to send: a.png: Permission denied");
  EXPECT_TRUE(fs::exists(media("a.png")));
}

TEST_F(Media, DownloadBatchesWriteCleanFilesAndRefuseNamesFromOutside) {
  put("old.png", "old");
  put(kDecomposed, "old accent");
  mm().findChanges();
  test::writeFile(dir.file("outside"), "keep");
  const Json meta = {{"0", "old.png"},     {"1", "../outside"}, {"2", "a/b"},
                     {"3", dir.file("x")}, {"4", "ctl\x01"},    {"5", kComposed}};
  const std::string zip = zipOf({{"0", "new"},
                                 {"1", "evil"},
                                 {"2", "evil"},
                                 {"3", "evil"},
                                 {"4", "evil"},
                                 {"5", "new accent"},
                                 {"_meta", meta.dump()}});
  Error error;
  mm().close();
  EXPECT_EQ(mm().addFilesFromZip(zip, &error), 6) << "refused names still count as taken";
  EXPECT_EQ(error.message, "");
  EXPECT_EQ(test::readFile(media("old.png")), "new");
  EXPECT_EQ(test::readFile(media(kDecomposed)), "new accent") << "the file on disk is replaced";
  EXPECT_FALSE(fs::exists(media(kComposed)));
  EXPECT_EQ(test::readFile(dir.file("outside")), "keep");
  EXPECT_FALSE(fs::exists(dir.file("x")));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.file("media")), fs::directory_iterator()), 2);
  EXPECT_EQ(mm().syncInfo("old.png"), std::make_pair(checksum(std::string("new")), int64_t{0}));
  EXPECT_EQ(mm().syncInfo(kComposed).second, 0);
}

TEST_F(Media, DamagedDownloadBatchesChangeNothing) {
  put("a.png", "mine");
  const std::string good = zipOf({{"0", "theirs"}, {"_meta", Json{{"0", "a.png"}}.dump()}});
  const std::vector<std::string> bad = {
      good.substr(0, good.size() - 30),  // truncated: no directory at the end
      "not a zip",
      zipOf({{"0", "theirs"}, {"1", "extra"}, {"_meta", Json{{"0", "a.png"}}.dump()}}),
      zipOf({{"0", "theirs"}}),
      zipOf({{"0", "theirs"}, {"_meta", "[\"a.png\"]"}}),
  };
  for (const std::string& data : bad) {
    Error error;
    EXPECT_EQ(mm().addFilesFromZip(data, &error), 0);
    EXPECT_EQ(error.domain, "mediaError");
    EXPECT_FALSE(error.message.empty());
    EXPECT_EQ(test::readFile(media("a.png")), "mine");
    EXPECT_EQ(mm().syncInfo("a.png").first, "");
  }
  EXPECT_EQ(mm().addFilesFromZip(good), 1);
  EXPECT_EQ(test::readFile(media("a.png")), "theirs");
}

TEST_F(Media, SyncBookkeeping) {
  put("a.png", "A");
  put("b.png", "B");
  mm().findChanges();
  mm().markClean({"a.png", "b.png"});
  EXPECT_EQ(mm().syncInfo("nothing"), std::make_pair(std::string(), int64_t{0}));
  mm().syncDelete("a.png");
  EXPECT_FALSE(fs::exists(media("a.png")));
  EXPECT_EQ(mm().syncInfo("a.png"), std::make_pair(std::string(), int64_t{0}));
  mm().setLastUsn(42);
  mm().db()->rollback();
  EXPECT_EQ(mm().lastUsn(), 42) << "committed";

  mm().forceResync();
  EXPECT_EQ(mm().db()->all("select * from meta"), (std::vector<Row>{{int64_t{0}, int64_t{0}}}));
  mm().findChanges();
  EXPECT_EQ(mm().dirtyCount(), 1) << "every file is new again";
}

}  // namespace
}  // namespace rivo
