#include "librivo/Furigana.h"

#include <gtest/gtest.h>

namespace rivo {
namespace {

TEST(Furigana, ReducesReadingsToWordsReadingsOrRuby) {
  const Furigana f;
  EXPECT_EQ(f.kanji("日本[にほん]語[ご]"), "日本語");
  EXPECT_EQ(f.kana("日本[にほん]語[ご]"), "にほんご");
  EXPECT_EQ(f.furigana("日本[にほん]語[ご]"),
            "<ruby><rb>日本</rb><rt>にほん</rt></ruby><ruby><rb>語</rb><rt>ご</rt></ruby>");
  // A word stops at a blank or a tag's end, and the blank before it is dropped.
  EXPECT_EQ(f.furigana("私は 日本[にほん]"), "私は<ruby><rb>日本</rb><rt>にほん</rt></ruby>");
  EXPECT_EQ(f.kanji("私は 日本[にほん]です"), "私は日本です");
  EXPECT_EQ(f.kana("<b>漢[かん]</b>"), "<b>かん</b>");
  // "&nbsp;" is a blank, so it separates the word too.
  EXPECT_EQ(f.kana("a&nbsp;b[c]"), "ac");
  EXPECT_EQ(f.kanji("a&nbsp;b"), "a b");
  // A reading doesn't span lines; the word may.
  EXPECT_EQ(f.kana("a[b\nc]"), "a[b\nc]");
  EXPECT_EQ(f.kana("a\nb[c]"), "c");
}

TEST(Furigana, LeavesSoundTagsAndPlainTextAlone) {
  const Furigana f;
  EXPECT_EQ(f.kanji("x[sound:a$1\\b.mp3]"), "x[sound:a$1\\b.mp3]");
  EXPECT_EQ(f.kana("日本[にほん][sound:n.mp3]"), "にほん[sound:n.mp3]");
  EXPECT_EQ(f.furigana("no readings here, [] neither"), "no readings here, [] neither");
  EXPECT_EQ(f.kanji("$2[$1]"), "$2");
  EXPECT_EQ(f.kana(""), "");
}

}  // namespace
}  // namespace rivo
