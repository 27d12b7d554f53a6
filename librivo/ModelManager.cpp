#include "librivo/ModelManager.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <set>
#include <stdexcept>

#include "librivo/Checksum.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/DeckManager.h"
#include "librivo/FieldText.h"
#include "librivo/Ids.h"
#include "librivo/Latex.h"
#include "librivo/SaveError.h"
#include "librivo/StoredCodes.h"
#include "librivo/SysLog.h"
#include "librivo/Template.h"

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

// The literals every new model, field and template starts from.
const char* const kDefaultModel =
    "{\"vers\": [], \"type\": 0, \"did\": 1, \"usn\": 0, \"sortf\": 0, \"mod\": 0, "
    "\"latexPost\": \"\\\\end{document}\", "
    "\"latexPre\": \"\\\\documentclass[12pt]{article}\\n\\\\special{papersize=3in,5in}\\n"
    "\\\\usepackage{amssymb,amsmath}\\n\\\\usepackage[utf8]{inputenc}\\n\\\\pagestyle{empty}\\n"
    "\\\\setlength{\\\\parindent}{0in}\\n\\\\begin{document}\\n\", "
    "\"css\": \".card {\\n font-family: arial;\\n font-size: 20px;\\n text-align: center;\\n "
    "color: black;\\n background-color: white;\\n}\\n\"}";
const char* const kDefaultField =
    "{\"name\": \"\", \"rtl\": false, \"sticky\": false, \"media\": [], \"ord\": null, "
    "\"font\": \"Arial\", \"size\": 20}";
const char* const kDefaultTemplate =
    "{\"name\": \"\", \"qfmt\": \"\", \"did\": null, \"afmt\": \"\", \"ord\": null, "
    "\"bqfmt\": \"\", \"bafmt\": \"\"}";

// The probe value of the req computation: text no template produces by itself.
const char* const kProbe = "rivoflag";

bool hasId(const Json& model) {
  auto it = model.find("id");
  return it != model.end() && !it->is_null();
}

std::string idText(const Json& model) {
  auto it = model.find("id");
  if (it == model.end() || it->is_null()) return {};
  return it->is_string() ? it->get<std::string>() : std::to_string(jsonInt(*it));
}

// Index of `item` in the array, matched by its "ord" when it has one, else by equality.
size_t indexIn(const Json& array, const Json& item) {
  const Json* ord = jsonFind(item, "ord");
  if (ord && !ord->is_null()) {
    const int64_t i = jsonInt(*ord, -1);
    if (i >= 0 && static_cast<size_t>(i) < array.size() && array[i] == item)
      return static_cast<size_t>(i);
  }
  for (size_t i = 0; i < array.size(); ++i)
    if (array[i] == item) return i;
  throw std::invalid_argument("no such field or template in the note type");
}

// A replacement text taken literally by ICU: "$" and "\" lose their meaning.
icu::UnicodeString literalReplacement(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '$' || c == '\\') out += '\\';
    out += c;
  }
  return utf16(out);
}

}  // namespace

ModelManager::ModelManager(Col& col)
    : _col(col),
      _defaultModel(decodeJson(kDefaultModel)),
      _defaultField(decodeJson(kDefaultField)),
      _defaultTemplate(decodeJson(kDefaultTemplate)) {
  // Probing for required fields renders questions exactly as cards are rendered.
  _renderQuestion = [this](const Row& row) { return _col._renderQA(row).q; };
}

void ModelManager::load(const std::string& json) {
  _models = json.empty() ? Json::object() : decodeJson(json);
  if (!_models.is_object()) _models = Json::object();
  _changed = false;
  _snapshots.clear();
}

std::shared_ptr<const Json> ModelManager::snapshot(const Json& model) {
  const Json* id = jsonFind(model, "id");
  const int64_t key = id ? jsonInt(*id, 0) : 0;
  if (!key) return std::make_shared<Json>(model);
  std::shared_ptr<const Json>& kept = _snapshots[key];
  // Models are changed in place through references, so only a comparison tells.
  if (!kept || *kept != model) kept = std::make_shared<Json>(model);
  return kept;
}

void ModelManager::save(Json* model, bool templates) {
  if (model && hasId(*model)) {
    _col.stamp(*model);
    _updateRequired(*model);
    if (templates) _syncTemplates(*model);
  }
  _changed = true;
}

void ModelManager::flush() {
  if (!_changed) return;
  const std::string text = savedJson(_models, "note types");
  _col.db()->run("update col set models = ?", {text});
  _changed = false;
}

