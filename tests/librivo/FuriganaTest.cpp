#include "librivo/Furigana.h"

#include <gtest/gtest.h>

namespace rivo {
namespace {

TEST(Furigana, ReducesReadingsToWordsReadingsOrRuby) {
  const Furigana f;
  const std::string text = "日本[にほん]語[ご]";
  EXPECT_EQ(f.kanji(text), "日本語");
  EXPECT_EQ(f.kana(text), "にほんご");
  EXPECT_EQ(f.furigana(text),
            "<ruby><rb>日本</rb><rt>にほん</rt></ruby><ruby><rb>語</rb><rt>ご</rt></ruby>");
}

TEST(Furigana, WordStopsAtBlankOrTagEndAndTheBlankBeforeItIsDropped) {
  const Furigana f;
  EXPECT_EQ(f.furigana("私は 日本[にほん]"), "私は<ruby><rb>日本</rb><rt>にほん</rt></ruby>");
  EXPECT_EQ(f.kanji("私は 日本[にほん]です"), "私は日本です");
  EXPECT_EQ(f.kana("<b>漢[かん]</b>"), "<b>かん</b>");
  // "&nbsp;" is a blank, so it separates the word too.
  EXPECT_EQ(f.kana("a&nbsp;b[c]"), "ac");
  EXPECT_EQ(f.kanji("a&nbsp;b"), "a b");
}

TEST(Furigana, LeavesSoundTagsAndPlainTextAlone) {
  const Furigana f;
  EXPECT_EQ(f.kanji("x[sound:a$1\\b.mp3]"), "x[sound:a$1\\b.mp3]");
  EXPECT_EQ(f.kana("日本[にほん][sound:n.mp3]"), "にほん[sound:n.mp3]");
  EXPECT_EQ(f.furigana("no readings here, [] neither"), "no readings here, [] neither");
  EXPECT_EQ(f.kanji("$2[$1]"), "$2");
  EXPECT_EQ(f.kana(""), "");
}

TEST(Furigana, ReadingDoesNotSpanLines) {
  const Furigana f;
  EXPECT_EQ(f.kana("a[b\nc]"), "a[b\nc]");
  // The word may: it is any run without blanks or ">".
  EXPECT_EQ(f.kana("a\nb[c]"), "c");
}

}  // namespace
}  // namespace rivo
