#include "librivo/Template.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>

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
  EXPECT_EQ(render("{{Missing}}", c), "unknown field: Missing");
  EXPECT_EQ(render("{{:Front}}", c), "unknown field: :Front");
  EXPECT_EQ(render("{{/Front}}", c), "unknown field: /Front");
  EXPECT_EQ(render("{{^Front}}", c), "unknown field: ^Front");
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
}

TEST(TemplateSections, InnerTextIsRenderedAfterwards) {
  const TemplateContext c = {{"F", "x"}, {"G", "y"}};
  EXPECT_EQ(render("<p>{{#F}}<b>{{F}}</b>\n{{G}}{{/F}}</p>", c), "<p><b>x</b>\ny</p>");
  EXPECT_EQ(render("{{#F}}1{{/F}}-{{#F}}1{{/F}}-{{#G}}2{{/G}}", c), "1-1-2");
}

TEST(TemplateSections, NestTwoDeep) {
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

TEST(TemplateSections, KeyNamingOneDeletionIsEmpty) {
  const TemplateContext c = {{"Text", "{{c1::a}}"}, {"cq:1:Text", "x"}};
  EXPECT_EQ(render("{{#cq:1:Text}}shown{{/cq:1:Text}}", c), "");
  EXPECT_EQ(render("{{^ca:1:Text}}shown{{/ca:1:Text}}", c), "shown");
}

TEST(TemplateModifiers, TextRemovesMarkupButNotEntities) {
  const TemplateContext c = {
      {"F", "<div>a <b>b</b></div><style>.x{}</style>&amp; <img src=\"p.png\">"}};
  EXPECT_EQ(render("{{text:F}}", c), "a b&amp; ");
  EXPECT_EQ(render("{{text:2:F}}", c), "a b&amp; ");
  EXPECT_EQ(render("[{{text:Missing}}]", c), "[]");
}

TEST(TemplateModifiers, TypeMarksTheAnswerFieldEvenIfMissing) {
  EXPECT_EQ(render("{{type:Back}} {{ type:cloze:Text }}", {}), "[[type:Back]] [[type:cloze:Text]]");
}

TEST(TemplateModifiers, FuriganaModifiersNeedTheirField) {
  const TemplateContext c = {{"R", "日本[にほん]"}};
  EXPECT_EQ(render("{{kanji:R}}/{{kana:R}}/{{furigana:R}}", c),
            "日本/にほん/<ruby><rb>日本</rb><rt>にほん</rt></ruby>");
  EXPECT_EQ(render("ok {{furigana:Missing}}", c), kInvalid);
}

std::string hintHtml(const std::string& id, const std::string& field, const std::string& text) {
  return "<a class=hint style='padding:2em;' href=\"#\" onclick=\"this.style.display='none';"
         "document.getElementById('" +
         id + "').style.display='block';return false;\"> Show " + field + "</a><div id=\"" + id +
         "\" class=hint style=\"display: none\">" + text + "</div>";
}

std::string hintId(const std::string& html) {
  const std::string before = "getElementById('";
  const size_t from = html.find(before);
  if (from == std::string::npos) return {};
  const size_t start = from + before.size();
  return html.substr(start, html.find('\'', start) - start);
}

TEST(TemplateModifiers, HintRevealsTheFieldOnClick) {
  const TemplateContext c = {{"Extra", "more <b>info</b>"}, {"Other", "else"}, {"Blank", " \n "}};
  const std::string html = render("{{hint:Extra}}", c);
  const std::string id = hintId(html);
  ASSERT_GT(id.size(), 4u);
  EXPECT_EQ(id.substr(0, 4), "hint");
  EXPECT_TRUE(std::all_of(id.begin() + 4, id.end(), [](char ch) { return ch >= '0' && ch <= '9'; }))
      << id;
  EXPECT_EQ(html, hintHtml(id, "Extra", "more <b>info</b>"));
  // Stable for one text, distinct for another.
  EXPECT_EQ(hintId(render("{{hint:Extra}}", c)), id);
  EXPECT_NE(hintId(render("{{hint:Other}}", c)), id);
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
}

TEST(TemplateCloze, DeletionsDoNotSpanLines) {
  EXPECT_EQ(render("[{{cq:1:T}}]", {{"T", "{{c1::a\nb}}"}}), "[]");
  EXPECT_EQ(render("{{cq:1:T}}", {{"T", "{{c1::a}}\n{{c2::b\nc}}"}}),
            "<span class=cloze>[...]</span>\n{{c2::b\nc}}");
}

TEST(TemplateCloze, MatchedTextIsReplacedWhereverItOccurs) {
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

TEST(TemplateMalformed, StrayBracesStay) {
  const TemplateContext c = {{"F", "x"}};
  EXPECT_EQ(render("a }} b {{ c\n{{F}} {{", c), "a }} b {{ c\nx {{");
  EXPECT_EQ(render("{{}}", c), "{{}}");
}

TEST(TemplateMalformed, DelimitersChangeForTheRestOfTheObjectsLife) {
  const TemplateContext c = {{"F", "x"}};
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

double secondsToRender(const std::string& templ, const TemplateContext& c, std::string* out) {
  double best = 1e9;
  for (int i = 0; i < 3; ++i) {
    const auto start = std::chrono::steady_clock::now();
    *out = render(templ, c);
    best = std::min(
        best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return best;
}

std::string repeatTo(const std::string& unit, size_t bytes) {
  std::string s;
  s.reserve(bytes + unit.size());
  while (s.size() < bytes) s += unit;
  return s;
}

// One megabyte renders well within the bound, and doubling it no more than about doubles the
// time: no step may rescan the text once per character or per line.
void expectLinear(const std::string& templ, const std::string& unit,
                  const std::function<std::string(const std::string&)>& expected) {
  double seconds[2];
  for (int i = 0; i < 2; ++i) {
    const std::string field = repeatTo(unit, size_t{1} << (20 + i));
    std::string out;
    seconds[i] = secondsToRender(templ, {{"F", field}, {"Back", "end"}}, &out);
    EXPECT_EQ(out, expected(field)) << unit;
  }
  EXPECT_LT(seconds[0], 2.0) << unit;
  EXPECT_LT(seconds[1], 3 * seconds[0] + 0.05)
      << unit << ": " << seconds[0] << " s, then " << seconds[1] << " s";
}

TEST(TemplatePerformance, MegabyteFieldRendersInLinearTime) {
  const std::string unit = "<b>word</b> 漢字 &amp; { } [x]\n";
  expectLinear("{{#F}}<div>{{F}}</div>{{/F}}{{^F}}none{{/F}}<p>{{text:F}}</p>{{Back}}", unit,
               [&](const std::string& field) {
                 std::string text;
                 for (size_t i = 0; i < field.size() / unit.size(); ++i)
                   text += "word 漢字 &amp; { } [x]\n";
                 return "<div>" + field + "</div><p>" + text + "</p>end";
               });
  expectLinear("{{cq:1:F}}", "{{c1::a::h}} {{c2::b}} x\n", [](const std::string& field) {
    std::string out;
    for (size_t i = 0; i < field.size() / 25; ++i) out += "<span class=cloze>[h]</span> b x\n";
    return out;
  });
  expectLinear("{{kana:F}}", "日本[にほん] ", [](const std::string& field) {
    std::string out;
    for (size_t i = 0; i < field.size() / std::string("日本[にほん] ").size(); ++i) out += "にほん";
    return out + " ";
  });
}

}  // namespace
}  // namespace rivo
