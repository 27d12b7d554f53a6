#include "tests/support/CollectionDump.h"

#include "librivo/DB.h"
#include "librivo/Json.h"

namespace rivo::test {

namespace {

// The scheduler also writes "dyn" into option groups without stamping them, so one side may
// store it and the other not.
Json stripped(Json blob, bool withUsn) {
  if (!blob.is_object()) return blob;
  for (auto& [key, obj] : blob.items()) {
    if (!obj.is_object() || withUsn) continue;
    for (const char* k : {"usn", "newToday", "revToday", "lrnToday", "timeToday"}) obj.erase(k);
    if (obj.value("dyn", Json()) == false) obj.erase("dyn");
  }
  return blob;
}

}  // namespace

std::string dumpCollection(const std::string& path, bool withUsn) {
  DB db(path);
  std::string out;
  auto rows = [&](const std::string& title, const std::string& sql) {
    out += "# " + title + "\n";
    for (const Row& row : db.all(sql)) {
      for (size_t i = 0; i < row.size(); ++i) out += (i ? "|" : "") + toText(row[i]);
      out += "\n";
    }
  };
  const std::string usn = withUsn ? "usn, " : "";
  rows("notes",
       "select id, guid, mid, mod, " + usn + "tags, flds, flags, data from notes order by id");
  rows("cards", "select id, nid, did, ord, mod, " + usn +
                    "type, queue, due, ivl, factor, reps, lapses, left, odue, odid, flags, data "
                    "from cards order by id");
  rows("revlog",
       "select id, cid, " + usn + "ease, ivl, lastIvl, factor, time, type from revlog order by id");
  rows("graves", "select oid, type from graves order by oid, type");
  if (withUsn) rows("col", "select mod, scm, usn, ls from col");
  auto row = db.first("select models, decks, dconf, tags from col");
  if (row) {
    out += "# models\n" + stripped(decodeJson(toText((*row)[0])), withUsn).dump(1) + "\n";
    out += "# decks\n" + stripped(decodeJson(toText((*row)[1])), withUsn).dump(1) + "\n";
    out += "# dconf\n" + stripped(decodeJson(toText((*row)[2])), withUsn).dump(1) + "\n";
    Json tags = decodeJson(toText((*row)[3]));
    out += "# tags\n";
    for (auto& [name, value] : tags.items())
      out += name + (withUsn ? "=" + value.dump() : "") + "\n";
  }
  db.close();
  return out;
}

}  // namespace rivo::test
