#include "app/TypedAnswer.h"

#include <unicode/regex.h>
#include <dtl/dtl.hpp>

#include <memory>

#include "librivo/Card.h"
#include "librivo/FieldText.h"
#include "librivo/HtmlEscape.h"
#include "librivo/IcuText.h"
#include "librivo/MediaManager.h"
#include "librivo/Note.h"

namespace rivo {

namespace {

using icu::UnicodeString;

// Beyond this many code points on both sides, the middle of the texts is compared as one
// block: an edit script costs length times differences, and a pasted page must not stall.
constexpr size_t kMaxDiffLength = 4000;

const icu::RegexPattern& placeholder() {
  static const auto pattern = icutext::compile(icutext::utf16(TypedAnswer::typeAnswerPat));
  return *pattern;
}

// Every match replaced by `literal` as it stands ("$" and "\" included).
std::string replaceAllLiteral(const icu::RegexPattern& pattern, const std::string& text,
                              const std::string& literal) {
  UnicodeString source = icutext::utf16(text);
  auto m = icutext::matcher(pattern, source);
  UErrorCode status = U_ZERO_ERROR;
  UnicodeString out;
  int32_t last = 0;
  const UnicodeString replacement = icutext::utf16(literal);
  while (m->find()) {
    int32_t start = m->start(status), end = m->end(status);
    out.append(source, last, start - last).append(replacement);
    last = end;
  }
  out.append(source, last, source.length() - last);
  return icutext::utf8(out);
}

std::vector<UChar32> codePoints(const std::string& text) {
  UnicodeString s = icutext::utf16(text);
  std::vector<UChar32> out;
  out.reserve(static_cast<size_t>(s.countChar32()));
  for (int32_t i = 0; i < s.length(); i = s.moveIndex32(i, 1)) out.push_back(s.char32At(i));
  return out;
}

std::string fromCodePoints(const std::vector<UChar32>& points, size_t from, size_t to) {
  UnicodeString s;
  for (size_t i = from; i < to; ++i) s.append(points[i]);
  return icutext::utf8(s);
}

void append(std::vector<TypedAnswer::DiffPart>& parts, TypedAnswer::Operation op,
            const std::string& text) {
  if (text.empty()) return;
  if (!parts.empty() && parts.back().operation == op)
    parts.back().text += text;
  else
    parts.push_back({op, text});
}

std::string span(const std::string& style, const std::string& text) {
  return text.empty() ? "" : "<span style='" + style + "'>" + text + "</span>";
}

}  // namespace

std::string TypedAnswer::removePlaceholders(const std::string& html) {
  return replaceAllLiteral(placeholder(), html, "");
}

std::string TypedAnswer::typeAnsQuestionFilter(const std::string& html, Card& card) {
  _typeCorrect.reset();
  UnicodeString source = icutext::utf16(html);
  auto m = icutext::matcher(placeholder(), source);
  if (!m->find()) return html;
  UErrorCode status = U_ZERO_ERROR;
  std::string fld = icutext::utf8(m->group(1, status));
  int clozeIdx = 0;
  if (fld.rfind("cloze:", 0) == 0) {
    clozeIdx = card.ord + 1;
    fld = fld.substr(fld.find(':') + 1);
  }
  const Json* model = card.model();
  if (model && model->contains("flds") && (*model)["flds"].is_array()) {
    for (const Json& f : (*model)["flds"]) {
      if (!f.is_object() || f.value("name", std::string()) != fld) continue;
      std::string value = card.note()->get(fld);
      _typeCorrect = clozeIdx ? _contentForClozeInString(value, clozeIdx) : value;
      _typeFont = f.value("font", std::string("Arial"));
      _typeSize = f.contains("size") && f["size"].is_number() ? f["size"].get<int>() : 20;
      break;
    }
  }
  if (!_typeCorrect) {
    std::string message =
        clozeIdx ? "Please run Tools>Maintenance>Empty Cards" : "Type answer: unknown field " + fld;
    return replaceAllLiteral(placeholder(), html, message);
  }
  if (!_typeCorrect->empty()) _shouldShowTypeField = true;
  return removePlaceholders(html);
}

std::string TypedAnswer::typeAnsAnswerFilter(const std::string& html, const std::string& given,
                                             MediaManager& media) {
  if (!_typeCorrect || _typeCorrect->empty()) return removePlaceholders(html);
  std::string correct = stringByUnescapingFromHTML(stripHTML(media.strip(*_typeCorrect)));
  std::string res = correctForA(correct, given);
  if (correct != given)
    res = res + " <span id=rightanswer><br> &darr; <br> " + correct + " </span>";
  return replaceAllLiteral(placeholder(), html,
                           "<span style=\"font-family: '" + _typeFont + "'; font-size: " +
                               std::to_string(_typeSize) + "px\">" + res + "</span>");
}

std::string TypedAnswer::correctForA(const std::string& correct, const std::string& given) {
  if (given.empty()) return "";
  const std::string styleOK = std::string("background: ") + passedCharColour + "; color: #000;";
  const std::string styleBad = std::string("background: ") + failedCharColour + "; color: #000;";
  std::vector<DiffPart> parts = diff(correct, given);
  std::string pretty, res;
  for (const DiffPart& p : parts) {
    const std::string escaped = stringByEscapingForHTML(p.text);
    switch (p.operation) {
      case kDelete:
        pretty += "<del>" + escaped + "</del>";
        res += span(styleBad, std::string(codePoints(p.text).size(), '-'));
        break;
      case kInsert:
        pretty += "<ins>" + escaped + "</ins>";
        res += span(styleBad, p.text);
        break;
      case kEqual:
        pretty += "<span>" + escaped + "</span>";
        res += span(styleOK, p.text);
        break;
    }
  }
  if (_log) _log("pretty diff:\n" + pretty);
  return res;
}

std::optional<std::string> TypedAnswer::_contentForClozeInString(const std::string& text,
                                                                 int index) {
  auto pattern =
      icutext::compile(icutext::utf16("\\{\\{c" + std::to_string(index) + "::(.+?)\\}\\}"));
  UnicodeString source = icutext::utf16(text);
  auto m = icutext::matcher(*pattern, source);
  UErrorCode status = U_ZERO_ERROR;
  std::vector<std::string> found;
  while (m->find()) {
    std::string content = icutext::utf8(m->group(1, status));
    size_t hint = content.find("::");
    found.push_back(hint == std::string::npos ? content : content.substr(0, hint));
  }
  if (found.empty()) return std::nullopt;
  std::string out = found[0];
  for (size_t i = 1; i < found.size(); ++i) out += ", " + found[i];
  return out;
}

std::vector<TypedAnswer::DiffPart> TypedAnswer::diff(const std::string& a, const std::string& b) {
  const std::vector<UChar32> x = codePoints(a), y = codePoints(b);
  size_t prefix = 0;
  while (prefix < x.size() && prefix < y.size() && x[prefix] == y[prefix]) ++prefix;
  size_t suffix = 0;
  while (suffix < x.size() - prefix && suffix < y.size() - prefix &&
         x[x.size() - 1 - suffix] == y[y.size() - 1 - suffix])
    ++suffix;
  std::vector<DiffPart> parts;
  append(parts, kEqual, fromCodePoints(x, 0, prefix));
  const std::vector<UChar32> midA(x.begin() + prefix, x.end() - suffix),
      midB(y.begin() + prefix, y.end() - suffix);
  if (midA.size() > kMaxDiffLength && midB.size() > kMaxDiffLength) {
    append(parts, kDelete, fromCodePoints(midA, 0, midA.size()));
    append(parts, kInsert, fromCodePoints(midB, 0, midB.size()));
  } else {
    dtl::Diff<UChar32, std::vector<UChar32>> d(midA, midB);
    d.compose();
    // Between two equal runs, what was deleted comes first, then what was inserted.
    std::vector<UChar32> deleted, inserted, equal;
    auto flushChanges = [&] {
      append(parts, kDelete, fromCodePoints(deleted, 0, deleted.size()));
      append(parts, kInsert, fromCodePoints(inserted, 0, inserted.size()));
      deleted.clear();
      inserted.clear();
    };
    for (const auto& [point, info] : d.getSes().getSequence()) {
      if (info.type == dtl::SES_COMMON) {
        flushChanges();
        equal.push_back(point);
        continue;
      }
      append(parts, kEqual, fromCodePoints(equal, 0, equal.size()));
      equal.clear();
      (info.type == dtl::SES_DELETE ? deleted : inserted).push_back(point);
    }
    flushChanges();
    append(parts, kEqual, fromCodePoints(equal, 0, equal.size()));
  }
  append(parts, kEqual, fromCodePoints(x, x.size() - suffix, x.size()));
  return parts;
}

}  // namespace rivo
