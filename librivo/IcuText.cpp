#include "librivo/IcuText.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <stdexcept>
#include <vector>

namespace rivo::icutext {

namespace {

void check(UErrorCode status, const char* what) {
  if (U_FAILURE(status)) throw std::runtime_error(std::string(what) + ": " + u_errorName(status));
}

void checkLength(const icu::UnicodeString& text) {
  if (text.isBogus()) throw std::length_error("text too long");
}

bool isWhitespace(UChar32 c, bool newlines) {
  if (c == u'\t') return true;
  const int8_t type = u_charType(c);
  if (type == U_SPACE_SEPARATOR) return true;
  if (!newlines) return false;
  return type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR || (c >= 0x0A && c <= 0x0D) ||
         c == 0x85;
}

}  // namespace

icu::UnicodeString utf16(std::string_view text) {
  return icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

bool isValidUtf8(std::string_view text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  for (int32_t i = 0; i < length;) {
    UChar32 c;
    U8_NEXT(bytes, i, length, c);
    if (c < 0) return false;
  }
  return true;
}

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

std::unique_ptr<icu::RegexPattern> compile(const icu::UnicodeString& source, uint32_t flags) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError where;
  std::unique_ptr<icu::RegexPattern> pattern(
      icu::RegexPattern::compile(source, flags, where, status));
  check(status, "regular expression does not compile");
  return pattern;
}

std::unique_ptr<icu::RegexMatcher> matcher(const icu::RegexPattern& pattern,
                                           const icu::UnicodeString& text) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> m(pattern.matcher(text, status));
  check(status, "regular expression matcher failed");
  return m;
}

icu::UnicodeString replaceLiteral(const icu::UnicodeString& text, const icu::UnicodeString& from,
                                  const icu::UnicodeString& to, int32_t maxLength) {
  int32_t at = from.isEmpty() ? -1 : text.indexOf(from);
  if (at < 0) return text;
  icu::UnicodeString out;
  int32_t copied = 0;
  for (; at >= 0; at = text.indexOf(from, copied)) {
    if (int64_t{out.length()} + (at - copied) + to.length() > maxLength)
      throw std::length_error("text too long");
    out.append(text, copied, at - copied).append(to);
    copied = at + from.length();
  }
  if (int64_t{out.length()} + (text.length() - copied) > maxLength)
    throw std::length_error("text too long");
  out.append(text, copied, text.length() - copied);
  checkLength(out);
  return out;
}

icu::UnicodeString replaceAll(const icu::RegexPattern& pattern, const icu::UnicodeString& text,
                              const icu::UnicodeString& replacement) {
  auto m = matcher(pattern, text);
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString out = m->replaceAll(replacement, status);
  check(status, "regular expression replacement failed");
  checkLength(out);
  return out;
}

icu::UnicodeString replaceMatchesEverywhere(
    const icu::RegexPattern& pattern, const icu::UnicodeString& text,
    const icu::UnicodeString& opener, bool openerIgnoresCase,
    const std::function<icu::UnicodeString(const icu::RegexMatcher&)>& replacement) {
  struct Hit {
    int32_t start, end;
    icu::UnicodeString with;
  };
  std::vector<Hit> hits;
  bool nested = false;
  icu::UnicodeString foldedOpener(opener);
  if (openerIgnoresCase) foldedOpener.foldCase();

  auto m = matcher(pattern, text);
  UErrorCode status = U_ZERO_ERROR;
  while (m->find(status) && U_SUCCESS(status)) {
    const int32_t start = m->start(status), end = m->end(status);
    hits.push_back({start, end, replacement(*m)});
    if (nested || end - start <= 1) continue;
    if (openerIgnoresCase) {
      icu::UnicodeString matched(text, start, end - start);
      nested = matched.foldCase().indexOf(foldedOpener, 1) >= 0;
    } else {
      nested = text.indexOf(opener, start + 1, end - start - 1) >= 0;
    }
  }
  check(status, "regular expression search failed");
  if (hits.empty()) return text;

  icu::UnicodeString out;
  if (nested) {
    // A matched text lies inside another: replace text by text, as the definition says.
    out = text;
    for (const Hit& hit : hits)
      out = replaceLiteral(out, icu::UnicodeString(text, hit.start, hit.end - hit.start), hit.with);
    return out;
  }
  int32_t copied = 0;
  for (const Hit& hit : hits) {
    out.append(text, copied, hit.start - copied).append(hit.with);
    copied = hit.end;
  }
  out.append(text, copied, text.length() - copied);
  checkLength(out);
  return out;
}

icu::UnicodeString trimWhitespace(const icu::UnicodeString& text, bool newlines) {
  int32_t start = 0, end = text.length();
  while (start < end && isWhitespace(text.char32At(start), newlines))
    start = text.moveIndex32(start, 1);
  while (end > start) {
    const int32_t before = text.moveIndex32(end, -1);
    if (!isWhitespace(text.char32At(before), newlines)) break;
    end = before;
  }
  if (start == 0 && end == text.length()) return text;
  return icu::UnicodeString(text, start, end - start);
}

}  // namespace rivo::icutext
