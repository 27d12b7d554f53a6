#include "librivo/Template.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <regex>

namespace rivo {
namespace {

const std::string kInvalid = "{{invalid template}}";

std::string render(const std::string& templ, const TemplateContext& context) {
  return Template(templ, context).render();
}

TEST(Template, TagsBecomeFieldValuesAsTheyStand) {
  const TemplateContext c = {
      {"Front", "<b>x</b> & y"}, {"Add Reverse", "yes"}, {"Note:Extra", "n"}};
  EXPECT_EQ(render("no tags, <b>markup</b> } { }}", c), "no tags, <b>markup</b> } { }}");
  EXPECT_EQ(render("{{Front}}|{{ Front }}", c), "<b>x</b> & y|<b>x</b> & y");
  EXPECT_EQ(render("{{{Front}}}", c), "<b>x</b> & y");
  EXPECT_EQ(render("{{Front}}}}", c), "<b>x</b> & y");
  // A tag's text is replaced wherever it occurs, also inside a longer tag.
  EXPECT_EQ(render("{{Front}}|{{{Front}}}", c), "<b>x</b> & y|{<b>x</b> & y}");
  EXPECT_EQ(render("{{Add Reverse}} {{Note:Extra}}", c), "yes n");
  EXPECT_EQ(render("a{{! a comment {with braces} }}b", c), "ab");
  EXPECT_EQ(render("", c), "");
}

TEST(Template, UnknownNamesAreShownInTheCard) {
  const TemplateContext c = {{"Front", "x"}};
  for (const char* name : {"Missing", ":Front", "/Front", "^Front"})
    EXPECT_EQ(render(std::string("{{") + name + "}}", c), std::string("unknown field: ") + name);
  EXPECT_EQ(render("{{foo:Missing}}", c), "{unknown field foo:Missing}");
  EXPECT_EQ(render("{{a:b:c:Front}}", c), "{unknown field a:b:c:Front}");
  // An unknown modifier, or a known one in other letters, gives the field unchanged.
  EXPECT_EQ(render("{{foo:Front}} {{Text:Front}} {{cloze:Front}}", c), "x x x");
}

TEST(TemplateSections, ShowWhenTheFieldHasVisibleContent) {
  const std::string normal = "{{#F}}a{{/F}}", inverted = "{{^F}}a{{/F}}";
  struct Case {
    const char* value;
    bool visible;
  };
  for (const Case& k : {Case{"", false}, Case{"<br>", false}, Case{"<div><br /></div>", false},
                        Case{"<img src=a.png>", true}, Case{" ", true}, Case{"x", true}}) {
    const TemplateContext c = {{"F", k.value}};
    EXPECT_EQ(render(normal, c), k.visible ? "a" : "") << k.value;
    EXPECT_EQ(render(inverted, c), k.visible ? "" : "a") << k.value;
  }
  EXPECT_EQ(render(normal, {}), "");
  EXPECT_EQ(render(inverted, {}), "a");
  EXPECT_EQ(render("{{|F}}a{{/F}}", {{"F", "x"}}), "a");
  EXPECT_EQ(render("{{# F }}a{{/ F }}", {{"F", "x"}}), "a");
  EXPECT_EQ(render("{{#c2}}second{{/c2}}{{^c2}}other{{/c2}}", {{"c2", "1"}}), "second");
  EXPECT_EQ(render("{{#c2}}second{{/c2}}{{^c2}}other{{/c2}}", {{"c1", "1"}}), "other");
  // A key naming one cloze deletion is always empty.
  const TemplateContext cloze = {{"Text", "{{c1::a}}"}, {"cq:1:Text", "x"}};
  EXPECT_EQ(render("{{#cq:1:Text}}shown{{/cq:1:Text}}", cloze), "");
  EXPECT_EQ(render("{{^ca:1:Text}}shown{{/ca:1:Text}}", cloze), "shown");
}

TEST(TemplateSections, NestTwoDeepAndRenderTheirInnerTextAfterwards) {
  EXPECT_EQ(render("<p>{{#F}}<b>{{F}}</b>\n{{G}}{{/F}}</p>", {{"F", "x"}, {"G", "y"}}),
            "<p><b>x</b>\ny</p>");
  EXPECT_EQ(render("{{#F}}1{{/F}}-{{#F}}1{{/F}}-{{#G}}2{{/G}}", {{"F", "x"}, {"G", "y"}}), "1-1-2");
  const std::string t =
      "{{#A}}A:{{#B}}B={{B}}{{/B}}{{^B}}noB{{/B}};{{/A}}{{^A}}noA{{#B}}+B{{/B}}{{/A}}";
  EXPECT_EQ(render(t, {{"A", "1"}, {"B", "2"}}), "A:B=2;");
  EXPECT_EQ(render(t, {{"A", "1"}, {"B", ""}}), "A:noB;");
  EXPECT_EQ(render(t, {{"A", ""}, {"B", "2"}}), "noA+B");
  EXPECT_EQ(render(t, {}), "noA");
}

TEST(TemplateSections, SameKeyNestsOnlyAsFarAsTheShortestInnerText) {
  const std::string t = "{{#A}}x{{#A}}y{{/A}}z{{/A}}";
  EXPECT_EQ(render(t, {{"A", "1"}}), "xyz");
  // The first section ends at the first closing tag; the second closing tag is left over.
  EXPECT_EQ(render(t, {{"A", ""}}), "zunknown field: /A");
}

TEST(TemplateModifiers, TextRemovesMarkupButNotEntities) {
  const TemplateContext c = {
      {"F", "<div>a <b>b</b></div><style>.x{}</style>&amp; <img src=\"p.png\">"}};
  EXPECT_EQ(render("{{text:F}}", c), "a b&amp; ");
  EXPECT_EQ(render("{{text:2:F}}", c), "a b&amp; ");
  EXPECT_EQ(render("[{{text:Missing}}]", c), "[]");
  // The type-answer marker stays for a later step, even for a missing field.
  EXPECT_EQ(render("{{type:Back}} {{ type:cloze:Text }}", {}), "[[type:Back]] [[type:cloze:Text]]");
}

TEST(TemplateModifiers, FuriganaModifiersNeedTheirField) {
  const TemplateContext c = {{"R", "日本[にほん]"}};
  EXPECT_EQ(render("{{kanji:R}}/{{kana:R}}/{{furigana:R}}", c),
            "日本/にほん/<ruby><rb>日本</rb><rt>にほん</rt></ruby>");
  EXPECT_EQ(render("ok {{furigana:Missing}}", c), kInvalid);
}

TEST(TemplateModifiers, HintRevealsTheFieldOnClick) {
  const TemplateContext c = {{"Extra", "more <b>info</b>"}, {"Other", "else"}, {"Blank", " \n "}};
  auto hintId = [&](const std::string& field) {
    std::smatch m;
    const std::string html = render("{{hint:" + field + "}}", c);
    return std::regex_search(html, m, std::regex("getElementById\\('(hint[0-9]+)'\\)"))
               ? m[1].str()
               : std::string();
  };
  const std::string id = hintId("Extra");
  ASSERT_FALSE(id.empty());
  EXPECT_EQ(render("{{hint:Extra}}", c),
            "<a class=hint style='padding:2em;' href=\"#\" onclick=\"this.style.display='none';"
            "document.getElementById('" +
                id + "').style.display='block';return false;\"> Show Extra</a><div id=\"" + id +
                "\" class=hint style=\"display: none\">more <b>info</b></div>");
  // Stable for one text, distinct for another.
  EXPECT_EQ(hintId("Extra"), id);
  EXPECT_NE(hintId("Other"), id);
  EXPECT_EQ(render("[{{hint:Blank}}][{{hint:Missing}}]", c), "[][]");
}

TEST(TemplateCloze, QuestionHidesItsDeletionAndAnswerHighlightsIt) {
  const TemplateContext c = {{"Text", "{{c1::a::hint}} {{c2::b}}"},
                             {"Many", "{{c1::x}}, {{c1::y::why}} and {{c3::z::zed}}"},
                             {"Ten", "{{c10::ten}} {{c1::one}}"}};
  EXPECT_EQ(render("{{cq:1:Text}}", c), "<span class=cloze>[hint]</span> b");
  EXPECT_EQ(render("<div>{{cq:2:Text}}</div>", c), "<div>a <span class=cloze>[...]</span></div>");
  EXPECT_EQ(render("{{ca:1:Text}}", c), "<span class=cloze>a</span> b");
  EXPECT_EQ(render("{{ca:2:Text}}", c), "a <span class=cloze>b</span>");
  EXPECT_EQ(render("{{cq:1:Many}}", c),
            "<span class=cloze>[...]</span>, <span class=cloze>[why]</span> and z");
  EXPECT_EQ(render("{{ca:1:Many}}", c),
            "<span class=cloze>x</span>, <span class=cloze>y</span> and z");
  EXPECT_EQ(render("{{cq:1:Ten}}", c), "ten <span class=cloze>[...]</span>");
}

TEST(TemplateCloze, MissingPiecesAndOtherNumbers) {
  const TemplateContext c = {{"Text", "{{c1::a}} {{c2::b}}"}, {"Empty", ""}};
  EXPECT_EQ(render("[{{cq:3:Text}}]", c), "[]");
  EXPECT_EQ(render("[{{ca:1:Empty}}]", c), "[]");
  EXPECT_EQ(render("{{cq:2:Missing}}", c), "cq");
  EXPECT_EQ(render("{{ca:Text}}", c), "ca");
  // A number that doesn't parse is 0, which no deletion has.
  EXPECT_EQ(render("[{{cq:x:Text}}]", c), "[]");
  // Deletions don't span lines.
  EXPECT_EQ(render("[{{cq:1:T}}]", {{"T", "{{c1::a\nb}}"}}), "[]");
  EXPECT_EQ(render("{{cq:1:T}}", {{"T", "{{c1::a}}\n{{c2::b\nc}}"}}),
            "<span class=cloze>[...]</span>\n{{c2::b\nc}}");
  // The second deletion ends with the text of the first, which is replaced inside it, so the
  // second is no longer found whole and stays as written.
  EXPECT_EQ(render("{{cq:1:T}}", {{"T", "{{c1::a}} {{c1::b{{c1::a}}"}}),
            "<span class=cloze>[...]</span> {{c1::b<span class=cloze>[...]</span>");
}

TEST(TemplateMalformed, RendersAsInvalidTemplate) {
  const TemplateContext c = {{"F", "x"}};
  for (const char* t : {"{{#F}}never closed", "a {{&F}} b", "{{>F}}", "{{#F}}{{/F}}",
                        "{{=single=}}", "{{=( x=}}", "{{#F}}a{{/G}}"})
    EXPECT_EQ(render(t, c), kInvalid) << t;
}

TEST(TemplateMalformed, StrayBracesStayAndDelimitersChangeForTheRestOfTheObjectsLife) {
  const TemplateContext c = {{"F", "x"}};
  EXPECT_EQ(render("a }} b {{ c\n{{F}} {{", c), "a }} b {{ c\nx {{");
  EXPECT_EQ(render("{{}}", c), "{{}}");
  EXPECT_EQ(render("{{=<% %>=}}<%F%> {{F}}", c), "x {{F}}");
  Template t("{{= <% %> =}}", c);
  EXPECT_EQ(t.render(), "");
  EXPECT_EQ(t.renderTemplate("<%#F%>[<%F%>]<%/F%> {{F}}", c), "[x] {{F}}");
}

TEST(TemplateMalformed, FieldValuesAreTemplateText) {
  EXPECT_EQ(render("{{Front}}", {{"Front", "see {{Back}}"}, {"Back", "b"}}), "see b");
  EXPECT_EQ(render("{{Front}}", {{"Front", "{{c1::x}}"}}), "{unknown field c1::x}");
  // Sections are over by the time a value comes in.
  EXPECT_EQ(render("{{Front}}", {{"Front", "{{#Back}}b{{/Back}}"}, {"Back", "b"}}), kInvalid);
}

TEST(TemplateMalformed, ValuesThatNeverFinishExpandingFailInsteadOfLooping) {
  EXPECT_EQ(render("{{F}}", {{"F", "{{F}}"}}), kInvalid);
  EXPECT_EQ(render("a{{F}}", {{"F", "x{{F}}"}}), kInvalid);
  EXPECT_EQ(render("{{A}}", {{"A", "{{B}}"}, {"B", "{{A}}"}}), kInvalid);
  EXPECT_EQ(render("{{A}}", {{"A", std::string(1 << 20, 'a') + "{{A}}"}}), kInvalid);
  // Delimiters matching the unknown-field text it produces.
  EXPECT_EQ(render("{{=u n=}}unknown", {}), kInvalid);
}

TEST(TemplateMalformed, BacktrackingWithoutEndIsCut) {
  const std::string text(64, 'a');
  EXPECT_EQ(render("{{=(a|aa)+b c=}}" + text, {}), kInvalid);
  // A long line of unclosed openings.
  std::string openings;
  for (int i = 0; i < 20000; ++i) openings += "{{ab ";
  EXPECT_EQ(render("{{F}}", {{"F", openings}}), kInvalid);
}

// One megabyte renders well within the bound, and doubling it no more than about doubles the
// time: no step may rescan the text once per character or per line. The output is `outUnit`
// once per `unit` of the field, between `before` and `after`.
void expectLinear(const std::string& templ, const std::string& unit, const std::string& outUnit,
                  const std::string& before, const std::string& after) {
  double seconds[2] = {1e9, 1e9};
  for (int i = 0; i < 2; ++i) {
    std::string field, expected = before;
    for (size_t n = 0; n < (size_t{1} << (20 + i)) / unit.size(); ++n) {
      field += unit;
      expected += outUnit;
    }
    for (int round = 0; round < 3; ++round) {
      const auto start = std::chrono::steady_clock::now();
      const std::string out = render(templ, {{"F", field}});
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      seconds[i] = std::min(seconds[i], took.count());
      ASSERT_EQ(out, expected + after) << unit;
    }
  }
  EXPECT_LT(seconds[0], 2.0) << unit;
  EXPECT_LT(seconds[1], 3 * seconds[0] + 0.05)
      << unit << ": " << seconds[0] << " s, then " << seconds[1] << " s";
}

TEST(TemplatePerformance, MegabyteFieldRendersInLinearTime) {
  const std::string unit = "<b>word</b> 漢字 &amp; { } [x]\n";
  expectLinear("{{#F}}<div>{{F}}</div>{{/F}}{{^F}}none{{/F}}", unit, unit, "<div>", "</div>");
  expectLinear("<p>{{text:F}}</p>", unit, "word 漢字 &amp; { } [x]\n", "<p>", "</p>");
  expectLinear("{{cq:1:F}}", "{{c1::a::h}} {{c2::b}} x\n", "<span class=cloze>[h]</span> b x\n", "",
               "");
  expectLinear("{{kana:F}}", "日本[にほん] ", "にほん", "", " ");
}

}  // namespace
}  // namespace rivo
