#include "librivo/Latex.h"

#include <gtest/gtest.h>

namespace rivo {
namespace {

// SHA-1 digests computed with sha1sum, independently of the code under test.
constexpr const char* kDollarX = "26eeb5258ca5099acf8fe96b2a1049c48c89a5e6";      // "$x$"
constexpr const char* kDisplayX = "291ba45a7c0f5521a78ef3a6e04f25000a3a3f5c";     // display x
constexpr const char* kLineBreak = "fcd127ffa1016069006ad91f3f361248f9bdf272";    // "a\nb"
constexpr const char* kAmpersand = "92d2cb006b06fe6cfacf5d445c4eefc95f825bf8";    // "a & b"
constexpr const char* kBlank = "7dbde93504122a707f849f2c12bdd9de71b41929";        // "a b"
constexpr const char* kNumericOnly = "cdf5555a8f7c7b4be3dcced24309bac5ae845549";  // "&#65;"
constexpr const char* kBothDecoded = "899dea401b6f70d6e5a4eee6d3bef877907a5195";  // "A&"
constexpr const char* kA = "86f7e437faa5a7fce15d1ddcb9eaeaea377667b8";            // "a"
constexpr const char* kY = "95cb0bfd2977c761298d9624e4b4d4c72a39974a";            // "y"

std::string img(const std::string& sha) {
  return "<img class=latex onError=\"latexError(this)\" src=\"latex-" + sha + ".png\">";
}

std::string munge(const std::string& html) {
  const Json model = {
      {"latexPre", "\\documentclass{article}"}, {"latexPost", "\\end{document}"}, {"type", 0}};
  return Latex::mungeQAForHtml(html, model);
}

TEST(Latex, EachKindBecomesAPictureNamedAfterItsWrappedSource) {
  EXPECT_EQ(munge("x [$]x[/$] y"), "x " + img(kDollarX) + " y");
  // The same source, wrapped by hand, finds the same picture.
  EXPECT_EQ(munge("[latex]$x$[/latex]"), img(kDollarX));
  EXPECT_EQ(munge("[$$]x[/$$]"), img(kDisplayX));
  EXPECT_EQ(munge("[LaTeX]$x$[/LATEX] [$]x[/$]"), img(kDollarX) + " " + img(kDollarX));
  EXPECT_EQ(munge("[latex]a\nb[/latex]"), img(kLineBreak));
  EXPECT_EQ(munge("[latex]a[/latex][latex]y[/latex]"), img(kA) + img(kY));
  // The second tag's text ends with the first's, which is replaced inside it too, so the
  // second is no longer found whole.
  EXPECT_EQ(munge("[latex]a[/latex] [latex]b[latex]a[/latex]"), img(kA) + " [latex]b" + img(kA));
}

TEST(Latex, SourceIsCleanedOfEditorMarkupBeforeHashing) {
  EXPECT_EQ(munge("[latex]a<br>b[/latex]"), img(kLineBreak));
  EXPECT_EQ(munge("[latex]a<br />b[/latex]"), img(kLineBreak));
  EXPECT_EQ(munge("[latex]a<div>b</div>[/latex]"), img(kLineBreak));
  EXPECT_EQ(munge("[latex]<b>a</b>&nbsp;b[/latex]"), img(kBlank));
  EXPECT_EQ(munge("[latex]a &amp; b[/latex]"), img(kAmpersand));
  // Entities are decoded only when a named one is present.
  EXPECT_EQ(munge("[latex]&#65;[/latex]"), img(kNumericOnly));
  EXPECT_EQ(munge("[latex]&#65;&amp;[/latex]"), img(kBothDecoded));
}

TEST(Latex, TextWithoutCompleteTagsIsUnchangedAndStripRemovesTagsWithTheirContent) {
  for (const char* text : {"", "plain [b] text", "[latex][/latex]", "[$]x", "x[/$]", "[$ ]x[/$]"})
    EXPECT_EQ(munge(text), text);
  EXPECT_EQ(Latex::stripLatex("a [latex]x[/latex] b [$]y[/$] c [$$]z\n[/$$]."), "a  b  c .");
  EXPECT_EQ(Latex::stripLatex("[LATEX]x[/latex]kept [$]open"), "kept [$]open");
}

}  // namespace
}  // namespace rivo
