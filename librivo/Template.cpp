#include "librivo/Template.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <cctype>
#include <cstdio>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "librivo/FieldText.h"
#include "librivo/Furigana.h"
#include "librivo/IcuText.h"

namespace rivo {

namespace {

using icutext::utf16;
using icutext::utf8;

constexpr const char* kDefaultOtag = "\\{\\{";
constexpr const char* kDefaultCtag = "\\}\\}";

// Field values are template text too, so a value can keep bringing in tags. These bounds end
// such a render, as a failure, long before it could exhaust time or memory; no card a person
// writes comes near them.
constexpr int kMaxTagPasses = 10000;
constexpr int64_t kMaxScannedUnits = int64_t{1} << 30;
constexpr int32_t kMaxLength = int32_t{1} << 24;
// Work one search may do, in ICU's steps (about a second): a line full of unclosed "{{" costs
// time quadratic in its length, and a user's delimiters, being regular expressions, may
// backtrack without end. Counted in steps, not time, so every machine gives the same result.
constexpr int32_t kMatchTimeLimit = 1000;

struct InvalidTemplate : std::runtime_error {
  InvalidTemplate() : std::runtime_error("invalid template") {}
};

std::string sectionSource(const std::string& otag, const std::string& ctag) {
  return otag + "[\\#|^]([^\\}]*)" + ctag + "(.+?)" + otag + "/\\1" + ctag;
}

std::string tagSource(const std::string& otag, const std::string& ctag) {
  return otag + "(#|=|&|!|>|\\{)?(.+?)\\1?" + ctag + "+";
}

std::shared_ptr<const icu::RegexPattern> compileSection(const std::string& otag,
                                                        const std::string& ctag) {
  return icutext::compile(utf16(sectionSource(otag, ctag)), UREGEX_DOTALL | UREGEX_MULTILINE);
}

std::shared_ptr<const icu::RegexPattern> compileTag(const std::string& otag,
                                                    const std::string& ctag) {
  return icutext::compile(utf16(tagSource(otag, ctag)));
}

const std::shared_ptr<const icu::RegexPattern>& defaultSection() {
  static const std::shared_ptr<const icu::RegexPattern> p =
      compileSection(kDefaultOtag, kDefaultCtag);
  return p;
}

const std::shared_ptr<const icu::RegexPattern>& defaultTag() {
  static const std::shared_ptr<const icu::RegexPattern> p = compileTag(kDefaultOtag, kDefaultCtag);
  return p;
}

const icu::RegexPattern& clozeSectionKey() {
  static const auto p = icutext::compile(u"c[qa]:(\\d+):(.+)");
  return *p;
}

std::string clozeSource(const std::string& ord) {
  return "\\{\\{c" + ord + "::(.*?)(::(.*?))?\\}\\}";
}

const icu::RegexPattern& anyCloze() {
  static const auto p = icutext::compile(utf16(clozeSource(".*?")));
  return *p;
}

// One pattern per deletion number; cards rarely go past a few dozen.
std::shared_ptr<const icu::RegexPattern> clozeReg(int64_t ord) {
  static std::mutex mutex;
  static std::map<int64_t, std::shared_ptr<const icu::RegexPattern>> cache;
  std::lock_guard lock(mutex);
  if (auto it = cache.find(ord); it != cache.end()) return it->second;
  if (cache.size() >= 256) cache.clear();
  std::shared_ptr<const icu::RegexPattern> p =
      icutext::compile(utf16(clozeSource(std::to_string(ord))));
  cache.emplace(ord, p);
  return p;
}

std::unique_ptr<icu::RegexMatcher> limitedMatcher(const icu::RegexPattern& pattern,
                                                  const icu::UnicodeString& text) {
  auto m = icutext::matcher(pattern, text);
  UErrorCode status = U_ZERO_ERROR;
  m->setTimeLimit(kMatchTimeLimit, status);
  return m;
}

icu::UnicodeString group(const icu::RegexMatcher& m, int32_t n) {
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString g = m.group(n, status);
  if (U_FAILURE(status)) throw InvalidTemplate();
  return g;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  size_t from = 0;
  for (size_t at; (at = text.find(separator, from)) != std::string::npos; from = at + 1)
    pieces.push_back(text.substr(from, at - from));
  pieces.push_back(text.substr(from));
  return pieces;
}

// Leading blanks, a sign, then digits; anything else ends the number, and no digits give 0.
int64_t integerValue(const std::string& text) {
  size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t value = 0;
  for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
    const int digit = text[i] - '0';
    if (value > (std::numeric_limits<int64_t>::max() - digit) / 10)
      return negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    value = value * 10 + digit;
  }
  return negative ? -value : value;
}

// FNV-1a: any hash does, as long as one text always gives the same id within a page.
int64_t textHash(const std::string& text) {
  uint64_t h = 14695981039346656037ull;
  for (unsigned char c : text) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return static_cast<int64_t>(h & static_cast<uint64_t>(std::numeric_limits<int64_t>::max()));
}

// A section shows when its field has visible content: an image counts, bare markup doesn't.
bool sectionValueIsEmpty(const icu::UnicodeString& key, const TemplateContext& context) {
  // A key naming one deletion of a field ("cq:1:Text") has no usable value.
  auto m = icutext::matcher(clozeSectionKey(), key);
  UErrorCode status = U_ZERO_ERROR;
  if (m->matches(status)) return true;
  const std::optional<std::string> value = Template::getOrAttr(context, utf8(key));
  return !value || stripHTMLMedia(*value).empty();
}

}  // namespace

