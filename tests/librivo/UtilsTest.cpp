#include "librivo/Checksum.h"
#include "librivo/FieldText.h"
#include "librivo/Files.h"
#include "librivo/Grouping.h"
#include "librivo/Ids.h"
#include "librivo/Random.h"
#include "librivo/TimeSpan.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "librivo/Clock.h"
#include "librivo/DB.h"
#include "tests/support/TempDir.h"

namespace rivo {
namespace {

TEST(UtilsIds, NewIdsAreAboveTheClockAndTheIdsInUse) {
  Clock::Override clock(1700000000.5);
  DB db(":memory:");
  db.executeScript("create table cards (id integer primary key); create table notes (id)");
  const int64_t first = timestampID(db, "cards");
  EXPECT_EQ(first, 1700000000500);
  EXPECT_EQ(maxID(db), "1700000000501");
  db.run("insert into cards values (?)", {first});
  EXPECT_EQ(timestampID(db, "cards"), first + 1);
  db.run("insert into notes values (1800000000000)");
  EXPECT_EQ(maxID(db), "1800000000001");
}

struct SpanCase {
  float seconds;
  int point;
  bool shortForm;
  int maxUnit;
  const char* expected;
};

TEST(UtilsTimeSpan, ChoosesUnitNumberPluralAndSign) {
  const SpanCase cases[] = {
      {59, 0, false, 99, "59 seconds"},
      {59.9f, 0, false, 99, "59 seconds"},  // the time is truncated first
      {60, 0, false, 99, "1 minute"},
      {90, 0, false, 99, "2 minutes"},  // 1.5 rounds half away from zero
      {2592000, 0, false, 99, "1 month"},
      {3888000, 0, false, 99, "1.5 months"},
      {259200, 0, false, 2, "72 hours"},
      {259200, 0, false, 0, "259200 seconds"},
      {5400, 1, false, 99, "1.5 hours"},
      {7200, 1, false, 99, "2 hours"},  // trailing zeros dropped
      {30, 1, false, 99, "30 seconds"},
      {63072000, 0, false, 99, "2 years"},
      {259200, 0, true, 99, "3d"},
      {5184000, 0, true, 99, "2mo"},
      {120, 0, true, 99, "2m"},
      {0, 0, false, 99, "0 seconds"},
      {3240000, 0, false, 99, "1.2 months"},  // 1.25: fractions round half to even
      {4536000, 0, false, 99, "1.8 months"},  // 1.75
      // A negative span keeps its sign and takes the unit of its magnitude.
      {-90, 0, false, 99, "-2 minutes"},
      {-172800, 0, false, 99, "-2 days"},
      {-30, 0, true, 99, "-30s"},
  };
  for (const SpanCase& c : cases)
    EXPECT_EQ(fmtTimeSpan(0, c.point, c.shortForm, false, c.maxUnit, c.seconds), c.expected)
        << c.seconds << " s, point " << c.point;
  // Digits and the translator's mark.
  EXPECT_EQ(fmtTimeSpan(2, 0, false, false, 99, 5), "05 seconds");
  EXPECT_EQ(fmtTimeSpan(0, 0, false, true, 99, 86400), "1 day<!--after-->");
  EXPECT_EQ(fmtTimeSpan(0, 0, false, true, 99, 172800), "2 days<!--after-->");
  EXPECT_EQ(optimalPeriod(59, 0, 99).point, 0);  // lowered to -1, then raised to 0
  EXPECT_EQ(optimalPeriod(40000000, 0, 4).unit, "months");
  EXPECT_EQ(optimalPeriod(40000000, 0, 4).point, 1);
  EXPECT_THROW(convertSecondsTo(1, "weeks"), std::invalid_argument);
}

TEST(UtilsText, StripHtmlMediaAndSounds) {
  EXPECT_EQ(stripHTML("plain &amp; simple"), "plain &amp; simple");
  EXPECT_EQ(stripHTML("<b>bold</b> <div class=\"x\">text</div>"), "bold text");
  EXPECT_EQ(stripHTML("a<style type=\"text/css\">\n.card {\n color: red }\n</style>b"), "ab");
  EXPECT_EQ(stripHTML("a<script>\nvar x = '<b>';\n</script>b<script>y()</script>c"), "abc");
  // A tag broken over lines is not a tag.
  EXPECT_EQ(stripHTML("x<br\n>y"), "x<br\n>y");

  EXPECT_EQ(stripHTMLMedia("<img src=\"cat.jpg\">"), "cat.jpg");
  EXPECT_EQ(stripHTMLMedia("a <img src='big dog.png' /> b"), "a big dog.png b");
  EXPECT_EQ(stripHTMLMedia("<img class=\"x\" src=\"cat.jpg\">"), "");
  EXPECT_EQ(stripSounds("a[sound:x.mp3]b[sound:y.mp3]c"), "abc");
  EXPECT_EQ(stripSounds("[sound:x.mp3"), "[sound:x.mp3");
}

TEST(UtilsText, FieldsAndIdLists) {
  EXPECT_EQ(splitFields("a\037"), (std::vector<std::string>{"a", ""}));
  EXPECT_EQ(splitFields(""), (std::vector<std::string>{""}));
  EXPECT_EQ(splitFields("\037\037"), (std::vector<std::string>{"", "", ""}));
  const std::vector<std::string> fields{"front", "", "back <b>x</b>"};
  EXPECT_EQ(joinFields(fields), "front\037\037back <b>x</b>");
  EXPECT_EQ(splitFields(joinFields(fields)), fields);
  EXPECT_EQ(ids2str(std::vector<int64_t>{}), "()");
  EXPECT_EQ(ids2str(std::vector<int64_t>{1, -2, 1700000000000}), "(1,-2,1700000000000)");
  EXPECT_EQ(ids2str(std::vector<std::string>{"5", "6"}), "(5,6)");
}

TEST(UtilsText, JsEscapeMakesAJavaScriptStringLiteral) {
  EXPECT_EQ(jsEscape("a\"b\nc"), "\"a\\\"b\\nc\"");
  EXPECT_EQ(jsEscape("x\u2028y\u2029z"), "\"x\\u2028y\\u2029z\"");
  // Only image sources become ASCII; other text stays as it is.
  EXPECT_EQ(jsEscape("é<img src=\"café.jpg\" width=3>"),
            "\"é<img src=\\\"caf&eacute;.jpg\\\" width=3>\"");
  EXPECT_EQ(jsEscape("<img src=ü.png>"), "\"<img src=&uuml;.png>\"");
}

TEST(UtilsChecksum, Sha1AndFieldChecksum) {
  EXPECT_EQ(checksum("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(checksum(std::vector<uint8_t>{'a', 'b', 'c'}), checksum("abc"));
  EXPECT_EQ(checksum("é"), checksum(std::vector<uint8_t>{0xc3, 0xa9}));
  EXPECT_EQ(fieldChecksum(""), 0xda39a3eeLL);
  EXPECT_EQ(fieldChecksum("<img src=\"x.jpg\">"), fieldChecksum("x.jpg"));
  EXPECT_EQ(fieldChecksum("x.jpg"), std::stoll(checksum("x.jpg").substr(0, 8), nullptr, 16));
  EXPECT_EQ(fieldChecksum("<b>abc</b>"), 0xa9993e36LL);
  EXPECT_EQ(hexToDecimal("ff"), "255");
  EXPECT_EQ(hexToDecimal("FFFFFFFFFFFFFFFF"), "18446744073709551615");
  EXPECT_EQ(hexToDecimal("zz"), "0");
}

TEST(UtilsChecksum, Base62AndGuids) {
  EXPECT_EQ(base62(0), "");
  EXPECT_EQ(base62(61), "9");
  EXPECT_EQ(base62(62), "ba");
  EXPECT_EQ(base62(63, "!#"), "#");  // base 64
  EXPECT_EQ(base62(64 + 62, "!#"), "b!");
  EXPECT_EQ(base62(UINT64_MAX, "!#$%&()*+,-./:;<=>?@[]^_`{|}~").size(), 10u);
  const std::string alphabet =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!#$%&()*+,-./:;<=>?@[]^_`{|}~";
  std::set<std::string> seen;
  for (int i = 0; i < 50; ++i) {
    const std::string g = guid64();
    EXPECT_LE(g.size(), 10u);
    EXPECT_EQ(g.find_first_not_of(alphabet), std::string::npos) << g;
    seen.insert(g);
  }
  EXPECT_EQ(seen.size(), 50u);
}

TEST(UtilsRandom, RandomBetweenDrawsThousandthsInRange) {
  EXPECT_EQ(randomBetween(1.0f, 1.0f), 1.0f);
  EXPECT_EQ(randomBetween(3.0f, 3.0005f), 3.0005f);  // less than a thousandth apart
  for (int i = 0; i < 200; ++i) {
    const float r = randomBetween(1.0f, 1.25f);
    EXPECT_GE(r, 1.0f);
    EXPECT_LT(r, 1.25f);
  }
}

TEST(UtilsGrouping, GroupByDropsEmptyKeysAndSortsWithoutCase) {
  using Row = std::pair<std::string, int>;
  const std::vector<Row> rows{{"b", 1}, {"", 2}, {"a", 3}, {"B", 4}, {"b", 5}};
  auto groups = groupBy(rows, [](const Row& r) { return r.first; });
  EXPECT_EQ(groups.size(), 3u);
  EXPECT_EQ(groups.count(""), 0u);
  EXPECT_EQ(groups["b"], (std::vector<Row>{{"b", 1}, {"b", 5}}));
  EXPECT_EQ(groups["B"].size(), 1u);
  EXPECT_TRUE(caseInsensitiveLess("apple", "Banana"));
  EXPECT_FALSE(caseInsensitiveLess("Apple", "apple"));
}

TEST(UtilsTempFiles, WritesUniqueFilesAndClearsTheFolder) {
  test::TempDir dir;
  const std::string a = tmpFileFromData(dir.path(), std::string_view("\0bytes", 6));
  const std::string b = tmpFileFromJSON(dir.path(), Json{{"k", 1}});
  EXPECT_NE(a, b);
  EXPECT_EQ(std::filesystem::path(a).parent_path(), dir.path());
  EXPECT_EQ(std::filesystem::path(a).extension(), ".tmp");
  EXPECT_EQ(test::readFile(a), std::string("\0bytes", 6));
  EXPECT_EQ(test::readFile(b), "{\"k\":1}");

  const std::string c = getUniqueFilenameInFolder(dir.path(), "jpg");
  EXPECT_NE(c, getUniqueFilenameInFolder(dir.path() + "/", "jpg"));
  EXPECT_EQ(std::filesystem::path(c).parent_path(), dir.path());
  EXPECT_EQ(std::filesystem::path(c).filename().string().size(), 36u + 4u);
  EXPECT_EQ(std::filesystem::path(c).extension(), ".jpg");

  std::filesystem::create_directories(dir.file("sub/deeper"));
  clearTempDir(dir.path());
  EXPECT_TRUE(std::filesystem::is_directory(dir.path()));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
  clearTempDir(dir.file("missing"));  // no error
}

TEST(UtilsTempFiles, WritesAWholeFileAtomically) {
  namespace fs = std::filesystem;
  test::TempDir dir;
  const std::string path = dir.file("prefs.json");
  std::string problem;
  ASSERT_TRUE(writeFileAtomically(path, "old", 0600, &problem)) << problem;
  test::writeFile(path + ".tmp", "left by a crash");
  fs::permissions(path + ".tmp", fs::perms::all);
  ASSERT_TRUE(writeFileAtomically(path, "new", 0600, &problem)) << problem;
  EXPECT_EQ(test::readFile(path), "new");
  EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_FALSE(fs::exists(path + ".tmp"));

  EXPECT_FALSE(writeFileAtomically(dir.file("none/x"), "a", 0600, &problem));
  EXPECT_NE(problem.find("can't create"), std::string::npos);
  // A folder in the way can't be replaced: it stays, and nothing is left beside it.
  fs::create_directories(dir.file("taken/inside"));
  problem.clear();
  EXPECT_FALSE(writeFileAtomically(dir.file("taken"), "a", 0600, &problem));
  EXPECT_FALSE(problem.empty());
  EXPECT_TRUE(fs::is_directory(dir.file("taken/inside")));
  EXPECT_FALSE(fs::exists(dir.file("taken.tmp")));
}

TEST(UtilsStrings, EscapeRegexInOnePassAndReverse) {
  EXPECT_EQ(escapeRegexFromString("a.b*c"), "a\\.b\\*c");
  EXPECT_EQ(escapeRegexFromString("\\"), "\\\\");
  EXPECT_EQ(escapeRegexFromString("x[y]"), "x\\[y]");
  EXPECT_EQ(escapeRegexFromString("(a|b){2}^$?+"), "\\(a\\|b\\)\\{2\\}\\^\\$\\?\\+");
  EXPECT_EQ(reverseString("aé€"), "€éa");  // by character, not by byte
}

}  // namespace
}  // namespace rivo