void ModelManager::beforeUpload() {
  for (auto& [id, m] : _models.items()) m["usn"] = 0;
  save();
}

// --- Registry ---

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
  const Json* cur = jsonFind(_col.conf(), "curModel");
  if (cur) {
    if (Json* m = get(*cur)) return m;
  }
  for (auto& m : _models) {
    if (m.is_object()) return &m;
  }
  return nullptr;
}

void ModelManager::setCurrent(const Json& model) {
  _col.conf()["curModel"] = model.contains("id") ? model["id"] : Json();
  _col.setMod();
}

std::vector<Json*> ModelManager::all() {
  std::vector<Json*> out;
  for (auto& m : _models)
    if (m.is_object()) out.push_back(&m);
  return out;
}

std::vector<std::string> ModelManager::ids() const {
  std::vector<std::string> out;
  for (const auto& [id, m] : _models.items()) out.push_back(id);
  return out;
}

std::vector<std::string> ModelManager::allNames() const {
  std::vector<std::string> out;
  for (const auto& m : _models)
    if (m.is_object()) out.push_back(jsonText(m, "name"));
  return out;
}

Json* ModelManager::byName(const std::string& name) {
  for (auto& m : _models)
    if (m.is_object() && jsonText(m, "name") == name) return &m;
  return nullptr;
}

Json ModelManager::new_(const std::string& name) const {
  Json m = _defaultModel;
  m["name"] = name;
  m["mod"] = intTime(1);
  m["flds"] = Json::array();
  m["tmpls"] = Json::array();
  m["tags"] = Json::array();
  m["id"] = nullptr;
  return m;
}

Json& ModelManager::add(Json model) {
  _setID(model);
  Json& stored = update(std::move(model));
  setCurrent(stored);
  save(&stored, true);
  return stored;
}

Json& ModelManager::update(Json model) {
  ensureNameUnique(model);
  const std::string key = idText(model);
  Json& stored = _models[key];
  stored = std::move(model);
  save();
  return stored;
}

void ModelManager::rem(const Json& model) {
  _col.modSchema();
  const std::string key = idText(model);
  const Json* cur = current();
  const bool wasCurrent = cur && idText(*cur) == key;
  std::vector<Id> cids =
      _col.db()->ids("select id from cards where nid in (select id from notes where mid = ?)",
                     {jsonInt(Json(key))});
  _col.remCards(cids);
  _models.erase(key);
  save();
  if (wasCurrent) {
    std::vector<Json*> rest = all();
    if (!rest.empty()) setCurrent(*rest.front());
  }
}

Json& ModelManager::copy(const Json& model) {
  Json m = model;
  m["name"] = jsonText(model, "name") + " copy";
  return add(std::move(m));
}

void ModelManager::ensureNameUnique(Json& model) {
  const std::string name = jsonText(model, "name");
  const std::string id = idText(model);
  for (const auto& m : _models) {
    if (!m.is_object() || jsonText(m, "name") != name || idText(m) == id) continue;
    model["name"] = name + "-" + checksum(std::to_string(intTime(1))).substr(0, 5);
    return;
  }
}

void ModelManager::_setID(Json& model) {
  // Ids are epoch milliseconds; a taken one moves on by a millisecond rather than waiting for
  // the clock, so several types made in the same millisecond (a new collection) still differ.
  int64_t id = intTime(1000);
  while (_models.contains(std::to_string(id))) ++id;
  model["id"] = std::to_string(id);
}

std::vector<Id> ModelManager::nids(const Json& model) {
  std::vector<Id> out =
      _col.db()->ids("select id from notes where mid = ?", {jsonInt(Json(idText(model)))});
  return out;
}

int64_t ModelManager::useCount(const Json& model) {
  return _col.db()->scalarInt("select count() from notes where mid = ?",
                              {jsonInt(Json(idText(model)))});
}

std::string ModelManager::scmhash(const Json& model) {
  std::string s;
  for (const char* key : {"flds", "tmpls"}) {
    const Json* list = jsonFind(model, key);
    if (!list || !list->is_array()) continue;
    for (const Json& item : *list) s += jsonText(item, "name");
  }
  return checksum(s);
}

// --- Fields ---

Json ModelManager::newField(const std::string& name) const {
  Json f = _defaultField;
  f["name"] = name;
  return f;
}