Template::Template(std::string templ, TemplateContext context)
    : template_(std::move(templ)),
      context(std::move(context)),
      otag(kDefaultOtag),
      ctag(kDefaultCtag) {
  compileRegularExpressions();
}

Template::~Template() = default;

void Template::compileRegularExpressions() {
  if (otag == kDefaultOtag && ctag == kDefaultCtag) {
    section = defaultSection();
    _tag = defaultTag();
    return;
  }
  section = compileSection(otag, ctag);
  _tag = compileTag(otag, ctag);
}

std::string Template::render() {
  return renderTemplate(template_, context);
}

std::string Template::renderTemplate(const std::string& templ, const TemplateContext& ctx) {
  try {
    const icu::UnicodeString sections = renderSectionsFromTemplate(utf16(templ), ctx);
    return utf8(renderTagsFromTemplate(sections, ctx));
  } catch (const std::exception&) {
    return invalidTemplate;
  }
}

icu::UnicodeString Template::renderSectionsFromTemplate(const icu::UnicodeString& templ,
                                                        const TemplateContext& ctx) const {
  icu::UnicodeString t = templ;
  for (;;) {
    icu::UnicodeString whole, inner;
    bool show = false;
    {
      auto m = limitedMatcher(*section, t);
      UErrorCode status = U_ZERO_ERROR;
      const bool found = m->find(status);
      if (U_FAILURE(status)) throw InvalidTemplate();
      if (!found) break;
      whole = group(*m, 0);
      inner = group(*m, 2);
      const bool empty = sectionValueIsEmpty(icutext::trimWhitespace(group(*m, 1)), ctx);
      const bool inverted = whole.length() > 2 && whole.charAt(2) == u'^';
      show = inverted == empty;
    }
    // Each pass drops at least the opening and closing tags, so the loop ends.
    t = icutext::replaceLiteral(t, whole, show ? inner : icu::UnicodeString());
  }
  return t;
}

icu::UnicodeString Template::renderTagsFromTemplate(const icu::UnicodeString& templ,
                                                    const TemplateContext& ctx) {
  icu::UnicodeString t = templ;
  int64_t scanned = 0;
  for (int pass = 0;; ++pass) {
    if (pass >= kMaxTagPasses || (scanned += t.length()) > kMaxScannedUnits)
      throw InvalidTemplate();
    icu::UnicodeString whole, replacement;
    {
      auto m = limitedMatcher(*_tag, t);
      UErrorCode status = U_ZERO_ERROR;
      const bool found = m->find(status);
      if (U_FAILURE(status)) throw InvalidTemplate();
      if (!found) break;
      whole = group(*m, 0);
      const icu::UnicodeString type = group(*m, 1);
      const std::string name = utf8(icutext::trimWhitespace(group(*m, 2)));
      if (type.isEmpty() || type == u"{") {
        std::optional<std::string> text = renderUnescaped(name, ctx);
        if (!text) throw InvalidTemplate();
        replacement = utf16(*text);
      } else if (type == u"!") {
        replacement = utf16(renderComment());
      } else if (type == u"=") {
        if (!renderDelimiter(name)) throw InvalidTemplate();
      } else {
        // "#" outside a complete section, "&" and ">" have no rendering.
        throw InvalidTemplate();
      }
    }
    // A tag whose text renders to itself would be found again forever.
    if (replacement == whole) throw InvalidTemplate();
    t = icutext::replaceLiteral(t, whole, replacement, kMaxLength);
  }
  return t;
}

