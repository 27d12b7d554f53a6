// Questions and answers from render rows and from cards: the context, cloze numbers, the
// answer's copy of the question, the style sheet, the card's cache and the texts shown instead
// of a rendering.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "librivo/Card.h"
#include "librivo/DeckManager.h"
#include "tests/librivo/NoteTypeFixture.h"

namespace rivo::test {
namespace {

constexpr Id kRichId = 1600000000003;
const std::string kStyle = "<style>.card {color: red}</style>";

class RenderingTest : public CollectionTest {
 protected:
  void SetUp() override {
    CollectionTest::SetUp();
    col->models().models()[std::to_string(kRichId)] = Json::parse(R"({
      "id": "1600000000003", "name": "Rich", "type": 0, "sortf": 0, "did": 1, "tags": [],
      "css": "",
      "flds": [{"name": "Front", "ord": 0}, {"name": "Back", "ord": 1},
               {"name": "Extra", "ord": 2}, {"name": "Reading", "ord": 3}],
      "tmpls": [{"name": "Forward", "ord": 0, "qfmt": "{{Front}}", "afmt": "{{Back}}"},
                {"name": "Reverse", "ord": 1, "qfmt": "{{Back}}", "afmt": "{{Front}}"}],
      "req": [[0, "any", [0]], [1, "any", [1]]]})");
    basic()["css"] = ".card {color: red}";
    basic()["tmpls"][0]["afmt"] = "{{FrontSide}}<hr id=answer>{{Back}}";
    basic()["tmpls"][1]["afmt"] = "{{Front}}";
    col->models().save();
  }

  // Deck ids wait for the clock, which the fixture pins.
  Id deck(const std::string& name) {
    clock.advance(1);
    return col->decks().getID(name);
  }

