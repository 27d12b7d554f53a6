#include "librivo/Furigana.h"

#include <stdexcept>

#include "librivo/IcuText.h"

namespace rivo {

namespace {

using icutext::utf16;
using icutext::utf8;

const icu::RegexPattern& reading() {
  static const auto p = icutext::compile(u" ?([^ >]+?)\\[(.+?)\\]");
  return *p;
}

// A replacement text that appendReplacement copies as it stands.
icu::UnicodeString literalReplacement(const icu::UnicodeString& text) {
  icu::UnicodeString out;
  for (int32_t i = 0; i < text.length(); ++i) {
    const char16_t c = text.charAt(i);
    if (c == u'\\' || c == u'$') out.append(u'\\');
    out.append(c);
  }
  return out;
}

}  // namespace

std::string Furigana::kanji(const std::string& txt) const {
  return noSoundForString(txt, "$1");
}

std::string Furigana::kana(const std::string& txt) const {
  return noSoundForString(txt, "$2");
}

std::string Furigana::furigana(const std::string& txt) const {
  return noSoundForString(txt, ruby);
}

std::string Furigana::noSoundForString(const std::string& txt, const std::string& repl) const {
  const icu::UnicodeString s = icutext::replaceLiteral(utf16(txt), u"&nbsp;", u" ");
  const icu::UnicodeString replacement = utf16(repl);
  auto m = icutext::matcher(reading(), s);
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString out;
  while (m->find(status) && U_SUCCESS(status)) {
    // A sound tag after a word looks like a reading; it must reach the player intact.
    if (m->group(2, status).startsWith(u"sound:"))
      m->appendReplacement(out, literalReplacement(m->group(status)), status);
    else
      m->appendReplacement(out, replacement, status);
  }
  m->appendTail(out);
  if (U_FAILURE(status)) throw std::runtime_error("furigana replacement failed");
  return utf8(out);
}

}  // namespace rivo