Json ModelManager::fieldMap(const Json& model) {
  Json map = Json::object();
  const Json* flds = jsonFind(model, "flds");
  if (!flds || !flds->is_array()) return map;
  int64_t index = 0;
  for (const Json& f : *flds) {
    const Json* name = jsonFind(f, "name");
    const Json* ord = jsonFind(f, "ord");
    if (name && name->is_string())
      map[name->get<std::string>()] = Json::array({ord ? jsonInt(*ord, index) : index, f});
    ++index;
  }
  return map;
}

std::vector<std::string> ModelManager::fieldNames(const Json& model) {
  std::vector<std::string> names;
  const Json* flds = jsonFind(model, "flds");
  if (!flds || !flds->is_array()) return names;
  for (const Json& f : *flds) names.push_back(jsonText(f, "name"));
  return names;
}

int ModelManager::sortIdx(const Json& model) {
  const Json* sortf = jsonFind(model, "sortf");
  return sortf ? static_cast<int>(jsonInt(*sortf)) : 0;
}

void ModelManager::setSortIdx(Json& model, int idx) {
  const Json* flds = jsonFind(model, "flds");
  if (idx < 0 || !flds || static_cast<size_t>(idx) >= flds->size()) throw std::logic_error("check");
  _col.modSchema();
  model["sortf"] = idx;
  _col.updateFieldCache(nids(model));
  save(&model);
}

void ModelManager::_updateFieldOrds(Json& model) {
  int i = 0;
  for (Json& f : model["flds"]) f["ord"] = i++;
}

void ModelManager::_updateTemplOrds(Json& model) {
  int i = 0;
  for (Json& t : model["tmpls"]) t["ord"] = i++;
}

void ModelManager::addField(Json& model, Json field) {
  if (hasId(model)) _col.modSchema();
  if (!model["flds"].is_array()) model["flds"] = Json::array();
  model["flds"].push_back(std::move(field));
  _updateFieldOrds(model);
  save(&model);
  _transformFields(model, [](std::vector<std::string>& fields) { fields.emplace_back(); });
}

void ModelManager::moveField(Json& model, const Json& field, int idx) {
  _col.modSchema();
  Json& flds = model["flds"];
  const size_t oldIdx = indexIn(flds, field);
  if (idx < 0 || static_cast<size_t>(idx) >= flds.size()) throw std::logic_error("check");
  const size_t target = static_cast<size_t>(idx);
  if (oldIdx == target) return;
  Json moved = flds[oldIdx];
  flds.erase(oldIdx);
  flds.insert(flds.begin() + idx, std::move(moved));
  model["sortf"] = idx;
  _updateFieldOrds(model);
  save(&model);
  _transformFields(model, [oldIdx, target](std::vector<std::string>& fields) {
    // A short note reads its missing values as empty.
    if (fields.size() <= std::max(oldIdx, target)) fields.resize(std::max(oldIdx, target) + 1);
    std::string value = std::move(fields[oldIdx]);
    fields.erase(fields.begin() + static_cast<long>(oldIdx));
    fields.insert(fields.begin() + static_cast<long>(target), std::move(value));
  });
}

void ModelManager::renameField(Json& model, const Json& field,
                               const std::optional<std::string>& newName) {
  _col.modSchema();
  Json& flds = model["flds"];
  const size_t index = indexIn(flds, field);
  const std::string pattern = "\\{\\{([:#^/]|[^:#/^\\}][^:\\}]*?:|)" +
                              escapeRegexFromString(jsonText(flds[index], "name")) + "\\}\\}";
  UErrorCode status = U_ZERO_ERROR;
  UParseError where;
  std::unique_ptr<icu::RegexPattern> re(icu::RegexPattern::compile(utf16(pattern), where, status));
  if (U_SUCCESS(status)) {
    const icu::UnicodeString replacement =
        newName ? utf16("{{$1") + literalReplacement(*newName) + utf16("}}") : icu::UnicodeString();
    for (Json& t : model["tmpls"]) {
      for (const char* key : {"qfmt", "afmt"}) {
        if (!t.contains(key) || !t[key].is_string()) continue;
        UErrorCode st = U_ZERO_ERROR;
        // The matcher keeps a reference to its input.
        const icu::UnicodeString input = utf16(t[key].get<std::string>());
        std::unique_ptr<icu::RegexMatcher> m(re->matcher(input, st));
        if (U_FAILURE(st)) continue;
        icu::UnicodeString out = m->replaceAll(replacement, st);
        if (U_SUCCESS(st)) t[key] = utf8(out);
      }
    }
  }
  flds[index]["name"] = newName ? Json(*newName) : Json();
  save(&model);
}

