#include "librivo/HtmlEscape.h"

#include <gtest/gtest.h>
#include <unicode/unistr.h>

#include <algorithm>

namespace rivo {
namespace {

std::string fromCodePoint(UChar32 c) {
  std::string out;
  icu::UnicodeString(c).toUTF8String(out);
  return out;
}

TEST(HtmlEscape, EscapesMarkupAndForAsciiNamesWhatItCanAndNumbersTheRest) {
  EXPECT_EQ(stringByEscapingForHTML("<a href=\"x\">'&'</a>"),
            "&lt;a href=&quot;x&quot;&gt;&apos;&amp;&apos;&lt;/a&gt;");
  EXPECT_EQ(stringByEscapingForHTML("café €"), "café €");
  EXPECT_EQ(stringByEscapingForAsciiHTML("plain <text>"), "plain &lt;text&gt;");
  EXPECT_EQ(stringByEscapingForAsciiHTML("é€ア\u00a0"), "&eacute;&euro;&#12450;&nbsp;");
  EXPECT_EQ(stringByEscapingForAsciiHTML("\xF0\x9F\x98\x80"), "&#128512;");
}

TEST(HtmlEscape, UnescapesNamedAndNumericEntities) {
  EXPECT_EQ(stringByUnescapingFromHTML("&lt;b&gt; &amp; &quot;&apos;"), "<b> & \"'");
  EXPECT_EQ(stringByUnescapingFromHTML("&eacute;&hearts;&thetasym;&rArr;&sigmaf;&Omega;"),
            "é♥ϑ⇒ςΩ");
  EXPECT_EQ(stringByUnescapingFromHTML("&#65;&#x42;&#X43;&#0065;"), "ABCA");
  EXPECT_EQ(stringByUnescapingFromHTML("&#65534;"), "\uFFFE");
}

TEST(HtmlEscape, LeavesWhatIsNotAKnownEntity) {
  for (const char* text : {"&foo;", "&AMP;", "&#0;", "&#65535;", "&#x1F600;", "&#;", "&#x;",
                           "&#12a;", "AT&T", "&", "a & b;", "&;", "&amp"})
    EXPECT_EQ(stringByUnescapingFromHTML(text), text);
  // One pass only.
  EXPECT_EQ(stringByUnescapingFromHTML("&amp;lt;"), "&lt;");
  EXPECT_EQ(stringByUnescapingFromHTML("&&amp;x&#65;"), "&&xA");
}

TEST(HtmlEscape, AsciiEscapeRoundTripsEveryBasicPlaneCharacter) {
  for (UChar32 c = 1; c < 0xFFFE; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    const std::string text = fromCodePoint(c);
    const std::string escaped = stringByEscapingForAsciiHTML(text);
    ASSERT_TRUE(std::all_of(escaped.begin(), escaped.end(),
                            [](char b) { return static_cast<unsigned char>(b) < 0x80; }));
    ASSERT_EQ(stringByUnescapingFromHTML(escaped), text) << "U+" << std::hex << c;
  }
}

}  // namespace
}  // namespace rivo
