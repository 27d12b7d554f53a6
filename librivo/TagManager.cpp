#include "librivo/TagManager.h"

#include <unicode/coll.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/Grouping.h"
#include "librivo/Ids.h"
#include "librivo/SaveError.h"
#include "librivo/SysLog.h"

namespace rivo {

namespace {

std::unique_ptr<icu::Collator> makeCollator() {
  icu::Locale locale = icu::Locale::getDefault();
  // ICU's POSIX locale orders by code point, capitals apart from small letters; nobody means
  // that order for a list of names, so it gets the root order.
  if (std::strcmp(locale.getName(), "en_US_POSIX") == 0) locale = icu::Locale::getRoot();
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> c(icu::Collator::createInstance(locale, status));
  if (U_FAILURE(status)) {
    status = U_ZERO_ERROR;
    c.reset(icu::Collator::createInstance(icu::Locale::getRoot(), status));
  }
  if (U_FAILURE(status)) return nullptr;
  // Secondary strength: accents count, case does not.
  c->setStrength(icu::Collator::SECONDARY);
  return c;
}

// One per thread, as a collator's compare is not promised to be safe across threads.
icu::Collator* collator() {
  thread_local std::unique_ptr<icu::Collator> c = makeCollator();
  return c.get();
}

bool localizedCaseInsensitiveLess(const std::string& a, const std::string& b) {
  icu::Collator* c = collator();
  if (!c) return caseInsensitiveLess(a, b);
  UErrorCode status = U_ZERO_ERROR;
  return c->compareUTF8(icu::StringPiece(a.data(), static_cast<int32_t>(a.size())),
                        icu::StringPiece(b.data(), static_cast<int32_t>(b.size())),
                        status) == UCOL_LESS;
}

std::string lower(const std::string& text) {
  if (std::all_of(text.begin(), text.end(), [](char ch) { return (ch & 0x80) == 0; })) {
    std::string out = text;
    for (char& ch : out)
      if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
    return out;
  }
  icu::UnicodeString u = icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  u.toLower(icu::Locale::getRoot());
  std::string out;
  u.toUTF8String(out);
  return out;
}

std::string joinWith(const std::vector<std::string>& parts, const char* separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out += separator;
    out += parts[i];
  }
  return out;
}

}  // namespace

void TagManager::load(const std::string& json) {
  _tags = json.empty() ? Json::object() : decodeJson(json);
  if (!_tags.is_object()) _tags = Json::object();
  _changed = false;
}

void TagManager::flush() {
  if (!_changed) return;
  const std::string text = savedJson(_tags, "tags");
  _col.db()->run("update col set tags=?", {text});
  _changed = false;
}

void TagManager::beforeUpload() {
  for (auto& [name, usn] : _tags.items()) usn = 0;
  save();
}

void TagManager::register_(const std::vector<std::string>& names, std::optional<int64_t> usn) {
  for (const std::string& name : names) {
    if (name.empty() || _tags.contains(name)) continue;
    _tags[name] = usn ? *usn : int64_t{_col.usn()};
    _changed = true;
  }
}

void TagManager::registerNotes(const std::optional<std::vector<Id>>& nids) {
  std::string where;
  if (nids) {
    where = " where id in " + ids2str(*nids);
  } else {
    _tags = Json::object();
    _changed = true;
  }
  for (const Value& tags : _col.db()->list("select distinct tags from notes" + where))
    register_(split(toText(tags)));
}

std::vector<std::string> TagManager::all() const {
  std::vector<std::string> names;
  names.reserve(_tags.size());
  for (const auto& [name, usn] : _tags.items()) names.push_back(name);
  std::stable_sort(names.begin(), names.end(), caseInsensitiveLess);
  return names;
}

std::vector<std::string> TagManager::split(const std::string& text) {
  std::vector<std::string> names;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(' ', start);
    if (end == std::string::npos) end = text.size();
    if (end > start) names.emplace_back(text, start, end - start);
    start = end + 1;
  }
  return names;
}

std::string TagManager::join(const std::vector<std::string>& names) {
  std::string text = " ";
  text += joinWith(names, " ");
  return text += " ";
}

std::vector<std::string> TagManager::canonify(const std::vector<std::string>& names) {
  std::vector<std::string> sorted = names;
  std::stable_sort(sorted.begin(), sorted.end(), localizedCaseInsensitiveLess);
  return sorted;
}

bool TagManager::isTagInList(const std::string& name, const std::vector<std::string>& list) {
  const std::string needle = lower(name);
  return std::any_of(list.begin(), list.end(),
                     [&](const std::string& tag) { return lower(tag) == needle; });
}

std::string TagManager::remFromStr(const std::string& remove, const std::string& current) {
  std::vector<std::string> tags = split(current);
  for (const std::string& r : split(remove)) {
    const std::string gone = lower(r);
    std::erase_if(tags, [&](const std::string& tag) { return lower(tag) == gone; });
  }
  return join(tags);
}

std::string TagManager::addToStr(const std::string& add, const std::string& current) {
  std::vector<std::string> tags = split(current);
  for (const std::string& name : split(add))
    if (!isTagInList(name, tags)) tags.push_back(name);
  return join(canonify(tags));
}

std::vector<Id> TagManager::selTagNidsMatching(const std::vector<std::string>& wanted,
                                               const std::vector<std::string>& unwanted) {
  std::vector<std::string> anyOf, noneOf;
  Row args;
  for (const std::string& tag : wanted) {
    anyOf.push_back("tags like ?");
    args.emplace_back("% " + tag + " %");
  }
  for (const std::string& tag : unwanted) {
    noneOf.push_back("tags not like ?");
    args.emplace_back("% " + tag + " %");
  }
  std::string sql = "select id from notes";
  if (!anyOf.empty() && !noneOf.empty())
    sql += " where (" + joinWith(anyOf, " or ") + ") and " + joinWith(noneOf, " and ");
  else if (!anyOf.empty())
    sql += " where " + joinWith(anyOf, " or ");
  else if (!noneOf.empty())
    sql += " where " + joinWith(noneOf, " and ");
  std::vector<Id> nids = _col.db()->ids(sql, args);
  return nids;
}

void TagManager::setDeckForTagsMatching(const std::vector<std::string>& wanted,
                                        const std::vector<std::string>& unwanted, Id did) {
  const std::vector<Id> nids = selTagNidsMatching(wanted, unwanted);
  const Col::Stamp now = _col.stamp();
  _col.db()->run("update cards set did=?,mod=?,usn=? where nid in " + ids2str(nids),
                 {did, now.mod, now.usn});
}

}  // namespace rivo
