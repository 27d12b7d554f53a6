#include "librivo/Ids.h"

#include <algorithm>
#include <optional>
#include <type_traits>

#include "librivo/Clock.h"
#include "librivo/DB.h"

namespace rivo {

namespace {

// The statements timestampID sends for one table.
struct IdStatements {
  // The first id after a run of taken ones (the id given must be taken), in one statement.
  std::string endOfRun;
  std::string taken;
  // The id given when it is free, else the end of its run.
  std::string freeOrEndOfRun;

  explicit IdStatements(const std::string& table)
      : endOfRun("select id + 1 from " + table +
                 " t where id >= ?1 and not exists (select 1 from " + table +
                 " where id = t.id + 1) order by id limit 1"),
        taken("select id from " + table + " where id = ?"),
        freeOrEndOfRun("select coalesce((select ?1 where not exists (select 1 from " + table +
                       " where id = ?1)), (" + endOfRun + "))") {}
};

template <class T>
std::string joinIds(const std::vector<T>& ids) {
  std::string out = "(";
  for (size_t i = 0; i < ids.size(); ++i) {
    if (i) out += ',';
    if constexpr (std::is_same_v<T, std::string>)
      out += ids[i];
    else
      out += std::to_string(ids[i]);
  }
  return out + ")";
}

}  // namespace

int64_t timestampID(DB& db, const std::string& table) {
  // Made once for the tables that get an id for every note and card added.
  static const IdStatements notes("notes"), cards("cards");
  std::optional<IdStatements> other;
  const IdStatements& sql = table == "notes"   ? notes
                            : table == "cards" ? cards
                                               : other.emplace(table);
  const int64_t now = intTime(1000);
  const std::optional<DB::TakenIds> known = db.takenIds(table);
  int64_t from = now, id = now;
  if (known && known->from <= now && now < known->to) {
    // Rows added faster than the clock moves: start past the part of the run already known.
    from = known->from;
    id = db.scalarInt(sql.freeOrEndOfRun, {known->to});
  } else if (db.scalar(sql.taken, {now})) {
    id = db.scalarInt(sql.endOfRun, {now});
  }
  db.setTakenIds(table, {from, id});
  return id;
}

std::string maxID(DB& db) {
  int64_t now = intTime(1000);
  for (const char* table : {"cards", "notes"})
    now = std::max(now, db.scalarInt(std::string("select max(id) from ") + table));
  return std::to_string(now + 1);
}

std::string ids2str(const std::vector<int64_t>& ids) {
  return joinIds(ids);
}
std::string ids2str(const std::vector<std::string>& ids) {
  return joinIds(ids);
}

}  // namespace rivo
