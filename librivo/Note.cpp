#include "librivo/Note.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <stdexcept>

#include "librivo/Card.h"
#include "librivo/Checksum.h"
#include "librivo/Clock.h"
#include "librivo/Col.h"
#include "librivo/DB.h"
#include "librivo/FieldText.h"
#include "librivo/Ids.h"
#include "librivo/ModelManager.h"
#include "librivo/Random.h"
#include "librivo/TagManager.h"

namespace rivo {

namespace {

// Nothing but white space and line breaks (Unicode's White_Space property).
bool isBlank(const std::string& text) {
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  const int32_t length = static_cast<int32_t>(text.size());
  int32_t i = 0;
  while (i < length) {
    UChar32 c;
    U8_NEXT(s, i, length, c);
    if (c < 0 || !u_isUWhiteSpace(c)) return false;
  }
  return true;
}

}  // namespace

Note::Note(Col& c, const Json& model) : col(&c), _model(c.models().snapshot(model)) {
  if (model.contains("flds") && model["flds"].is_array())
    fields.assign(model["flds"].size(), std::string());
  if (model.contains("tags") && model["tags"].is_array()) {
    for (const Json& t : model["tags"])
      if (t.is_string()) tags.push_back(t.get<std::string>());
  }
  id = timestampID(*c.db(), "notes");
  guid = guid64();
  mid = model.contains("id") ? jsonInt(model["id"]) : 0;
  scm = c.scm();
}

Note::Note(Col& c, Id noteId) : col(&c), id(noteId) {
  load();
}

void Note::load() {
  auto row = col->db()->first(
      "select guid, mid, mod, usn, tags, flds, flags, data from notes where id = ?", {id});
  if (row && row->size() >= 8) {
    const Row& r = *row;
    guid = toText(r[0]);
    mid = toInt(r[1]);
    mod = toInt(r[2]);
    usn = static_cast<int>(toInt(r[3]));
    tagsString = toText(r[4]);
    fieldsString = toText(r[5]);
    flags = toInt(r[6]);
    data = toText(r[7]);
    fields = splitFields(fieldsString);
    tags = TagManager::split(tagsString);
  }
  const Json* m = col->models().get(mid);
  _model = m ? col->models().snapshot(*m) : std::make_shared<Json>();
  _fmap.reset();
  scm = col->scm();
}

void Note::flush(int64_t modTime) {
  scm = col->scm();
  _preFlush();
  const int sortIdx = ModelManager::sortIdx(*_model);
  sfld = sortIdx >= 0 && static_cast<size_t>(sortIdx) < fields.size() ? stripHTML(fields[sortIdx])
                                                                      : std::string();
  const std::string tagText = stringTags();
  const std::string fieldText = joinedFields();
  DB& db = *col->db();
  if (modTime) {
    mod = modTime;
  } else {
    if (db.scalar("select 1 from notes where id=? and tags=? and flds=?",
                  {id, tagText, fieldText})) {
      col->log({"abort save, no changes"});
      return;
    }
    mod = intTime(1);
  }
  usn = col->usn();
  csum = fieldChecksum(fields.empty() ? std::string() : fields[0]);
  db.run("insert or replace into notes values (?,?,?,?,?,?,?,?,?,?,?)",
         {id, guid, mid, mod, int64_t{usn}, tagText, fieldText, sfld, csum, flags, data});
  col->tags().register_(tags);
  _postFlush();
}

void Note::_preFlush() {
  newlyAdded = !col->db()->scalar("select 1 from cards where nid = ?", {id});
}

void Note::_postFlush() {
  // A note that already has cards may now call for more (a filled field, a new cloze). A new
  // note gets its cards from whoever adds it.
  if (!newlyAdded) col->genCards({id});
}

Json& Note::model() {
  if (_model.use_count() > 1) _model = std::make_shared<Json>(*_model);
  // Made here as a plain Json and now held only by this note.
  return const_cast<Json&>(*_model);
}

std::string Note::joinedFields() const {
  return joinFields(fields);
}

std::vector<Card> Note::cards() {
  std::vector<Card> cards;
  for (const Value& cid : col->db()->list("select id from cards where nid = ? order by ord", {id}))
    cards.emplace_back(*col, toInt(cid));
  return cards;
}

const Json& Note::_fieldMap() const {
  // Made when first asked: a note that is only filled by position and saved never needs it.
  if (!_fmap) _fmap = ModelManager::fieldMap(*_model);
  return *_fmap;
}

int Note::_fieldOrd(const std::string& name) const {
  const Json& fmap = _fieldMap();
  auto it = fmap.find(name);
  return it == fmap.end() ? -1 : static_cast<int>(jsonInt((*it)[0], -1));
}

std::vector<std::string> Note::keys() const {
  std::vector<std::string> names;
  for (const auto& [name, entry] : _fieldMap().items()) names.push_back(name);
  return names;
}

std::vector<std::pair<std::string, std::string>> Note::items() const {
  std::vector<std::pair<int, std::string>> byOrd;
  for (const auto& [name, entry] : _fieldMap().items())
    byOrd.emplace_back(static_cast<int>(jsonInt(entry[0], -1)), name);
  std::stable_sort(byOrd.begin(), byOrd.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::pair<std::string, std::string>> out;
  out.reserve(byOrd.size());
  for (const auto& [ord, name] : byOrd) out.emplace_back(name, get(name));
  return out;
}

std::string Note::get(const std::string& name) const {
  const int ord = _fieldOrd(name);
  return ord >= 0 && static_cast<size_t>(ord) < fields.size() ? fields[ord] : std::string();
}

void Note::set(const std::string& name, const std::string& value) {
  const int ord = _fieldOrd(name);
  if (ord < 0) throw std::invalid_argument("no field named " + name);
  if (static_cast<size_t>(ord) >= fields.size()) fields.resize(static_cast<size_t>(ord) + 1);
  fields[ord] = value;
}

bool Note::hasTag(const std::string& tag) const {
  return TagManager::isTagInList(tag, tags);
}

std::string Note::stringTags() const {
  std::vector<std::string> unique;
  unique.reserve(tags.size());
  for (const std::string& t : tags)
    if (std::find(unique.begin(), unique.end(), t) == unique.end()) unique.push_back(t);
  return TagManager::join(TagManager::canonify(unique));
}

void Note::setTagsFromStr(const std::string& text) {
  tags = TagManager::split(text);
}

void Note::addTag(const std::string& tag) {
  tags.push_back(tag);
}

void Note::delTag(const std::string& tag) {
  std::erase(tags, tag);
}

int Note::dupeOrEmpty() {
  const std::string first = fields.empty() ? std::string() : fields[0];
  if (isBlank(first)) return 1;
  const int64_t sum = fieldChecksum(first);
  const std::string visible = stripHTMLMedia(first);
  for (const Value& flds : col->db()->list(
           "select flds from notes where csum = ? and id != ? and mid = ?", {sum, id, mid})) {
    if (stripHTMLMedia(splitFields(toText(flds))[0]) == visible) return 2;
  }
  return 0;
}

}  // namespace rivo
