#include "librivo/ModelManager.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <set>
#include <stdexcept>

#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/SysLog.h"
#include "librivo/Utils.h"

namespace rivo {

namespace {

std::unique_ptr<icu::RegexPattern> compile(const char16_t* source) {
  UErrorCode status = U_ZERO_ERROR;
  UParseError where;
  std::unique_ptr<icu::RegexPattern> p(
      icu::RegexPattern::compile(icu::UnicodeString(source), where, status));
  if (U_FAILURE(status)) throw std::logic_error("bad built-in regular expression");
  return p;
}

// Compiled once; a pattern is immutable and may be shared, each use makes its own matcher.
const icu::RegexPattern& clozeFieldRef() {
  static const auto p = compile(u"\\{\\{cloze:(.+?)\\}\\}");
  return *p;
}
const icu::RegexPattern& clozeFieldRefOld() {
  static const auto p = compile(u"<%cloze:(.+?)%>");
  return *p;
}
const icu::RegexPattern& clozeNumber() {
  static const auto p = compile(u"\\{\\{c(\\d+)::.*?\\}\\}");
  return *p;
}

icu::UnicodeString utf16(const std::string& text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
}

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

// Every capture of group 1, in order of appearance.
std::vector<std::string> captures(const icu::RegexPattern& pattern, const std::string& text) {
  std::vector<std::string> out;
  const icu::UnicodeString in = utf16(text);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> m(pattern.matcher(in, status));
  if (U_FAILURE(status)) return out;
  while (m->find(status) && U_SUCCESS(status)) out.push_back(utf8(m->group(1, status)));
  return out;
}

const Json* member(const Json& obj, const char* key) {
  if (!obj.is_object()) return nullptr;
  auto it = obj.find(key);
  return it == obj.end() ? nullptr : &*it;
}

}  // namespace

void ModelManager::load(const std::string& json) {
  _models = json.empty() ? Json::object() : decodeJson(json);
  if (!_models.is_object()) _models = Json::object();
  _changed = false;
}

void ModelManager::save(Json* model) {
  if (model && model->contains("id") && !(*model)["id"].is_null()) {
    (*model)["mod"] = intTime(1);
    (*model)["usn"] = _col.usn();
  }
  _changed = true;
}

void ModelManager::flush() {
  if (!_changed) return;
  std::string error;
  std::string text = jsonString(_models, &error);
  if (!error.empty()) sysLog("serialization of models failed with error: " + error);
  _col.db()->run("update col set models = ?", {text});
  _changed = false;
}

Json* ModelManager::get(Id id) {
  auto it = _models.find(std::to_string(id));
  return it == _models.end() || !it->is_object() ? nullptr : &*it;
}

Json* ModelManager::get(const Json& id) {
  if (id.is_string()) {
    auto it = _models.find(id.get_ref<const std::string&>());
    return it == _models.end() || !it->is_object() ? nullptr : &*it;
  }
  if (id.is_number()) return get(jsonInt(id));
  return nullptr;
}

Json* ModelManager::current() {
  const Json* cur = member(_col.conf(), "curModel");
  if (cur) {
    if (Json* m = get(*cur)) return m;
  }
  for (auto& m : _models) {
    if (m.is_object()) return &m;
  }
  return nullptr;
}

Json ModelManager::fieldMap(const Json& model) {
  Json map = Json::object();
  const Json* flds = member(model, "flds");
  if (!flds || !flds->is_array()) return map;
  int64_t index = 0;
  for (const Json& f : *flds) {
    const Json* name = member(f, "name");
    const Json* ord = member(f, "ord");
    if (name && name->is_string())
      map[name->get<std::string>()] = Json::array({ord ? jsonInt(*ord, index) : index, f});
    ++index;
  }
  return map;
}

int ModelManager::sortIdx(const Json& model) {
  const Json* sortf = member(model, "sortf");
  return sortf ? static_cast<int>(jsonInt(*sortf)) : 0;
}

std::vector<int> ModelManager::availOrds(const Json& model, const std::string& flds) {
  const Json* type = member(model, "type");
  if (type && jsonInt(*type) == 1) return _availClozeOrds(model, flds);
  std::vector<int> avail;
  const Json* req = member(model, "req");
  if (!req || !req->is_array()) return avail;
  const std::vector<std::string> fields = splitFields(flds);
  // A listed index beyond the note's fields has no value, which counts as empty.
  auto filled = [&](const Json& idx) {
    int64_t i = jsonInt(idx, -1);
    return i >= 0 && static_cast<size_t>(i) < fields.size() && !fields[i].empty();
  };
  for (const Json& entry : *req) {
    if (!entry.is_array() || entry.empty()) continue;
    const int ord = static_cast<int>(jsonInt(entry[0]));
    const std::string kind =
        entry.size() > 1 && entry[1].is_string() ? entry[1].get<std::string>() : std::string();
    static const Json kNoIndexes = Json::array();
    const Json& idxs = entry.size() > 2 && entry[2].is_array() ? entry[2] : kNoIndexes;
    bool ok = true;
    if (kind == "none") {
      ok = false;
    } else if (kind == "all") {
      for (const Json& i : idxs) ok = ok && filled(i);
    } else if (kind == "any") {
      ok = false;
      for (const Json& i : idxs) ok = ok || filled(i);
    }
    if (ok) avail.push_back(ord);
  }
  return avail;
}

std::vector<int> ModelManager::_availClozeOrds(const Json& model, const std::string& flds) {
  const std::vector<std::string> fields = splitFields(flds);
  const Json fmap = fieldMap(model);
  std::string qfmt;
  const Json* tmpls = member(model, "tmpls");
  if (tmpls && tmpls->is_array() && !tmpls->empty()) {
    const Json* q = member((*tmpls)[0], "qfmt");
    if (q && q->is_string()) qfmt = q->get<std::string>();
  }
  std::vector<std::string> names = captures(clozeFieldRef(), qfmt);
  for (std::string& n : captures(clozeFieldRefOld(), qfmt)) names.push_back(std::move(n));
  std::set<int> ords;
  for (const std::string& name : names) {
    auto it = fmap.find(name);
    if (it == fmap.end()) continue;
    const int64_t idx = jsonInt((*it)[0], -1);
    if (idx < 0 || static_cast<size_t>(idx) >= fields.size()) continue;
    for (const std::string& num : captures(clozeNumber(), fields[idx])) {
      // Digits other than ASCII read as 0 and so drop out with {{c0::...}}.
      const long long n = std::strtoll(num.c_str(), nullptr, 10);
      if (n >= 1 && n <= INT_MAX) ords.insert(static_cast<int>(n - 1));
    }
  }
  return {ords.begin(), ords.end()};
}

void ModelManager::beforeUpload() {
  for (auto& [id, m] : _models.items()) m["usn"] = 0;
  save();
}

}  // namespace rivo
