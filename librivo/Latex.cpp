#include "librivo/Latex.h"

#include <array>

#include "librivo/Checksum.h"
#include "librivo/FieldText.h"
#include "librivo/HtmlEscape.h"
#include "librivo/IcuText.h"

namespace rivo {

namespace {

using icutext::utf16;
using icutext::utf8;

struct LatexPattern {
  const char16_t* opener;  // the literal that starts every match
  std::unique_ptr<icu::RegexPattern> pattern;
  const char16_t* before;  // what wraps the source
  const char16_t* after;
};

// Applied in this order: standard, expression, math.
const std::array<LatexPattern, 3>& regexps() {
  constexpr uint32_t flags = UREGEX_CASE_INSENSITIVE | UREGEX_DOTALL;
  static const std::array<LatexPattern, 3> patterns{{
      {u"[latex]", icutext::compile(u"\\[latex\\](.+?)\\[/latex\\]", flags), u"", u""},
      {u"[$]", icutext::compile(u"\\[\\$\\](.+?)\\[/\\$\\]", flags), u"$", u"$"},
      {u"[$$]", icutext::compile(u"\\[\\$\\$\\](.+?)\\[/\\$\\$\\]", flags), u"\\begin{displaymath}",
       u"\\end{displaymath}"},
  }};
  return patterns;
}

const icu::RegexPattern& lineBreak() {
  static const auto p = icutext::compile(u"<br( /)?>|<div>");
  return *p;
}

const icu::RegexPattern& namedEntity() {
  static const auto p = icutext::compile(u"&([a-z]+);", UREGEX_CASE_INSENSITIVE);
  return *p;
}

}  // namespace

std::string Latex::mungeQAForHtml(const std::string& html, const Json& model) {
  if (html.find("[/") == std::string::npos) return html;
  icu::UnicodeString s = utf16(html);
  for (const LatexPattern& p : regexps()) {
    s = icutext::replaceMatchesEverywhere(*p.pattern, s, p.opener, true,
                                          [&](const icu::RegexMatcher& m) {
                                            UErrorCode status = U_ZERO_ERROR;
                                            icu::UnicodeString latex(p.before);
                                            latex.append(m.group(1, status)).append(p.after);
                                            return utf16(_imgLinkForLatex(utf8(latex), model));
                                          });
  }
  return utf8(s);
}

std::string Latex::stripLatex(const std::string& text) {
  if (text.find("[/") == std::string::npos) return text;
  icu::UnicodeString s = utf16(text);
  for (const LatexPattern& p : regexps()) s = icutext::replaceAll(*p.pattern, s, {});
  return utf8(s);
}

std::string Latex::_imgLinkForLatex(const std::string& latex, const Json& /*model*/) {
  return "<img class=latex onError=\"latexError(this)\" src=\"latex-" +
         checksum(_latexFromHtml(latex)) + ".png\">";
}

std::string Latex::_latexFromHtml(const std::string& latex) {
  icu::UnicodeString s = icutext::replaceLiteral(utf16(latex), u"&nbsp;", u" ");
  s = icutext::replaceAll(lineBreak(), s, u"\n");
  std::string text = stripHTML(utf8(s));
  const icu::UnicodeString u = utf16(text);
  auto m = icutext::matcher(namedEntity(), u);
  UErrorCode status = U_ZERO_ERROR;
  if (m->find(status)) text = stringByUnescapingFromHTML(text);
  return text;
}

}  // namespace rivo
