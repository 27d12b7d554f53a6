#include "librivo/FieldText.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>

#include "librivo/HtmlEscape.h"
#include "librivo/IcuText.h"
#include "librivo/Json.h"

namespace rivo {

namespace {

using icutext::replaceAll;
using icutext::utf16;
using icutext::utf8;

constexpr char kFieldSeparator = '\x1f';

// Compiled once; patterns are immutable and safe to share.
const icu::RegexPattern& styleBlock() {
  static const auto p = icutext::compile(u"(?s)<style.*?>.*?</style>");
  return *p;
}
const icu::RegexPattern& scriptBlock() {
  static const auto p = icutext::compile(u"(?s)<script.*?>.*?</script>");
  return *p;
}
const icu::RegexPattern& anyTag() {
  static const auto p = icutext::compile(u"<.*?>");
  return *p;
}
const icu::RegexPattern& simpleImage() {
  static const auto p = icutext::compile(u"<img src=[\"']?([^\"'>]+)[\"']? ?/?>");
  return *p;
}
const icu::RegexPattern& soundTag() {
  static const auto p = icutext::compile(u"\\[sound:.*?\\]");
  return *p;
}
const icu::RegexPattern& imageWithSource() {
  static const auto p =
      icutext::compile(u"<img[^>]*src=[\"']?([^\"'>]*\\.[^\\s'\"]{1,6})[\"']?[^>]*>");
  return *p;
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// Each pass needs its opening literal; testing for it first spares plain fields (most of them,
// in bulk updates) the regular-expression machinery.
icu::UnicodeString stripTags(icu::UnicodeString s, bool hasStyle, bool hasScript) {
  const icu::UnicodeString none;
  if (hasStyle) s = replaceAll(styleBlock(), s, none);
  if (hasScript) s = replaceAll(scriptBlock(), s, none);
  return replaceAll(anyTag(), s, none);
}

// Image file names as ASCII entities, so that a name with accents reaches the web view intact.
std::string escapeImageSources(const std::string& text) {
  const icu::UnicodeString in = utf16(text);
  const std::unique_ptr<icu::RegexMatcher> m = icutext::matcher(imageWithSource(), in);
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString out;
  int32_t copied = 0;
  while (m->find(status) && U_SUCCESS(status)) {
    const int32_t start = m->start(1, status), end = m->end(1, status);
    out.append(in, copied, start - copied);
    out.append(utf16(stringByEscapingForAsciiHTML(utf8(in.tempSubStringBetween(start, end)))));
    copied = end;
  }
  out.append(in, copied, in.length() - copied);
  return utf8(out);
}

}  // namespace

std::string stripHTML(const std::string& text) {
  if (!contains(text, "<")) return text;
  return utf8(stripTags(utf16(text), contains(text, "<style"), contains(text, "<script")));
}

std::string stripHTMLMedia(const std::string& text) {
  if (!contains(text, "<img")) return stripHTML(text);
  const icu::UnicodeString s = replaceAll(simpleImage(), utf16(text), u"$1");
  // Probed after the replacement, which can join the pieces of a "<style".
  return utf8(stripTags(s, s.indexOf(u"<style") >= 0, s.indexOf(u"<script") >= 0));
}

std::string stripSounds(const std::string& text) {
  if (!contains(text, "[sound:")) return text;
  return utf8(replaceAll(soundTag(), utf16(text), icu::UnicodeString()));
}

std::string joinFields(const std::vector<std::string>& fields) {
  size_t size = fields.size();
  for (const std::string& f : fields) size += f.size();
  std::string out;
  out.reserve(size);
  for (size_t i = 0; i < fields.size(); ++i) {
    if (i) out += kFieldSeparator;
    out += fields[i];
  }
  return out;
}

std::vector<std::string> splitFields(std::string_view text) {
  std::vector<std::string> fields;
  size_t start = 0;
  for (;;) {
    const size_t end = text.find(kFieldSeparator, start);
    if (end == std::string_view::npos) break;
    fields.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  fields.emplace_back(text.substr(start));
  return fields;
}

std::string jsEscape(const std::string& text) {
  const std::string html = contains(text, "<img") ? escapeImageSources(text) : text;
  const std::string json = Json(html).dump(-1, ' ', false, Json::error_handler_t::replace);
  // Valid in JSON, but line terminators inside the string literals of older JavaScript.
  std::string escaped;
  escaped.reserve(json.size());
  for (size_t i = 0; i < json.size(); ++i) {
    if (json.compare(i, 3, "\xE2\x80\xA8") == 0 || json.compare(i, 3, "\xE2\x80\xA9") == 0) {
      escaped += json[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
      i += 2;
    } else {
      escaped += json[i];
    }
  }
  return escaped;
}

std::string escapeRegexFromString(const std::string& text) {
  // One pass: escaping one character after another would escape the escapes themselves.
  static constexpr std::string_view kMeta = "[\\^$.|?*+(){}";
  std::string out;
  out.reserve(text.size() * 2);
  for (char c : text) {
    if (kMeta.find(c) != std::string_view::npos) out += '\\';
    out += c;
  }
  return out;
}

std::string reverseString(const std::string& text) {
  const icu::UnicodeString in = utf16(text);
  // Not UnicodeString::reverse, which keeps surrogate pairs together.
  std::u16string units(in.getBuffer(), static_cast<size_t>(in.length()));
  std::reverse(units.begin(), units.end());
  return utf8(icu::UnicodeString(units.data(), static_cast<int32_t>(units.size())));
}

}  // namespace rivo