void ModelManager::remField(Json&, const Json&) {
  throw std::logic_error("0");
}

void ModelManager::_transformFields(const Json& model,
                                    const std::function<void(std::vector<std::string>&)>& step) {
  if (!hasId(model)) return;
  DB& db = *_col.db();
  std::vector<Row> rows =
      db.all("select id, flds from notes where mid = ?", {jsonInt(Json(idText(model)))});
  const int64_t now = intTime(1);
  const int64_t usn = _col.usn();
  std::vector<Row> updates;
  updates.reserve(rows.size());
  for (const Row& r : rows) {
    std::vector<std::string> fields = splitFields(toText(r[1]));
    step(fields);
    updates.push_back({joinFields(fields), now, usn, r[0]});
  }
  db.executeMany("update notes set flds=?,mod=?,usn=? where id = ?", updates);
}

// --- Templates ---

Json ModelManager::newTemplate(const std::string& name) const {
  Json t = _defaultTemplate;
  t["name"] = name;
  return t;
}

void ModelManager::addTemplate(Json& model, Json tmpl) {
  if (hasId(model)) _col.modSchema();
  if (!model["tmpls"].is_array()) model["tmpls"] = Json::array();
  model["tmpls"].push_back(std::move(tmpl));
  _updateTemplOrds(model);
  save(&model);
}

bool ModelManager::remTemplate(Json& model, const Json& tmpl) {
  Json& tmpls = model["tmpls"];
  const size_t ord = indexIn(tmpls, tmpl);
  const Id mid = jsonInt(Json(idText(model)));
  DB& db = *_col.db();
  std::vector<Id> cids =
      db.ids("select c.id from cards c, notes f where c.nid=f.id and mid = ? and ord = ?",
             {mid, static_cast<int64_t>(ord)});
  if (tmpls.size() <= 1) throw std::logic_error("len(m['tmpls']) > 1");
  // Refused when some note would lose its last card.
  if (db.scalarInt("select nid, count() from cards where nid in (select nid from cards where "
                   "id in " +
                   ids2str(cids) + ") group by nid having count() < 2 limit 1"))
    return false;
  _col.modSchema();
  _col.remCards(cids);
  const Col::Stamp now = _col.stamp();
  db.run(
      "update cards set ord = ord - 1, usn = ?, mod = ? where nid in (select id from notes "
      "where mid = ?) and ord > ?",
      {now.usn, now.mod, mid, static_cast<int64_t>(ord)});
  tmpls.erase(ord);
  _updateTemplOrds(model);
  save(&model);
  return true;
}

void ModelManager::moveTemplate(Json& model, const Json& tmpl, int idx) {
  Json& tmpls = model["tmpls"];
  const size_t oldIdx = indexIn(tmpls, tmpl);
  if (idx < 0 || static_cast<size_t>(idx) >= tmpls.size()) throw std::logic_error("check");
  if (oldIdx == static_cast<size_t>(idx)) return;
  // Where each template was before the move, in its new order.
  std::vector<size_t> oldOrds(tmpls.size());
  std::iota(oldOrds.begin(), oldOrds.end(), 0);
  oldOrds.erase(oldOrds.begin() + static_cast<long>(oldIdx));
  oldOrds.insert(oldOrds.begin() + idx, oldIdx);
  Json moved = tmpls[oldIdx];
  tmpls.erase(oldIdx);
  tmpls.insert(tmpls.begin() + idx, std::move(moved));
  _updateTemplOrds(model);
  std::string clauses;
  for (size_t i = 0; i < oldOrds.size(); ++i) {
    if (!clauses.empty()) clauses += ' ';
    clauses += "when ord = " + std::to_string(oldOrds[i]) + " then " + std::to_string(i);
  }
  save(&model);
  const Col::Stamp now = _col.stamp();
  _col.db()->run("update cards set ord = (case " + clauses +
                     " end),usn=?,mod=? where nid in (select id from notes where mid = ?)",
                 {now.usn, now.mod, jsonInt(Json(idText(model)))});
}

void ModelManager::_syncTemplates(const Json& model) {
  _col.remEmptyCards(_col.genCards(nids(model)));
}

// --- Required fields ---

