#pragma once
// Card templates in double braces: sections, field modifiers, cloze deletions, hints, furigana
// and type-answer markers. It rewrites one string, pass after pass, with regular expressions,
// until no section and no tag is left.

#include <unicode/uversion.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

U_NAMESPACE_BEGIN
class RegexPattern;
class UnicodeString;
U_NAMESPACE_END

namespace rivo {

// Field names, and the extra names a card side adds (Tags, Deck, Card, FrontSide...), to text.
using TemplateContext = std::map<std::string, std::string>;

class Template {
 public:
  // The whole result of a render that failed: an unclosed section, "{{&x}}", a bad delimiter.
  static constexpr const char* invalidTemplate = "{{invalid template}}";

  Template(std::string templ, TemplateContext context);
  ~Template();
  Template(const Template&) = delete;
  Template& operator=(const Template&) = delete;

  // The stored template with the stored context.
  std::string render();
  // Sections first, then tags; any failure makes the whole result invalidTemplate.
  std::string renderTemplate(const std::string& templ, const TemplateContext& context);

  // The value of `name`, or nothing.
  static std::optional<std::string> getOrAttr(const TemplateContext& context,
                                              const std::string& name);
  // A tag with no type: a field's value, or a modifier ("text:", "cq:1:", "hint:"...) applied
  // to one. Nothing means the tag can't be rendered, which fails the render.
  std::optional<std::string> renderUnescaped(const std::string& name,
                                             const TemplateContext& context) const;
  std::optional<std::string> renderTag(const std::string& name,
                                       const TemplateContext& context) const {
    return renderUnescaped(name, context);
  }
  static std::string renderComment() { return {}; }
  // "open close" (regular-expression source) become the delimiters for the rest of this
  // object's life. False for a single piece or delimiters that don't compile.
  bool renderDelimiter(const std::string& name);

  // A link that reveals `txt`, labelled after the field `tag`; empty for a blank text.
  static std::string hint(const std::string& txt, const std::string& tag);
  // Deletion number `ord` hidden (type 'q') or highlighted (type 'a') and the other numbers
  // shown plain; empty when `txt` has no deletion of that number.
  static std::string clozeText(const std::string& txt, int64_t ord, char type);

 private:
  void compileRegularExpressions();
  icu::UnicodeString renderSectionsFromTemplate(const icu::UnicodeString& templ,
                                                const TemplateContext& context) const;
  icu::UnicodeString renderTagsFromTemplate(const icu::UnicodeString& templ,
                                            const TemplateContext& context);

  std::string template_;
  TemplateContext context;
  std::string otag;
  std::string ctag;
  std::shared_ptr<const icu::RegexPattern> section;
  std::shared_ptr<const icu::RegexPattern> _tag;
};

}  // namespace rivo