std::optional<std::string> Template::getOrAttr(const TemplateContext& context,
                                               const std::string& name) {
  auto it = context.find(name);
  if (it == context.end()) return std::nullopt;
  return it->second;
}

std::optional<std::string> Template::renderUnescaped(const std::string& name,
                                                     const TemplateContext& ctx) const {
  // An exact name wins, which lets a field's name hold a colon.
  if (std::optional<std::string> value = getOrAttr(ctx, name)) return value;
  const std::vector<std::string> pieces = split(name, ':');
  if (pieces.size() == 1 || pieces[0].empty()) return "unknown field: " + name;

  std::optional<std::string> mod, field;
  std::optional<int64_t> extra;
  if (pieces.size() == 2) {
    mod = pieces[0];
    field = pieces[1];
  } else if (pieces.size() == 3) {
    mod = pieces[0];
    extra = integerValue(pieces[1]);
    field = pieces[2];
  }
  const std::optional<std::string> txt = field ? getOrAttr(ctx, *field) : std::nullopt;

  if (mod == "text") return txt ? stripHTML(*txt) : std::string();
  if (mod == "type") return "[[" + name + "]]";
  if (mod == "cq" || mod == "ca") {
    if (extra && txt) return clozeText(*txt, *extra, (*mod)[1]);
    return *mod;
  }
  if (mod == "hint") return hint(txt.value_or(""), field.value_or(""));
  if (mod == "kanji" || mod == "kana" || mod == "furigana") {
    if (!txt) return std::nullopt;
    const Furigana furigana;
    if (mod == "kanji") return furigana.kanji(*txt);
    if (mod == "kana") return furigana.kana(*txt);
    return furigana.furigana(*txt);
  }
  if (txt) return txt;
  return "{unknown field " + name + "}";
}

bool Template::renderDelimiter(const std::string& name) {
  const std::vector<std::string> pieces = split(name, ' ');
  if (pieces.size() < 2) return false;
  otag = pieces[0];
  ctag = pieces[1];
  try {
    compileRegularExpressions();
  } catch (const std::exception&) {
    return false;
  }
  return true;
}

std::string Template::hint(const std::string& txt, const std::string& tag) {
  if (icutext::trimWhitespace(utf16(txt), true).isEmpty()) return {};
  const std::string id = "hint" + std::to_string(textHash(txt));
  return "<a class=hint style='padding:2em;' href=\"#\" onclick=\"this.style.display='none';"
         "document.getElementById('" +
         id + "').style.display='block';return false;\"> Show " + tag + "</a><div id=\"" + id +
         "\" class=hint style=\"display: none\">" + txt + "</div>";
}

std::string Template::clozeText(const std::string& txt, int64_t ord, char type) {
  const std::shared_ptr<const icu::RegexPattern> reg = clozeReg(ord);
  icu::UnicodeString s = utf16(txt);
  {
    auto m = icutext::matcher(*reg, s);
    UErrorCode status = U_ZERO_ERROR;
    if (!m->find(status) || U_FAILURE(status)) return {};
  }
  if (type == 'q') {
    const icu::UnicodeString opener = utf16("{{c" + std::to_string(ord) + "::");
    s = icutext::replaceMatchesEverywhere(*reg, s, opener, false, [](const icu::RegexMatcher& m) {
      const icu::UnicodeString hint = group(m, 3);
      icu::UnicodeString out(u"<span class=cloze>[");
      out.append(hint.isEmpty() ? icu::UnicodeString(u"...") : hint);
      return out.append(u"]</span>");
    });
  } else {
    s = icutext::replaceAll(*reg, s, u"<span class=cloze>$1</span>");
  }
  // The other deletions show their answers.
  return utf8(icutext::replaceAll(anyCloze(), s, u"$1"));
}

}  // namespace rivo
