#pragma once
// Ids of new rows, and lists of ids for SQL.

#include <cstdint>
#include <string>
#include <vector>

namespace rivo {

class DB;

// An epoch-millisecond id not yet used in `table`'s id column.
int64_t timestampID(DB& db, const std::string& table);
// One more than the current millisecond and every card and note id, as decimal text.
std::string maxID(DB& db);
// "(1,2,3)" for SQL's "in"; "()" when empty.
std::string ids2str(const std::vector<int64_t>& ids);
std::string ids2str(const std::vector<std::string>& ids);

}  // namespace rivo
