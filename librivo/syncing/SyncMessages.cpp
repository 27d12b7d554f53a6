#include "librivo/syncing/SyncMessages.h"

#include <charconv>

namespace rivo {

namespace {

// Column kinds of the rows as sent: n a number, s a text, v any scalar.
constexpr std::string_view kRevlogColumns = "nnnnnnnnn";
constexpr std::string_view kCardColumns = "nnnnnnnnnnnnnnnnns";
constexpr std::string_view kNoteColumns = "nsnnnssvvns";

bool isScalar(const Json& v) {
  return v.is_number() || v.is_string() || v.is_null() || v.is_boolean();
}

std::string checkRows(const Json& rows, std::string_view columns, const std::string& table) {
  if (!rows.is_array()) return table + " is not a list of rows";
  for (const Json& row : rows) {
    if (!row.is_array() || row.size() != columns.size())
      return table + " has a row without " + std::to_string(columns.size()) + " columns";
    for (size_t i = 0; i < columns.size(); ++i) {
      const Json& v = row[i];
      bool fits = columns[i] == 'n'   ? v.is_number()
                  : columns[i] == 's' ? v.is_string()
                                      : isScalar(v);
      if (!fits) return table + " has a value of the wrong kind in column " + std::to_string(i);
    }
    if (SyncMessages::idOf(row[0]) == 0) return table + " has a row without an id";
  }
  return {};
}

bool isId(const Json& v) {
  return SyncMessages::idOf(v) != 0;
}

// A number, or a number written as decimal text, as files from elsewhere may hold one.
bool isNumeric(const Json& v) {
  return v.is_number() || isId(v) || (v.is_string() && v.get_ref<const std::string&>() == "0");
}

// An object with an id, a name and a mod, as note types, decks and option groups are.
std::string checkObjects(const Json& list, const std::string& what) {
  if (!list.is_array()) return what + " is not a list";
  for (const Json& obj : list) {
    if (!obj.is_object() || !isId(obj.value("id", Json())) ||
        !isNumeric(obj.value("mod", Json())) || !obj.value("name", Json()).is_string())
      return what + " holds an object without id, name and mod";
  }
  return {};
}

bool namedList(const Json& v) {
  if (!v.is_array()) return false;
  for (const Json& item : v)
    if (!item.is_object() || !item.value("name", Json()).is_string()) return false;
  return true;
}

}  // namespace

Id SyncMessages::idOf(const Json& value) {
  if (value.is_number_integer()) return value.get<int64_t>();
  if (value.is_number_unsigned()) return static_cast<Id>(value.get<uint64_t>());
  if (!value.is_string()) return 0;
  const std::string& s = value.get_ref<const std::string&>();
  Id id = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), id);
  if (ec != std::errc() || end != s.data() + s.size()) return 0;
  return id;
}

std::string SyncMessages::checkMeta(const Json& meta) {
  if (!meta.is_object()) return "meta is not an object";
  for (const char* key : {"mod", "scm", "usn", "ts"})
    if (!meta.value(key, Json()).is_number()) return std::string("meta has no number ") + key;
  const Json cont = meta.value("cont", Json());
  if (!cont.is_boolean() && !cont.is_number()) return "meta has no cont";
  if (meta.contains("msg") && !meta["msg"].is_string() && !meta["msg"].is_null())
    return "meta msg is not a text";
  if (meta.contains("musn") && !meta["musn"].is_number() && !meta["musn"].is_null())
    return "meta musn is not a number";
  if (meta.contains("uname") && !meta["uname"].is_string() && !meta["uname"].is_null())
    return "meta uname is not a text";
  return {};
}

std::string SyncMessages::checkGraves(const Json& graves) {
  if (!graves.is_object()) return "graves is not an object";
  for (const char* key : {"cards", "notes", "decks"}) {
    const Json list = graves.value(key, Json());
    if (!list.is_array()) return std::string("graves has no list ") + key;
    for (const Json& id : list)
      if (!isId(id)) return std::string("graves ") + key + " holds something not an id";
  }
  return {};
}

std::string SyncMessages::checkChanges(const Json& changes) {
  if (!changes.is_object()) return "changes is not an object";
  const Json models = changes.value("models", Json());
  if (std::string e = checkObjects(models, "models"); !e.empty()) return e;
  for (const Json& m : models)
    if (!namedList(m.value("flds", Json())) || !namedList(m.value("tmpls", Json())))
      return "a model has no list of fields and templates";
  const Json decks = changes.value("decks", Json());
  if (!decks.is_array() || decks.size() != 2) return "decks is not a pair of lists";
  if (std::string e = checkObjects(decks[0], "decks"); !e.empty()) return e;
  if (std::string e = checkObjects(decks[1], "deck options"); !e.empty()) return e;
  const Json tags = changes.value("tags", Json());
  if (!tags.is_array()) return "tags is not a list";
  for (const Json& tag : tags)
    if (!tag.is_string()) return "tags holds something not a text";
  if (changes.contains("conf") && !changes["conf"].is_object()) return "conf is not an object";
  if (changes.contains("crt") && !changes["crt"].is_number()) return "crt is not a number";
  return {};
}

std::string SyncMessages::checkChunk(const Json& chunk) {
  if (!chunk.is_object()) return "chunk is not an object";
  if (chunk.contains("revlog"))
    if (std::string e = checkRows(chunk["revlog"], kRevlogColumns, "revlog"); !e.empty()) return e;
  if (chunk.contains("cards"))
    if (std::string e = checkRows(chunk["cards"], kCardColumns, "cards"); !e.empty()) return e;
  if (chunk.contains("notes"))
    if (std::string e = checkRows(chunk["notes"], kNoteColumns, "notes"); !e.empty()) return e;
  if (chunk.contains("done") && !chunk["done"].is_boolean() && !chunk["done"].is_null())
    return "done is not true or false";
  return {};
}

int SyncMessages::nestingDepth(std::string_view text) {
  int depth = 0, deepest = 0;
  bool inString = false, escaped = false;
  for (char c : text) {
    if (inString) {
      if (escaped)
        escaped = false;
      else if (c == '\\')
        escaped = true;
      else if (c == '"')
        inString = false;
      continue;
    }
    if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++depth);
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return deepest;
}

Json SyncMessages::rowToJson(const Row& row) {
  Json out = Json::array();
  for (const Value& v : row) {
    if (auto n = std::get_if<int64_t>(&v))
      out.push_back(*n);
    else if (auto d = std::get_if<double>(&v))
      out.push_back(*d);
    else if (auto s = std::get_if<std::string>(&v))
      out.push_back(*s);
    else if (auto b = std::get_if<Blob>(&v))
      out.push_back(std::string(b->begin(), b->end()));
    else
      out.push_back(nullptr);
  }
  return out;
}

Row SyncMessages::jsonToRow(const Json& row) {
  Row out;
  out.reserve(row.size());
  for (const Json& v : row) {
    if (v.is_number_integer())
      out.emplace_back(v.get<int64_t>());
    else if (v.is_number_unsigned())
      out.emplace_back(static_cast<int64_t>(v.get<uint64_t>()));
    else if (v.is_number_float())
      out.emplace_back(v.get<double>());
    else if (v.is_string())
      out.emplace_back(v.get<std::string>());
    else if (v.is_boolean())
      out.emplace_back(int64_t{v.get<bool>()});
    else
      out.emplace_back(Null{});
  }
  return out;
}

}  // namespace rivo