void ModelManager::_updateRequired(Json& model) {
  const Json* type = jsonFind(model, "type");
  if (type && jsonInt(*type) == kModelCloze) return;
  const std::vector<std::string> names = fieldNames(model);
  Json req = Json::array();
  const Json* tmpls = jsonFind(model, "tmpls");
  if (tmpls && tmpls->is_array()) {
    for (const Json& t : *tmpls) {
      Json r = _reqForTemplate(model, names, t);
      const Json* ord = jsonFind(t, "ord");
      req.push_back(Json::array({ord ? jsonInt(*ord) : 0, r[0], r[1]}));
    }
  }
  model["req"] = std::move(req);
}

Json ModelManager::_reqForTemplate(const Json& model, const std::vector<std::string>& fieldNames,
                                   const Json& tmpl) {
  const size_t n = fieldNames.size();
  const std::vector<std::string> a(n, kProbe);
  const std::vector<std::string> b(n, std::string());
  const Json* ordValue = jsonFind(tmpl, "ord");
  const int64_t ord = ordValue ? jsonInt(*ordValue) : 0;
  const Id mid = jsonInt(Json(idText(model)));
  auto question = [&](const std::vector<std::string>& fields) {
    return _renderQuestion(
        {int64_t{1}, int64_t{1}, mid, int64_t{1}, ord, std::string(), joinFields(fields)});
  };
  const std::string full = question(a);
  const std::string empty = question(b);
  if (full == empty) return Json::array({"none", Json::array(), Json::array()});
  Json found = Json::array();
  for (size_t i = 0; i < n; ++i) {
    std::vector<std::string> probe = a;
    probe[i].clear();
    if (question(probe).find(kProbe) == std::string::npos) found.push_back(i);
  }
  if (!found.empty()) return Json::array({"all", found, Json::array()});
  found = Json::array();
  for (size_t i = 0; i < n; ++i) {
    std::vector<std::string> probe = b;
    probe[i] = "1";
    if (question(probe) != empty) found.push_back(i);
  }
  return Json::array({"any", found, Json::array()});
}

std::vector<int> ModelManager::availOrds(const Json& model, const std::string& flds) {
  const Json* type = jsonFind(model, "type");
  if (type && jsonInt(*type) == kModelCloze) return _availClozeOrds(model, flds);
  std::vector<int> avail;
  const Json* req = jsonFind(model, "req");
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
  const Json* tmpls = jsonFind(model, "tmpls");
  if (tmpls && tmpls->is_array() && !tmpls->empty()) {
    const Json* q = jsonFind((*tmpls)[0], "qfmt");
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

// --- The standard note types ---

Json& ModelManager::addBasicModel() {
  Json m = new_("Basic");
  addField(m, newField("Front"));
  addField(m, newField("Back"));
  Json t = newTemplate("Card 1");
  t["qfmt"] = "{{Front}}";
  t["afmt"] = "{{FrontSide}}\n\n<hr id=answer>\n\n{{Back}}";
  addTemplate(m, std::move(t));
  return add(std::move(m));
}

Json& ModelManager::addForwardReverse() {
  Json& m = addBasicModel();
  m["name"] = "Basic (and reversed card)";
  Json t = newTemplate("Card 2");
  t["qfmt"] = "{{Back}}";
  t["afmt"] = "{{FrontSide}}\n\n<hr id=answer>\n\n{{Front}}";
  addTemplate(m, std::move(t));
  return m;
}

Json& ModelManager::addForwardOptionalReverse() {
  Json& m = addBasicModel();
  m["name"] = "Basic (optional reversed card)";
  addField(m, newField("Add Reverse"));
  Json t = newTemplate("Card 2");
  t["qfmt"] = "{{#Add Reverse}}{{Back}}{{/Add Reverse}}";
  t["afmt"] = "{{FrontSide}}\n\n<hr id=answer>\n\n{{Front}}";
  addTemplate(m, std::move(t));
  return m;
}

Json& ModelManager::addClozeModel() {
  Json m = new_("Cloze");
  m["type"] = 1;
  addField(m, newField("Text"));
  addField(m, newField("Extra"));
  Json t = newTemplate("Cloze");
  t["qfmt"] = "{{cloze:Text}}";
  t["afmt"] = "{{cloze:Text}}<br>\n{{Extra}}";
  addTemplate(m, std::move(t));
  m["css"] = jsonText(m, "css") + ".cloze { font-weight: bold; color: blue;}";
  return add(std::move(m));
}

void ModelManager::addStandardModels() {
  addClozeModel();
  addForwardOptionalReverse();
  addForwardReverse();
  addBasicModel();
}

}  // namespace rivo