  // One row rendered with these formats, as card 7 of note 8.
  RenderedQA render(const std::string& qfmt, const std::string& afmt, const std::string& flds,
                    int ord = 0, Id did = 1, const std::string& tags = "  ", Id mid = kRichId) {
    return col->_renderQA({Id{7}, Id{8}, mid, did, int64_t{ord}, tags, flds}, qfmt, afmt);
  }
  std::string question(const std::string& qfmt, const std::string& flds, int ord = 0) {
    return render(qfmt, "", flds, ord).q;
  }
  std::string cloze(const std::string& qfmt, const std::string& text, int ord) {
    return render(qfmt, "", text + "\037", ord, 1, "  ", kClozeId).q;
  }
};

TEST_F(RenderingTest, ContextNamesTheCardItsDeckAndType) {
  deck("Lang");
  const RenderedQA qa = render("{{Tags}}|{{Type}}|{{Deck}}|{{Card}}", "{{Card}}", "F\037B", 1,
                               deck("Lang::Japanese"), "  verb n5  ");
  EXPECT_EQ(qa.id, 7);
  EXPECT_EQ(qa.q, "verb n5|Rich|Lang::Japanese|Reverse");
  EXPECT_EQ(qa.a, "Reverse");

  // Each card knows its own number, so a template can differ between cards.
  const std::string t = "{{#c2}}second{{/c2}}{{^c2}}not second{{/c2}}";
  EXPECT_EQ(question(t, "F\037B", 0), "not second");
  EXPECT_EQ(question(t, "F\037B", 1), "second");

  // A cloze type has one template, whatever the card's number.
  EXPECT_EQ(cloze("{{Card}} {{#c3}}3{{/c3}}", "x", 2), "Cloze 3");
}

TEST_F(RenderingTest, FieldsThatAreMissingOrNotYetThere) {
  // The question has no copy of itself to show.
  EXPECT_EQ(question("{{FrontSide}}", "F\037B"), "unknown field: FrontSide");
  // A note with fewer values than its type has fields reads the rest as empty.
  EXPECT_EQ(question("{{Front}}/{{Reading}}", "F"), "F/");
  // The type-answer marker goes on untouched, cloze or not.
  EXPECT_EQ(question("{{type:Back}}", "F\037B"), "[[type:Back]]");
  EXPECT_EQ(cloze("{{type:cloze:Text}}", "{{c1::a}}", 0), "[[type:cloze:Text]]");
}

TEST_F(RenderingTest, ClozeHidesOwnDeletionAndShowsTheOthers) {
  const std::string text = "{{c1::Paris::city}} is in {{c2::France}}.";
  auto qa = [&](int ord) {
    return render("{{cloze:Text}}", "{{CLOZE:Text}}<br>{{Extra}}", text + "\037E", ord, 1, "  ",
                  kClozeId);
  };
  EXPECT_EQ(qa(0).q, "<span class=cloze>[city]</span> is in France.");
  EXPECT_EQ(qa(0).a, "<span class=cloze>Paris</span> is in France.<br>E");
  EXPECT_EQ(qa(1).q, "Paris is in <span class=cloze>[...]</span>.");
  EXPECT_EQ(qa(1).a, "Paris is in <span class=cloze>France</span>.<br>E");
  // No deletion of this number: the cloze part is empty.
  EXPECT_EQ(qa(2).q, "");
  EXPECT_EQ(qa(2).a, "<br>E");

  // The other delimiter form is rewritten too, in any case of letters.
  EXPECT_EQ(cloze("{{=<% %>=}}<%Cloze:Text%>", text, 1), qa(1).q);
  EXPECT_EQ(cloze("{{cLoZe:Text}}", text, 1), qa(1).q);
}

TEST_F(RenderingTest, AnswerShowsTheQuestionWithoutSoundsAndLatexAsPictures) {
  const RenderedQA qa =
      render("{{Front}}[sound:a.mp3]", "{{FrontSide}}<hr id=answer>{{Back}}", "[$]x[/$]\037B");
  const std::string img =
      "<img class=latex onError=\"latexError(this)\" "
      "src=\"latex-26eeb5258ca5099acf8fe96b2a1049c48c89a5e6.png\">";
  EXPECT_EQ(qa.q, img + "[sound:a.mp3]");
  EXPECT_EQ(qa.a, img + "<hr id=answer>B");
}

TEST_F(RenderingTest, CardAddsStyleSheetAndUsesHomeDeck) {
  const Id nid = insertNote("F\037B");
  Card card(*col, insertCard(nid, 0));
  EXPECT_EQ(card.q(), kStyle + "F");
  EXPECT_EQ(card.a(), kStyle + "F<hr id=answer>B");

  // A card in a filtered deck shows the name of the deck it came from.
  basic()["tmpls"][1]["qfmt"] = "{{Deck}}";
  Card moved(*col, insertCard(nid, 1));
  moved.did = deck("Filtered");
  moved.odid = deck("Home");
  EXPECT_EQ(moved.q(), kStyle + "Home");
}

TEST_F(RenderingTest, CardRendersOnceUntilReloaded) {
  const Id nid = insertNote("old\037B");
  Card card(*col, insertCard(nid, 0));
  EXPECT_EQ(card.q(), kStyle + "old");
  col->db()->run("update notes set flds = 'new\037B' where id = ?", {nid});
  EXPECT_EQ(card.q(), kStyle + "old");
  EXPECT_EQ(card.a(), kStyle + "old<hr id=answer>B");
  EXPECT_EQ(card.qAndReload(true), kStyle + "new");
  EXPECT_EQ(card.a(), kStyle + "new<hr id=answer>B");

  col->db()->run("update notes set flds = 'newer\037B' where id = ?", {nid});
  card.load();
  EXPECT_EQ(card.q(), kStyle + "newer");
}

TEST_F(RenderingTest, BrowserFormatsOverrideWhenAsked) {
  basic()["tmpls"][0]["bqfmt"] = "B: {{Front}}";
  basic()["tmpls"][0]["bafmt"] = "";
  const Id nid = insertNote("F\037B");
  Card card(*col, insertCard(nid, 0));
  EXPECT_EQ(card.qAndReload(true, true), kStyle + "B: F");
  EXPECT_EQ(card._getQA().a, "");
  // The cache doesn't remember which formats filled it.
  EXPECT_EQ(card.q(), kStyle + "B: F");
  EXPECT_EQ(card.qAndReload(true), kStyle + "F");

  // A template with no browser formats renders as usual.
  Card second(*col, insertCard(nid, 1));
  EXPECT_EQ(second.qAndReload(false, true), kStyle + "B");
  EXPECT_EQ(second.a(), kStyle + "F");
}

TEST_F(RenderingTest, InvalidAndEmptyCardsShowMessages) {
  const std::string blank =
      "The front of this card is blank. (<a "
      "href='https://rivo.kelpo.net/kb/card-appearance/the-front-of-this-card-is-blank'>help"
      "</a>)";
  const std::string invalid = "This card is invalid. Please use the Check Database feature.";

  // No template for the ordinal: the question is checked for emptiness first.
  Card beyond(*col, insertCard(insertNote("F\037B"), 5));
  EXPECT_EQ(beyond.q(), blank);
  EXPECT_EQ(beyond.qAndReload(false), kStyle + invalid);
  EXPECT_EQ(beyond.a(), kStyle + invalid);

  // A blank front: the message replaces the question, the answer renders as usual.
  Card blankFront(*col, insertCard(insertNote("\037B"), 0));
  EXPECT_EQ(blankFront.q(), blank);
  EXPECT_NE(debugLog().find("is empty"), std::string::npos);
  EXPECT_EQ(blankFront.a(), kStyle + "<hr id=answer>B");

  // A cloze card whose deletion is gone names its own number.
  Card gone(*col, insertCard(insertNote("{{c1::a}}\037", kClozeId), 2));
  EXPECT_EQ(gone.q(),
            "Missing {{c3::...}} on cloze. If you no longer need it, please use Tools&gt;Empty "
            "Cards in the computer version to delete this blank card. (<a "
            "href='https://rivo.kelpo.net/kb/problems/"
            "unexpected-empty-cards-when-using-cloze-deletion'>help</a>)");

  // A card whose note row is gone has no note type, and so no template.
  Card orphan(*col, insertCard(424242, 0));
  EXPECT_EQ(orphan.a(), "<style></style>" + invalid);
}

TEST_F(RenderingTest, BatchRenderingSelectsRowsByType) {
  const Id n1 = insertNote("F1\037B1");
  const Id c1 = insertCard(n1, 0);
  const Id c2 = insertCard(n1, 1);
  const Id c3 = insertCard(insertNote("F2\037B2"), 0);
  auto ids = [](const std::vector<RenderedQA>& list) {
    std::vector<Id> out;
    for (const RenderedQA& qa : list) out.push_back(qa.id);
    std::sort(out.begin(), out.end());
    return out;
  };
  const std::vector<RenderedQA> cards = col->renderQAWithIds({c1, c3});
  EXPECT_EQ(ids(cards), (std::vector<Id>{c1, c3}));
  for (const RenderedQA& qa : cards) EXPECT_EQ(qa.q, qa.id == c1 ? "F1" : "F2");
  EXPECT_EQ(ids(col->renderQAWithIds({n1}, "note")), (std::vector<Id>{c1, c2}));
  EXPECT_EQ(ids(col->renderQAWithType("all")), (std::vector<Id>{c1, c2, c3}));
  EXPECT_TRUE(col->renderQAWithIds({}).empty());
  // The model query names a table that isn't there; an unknown type renders everything.
  EXPECT_TRUE(col->renderQAWithIds({kBasicId}, "model").empty());
  EXPECT_EQ(ids(col->renderQAWithType("bogus")), (std::vector<Id>{c1, c2, c3}));
}

}  // namespace
}  // namespace rivo::test
