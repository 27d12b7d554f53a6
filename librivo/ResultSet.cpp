#include "librivo/ResultSet.h"

#include <sqlite3.h>

#include <mutex>

#include "librivo/DB.h"

namespace rivo {

ResultSet::~ResultSet() {
  close();
}

bool ResultSet::next() {
  if (!_db) return false;
  std::lock_guard guard(_db->_lock);
  if (!_stmt) return false;
  int rc = _db->_step(_stmt);
  if (rc == SQLITE_ROW) return true;
  if (rc != SQLITE_DONE) _db->_logError(sqlite3_sql(_stmt));
  return false;
}

Row ResultSet::row() const {
  Row out;
  if (!_stmt) return out;
  int n = sqlite3_column_count(_stmt);
  out.reserve(n);
  for (int i = 0; i < n; ++i) out.push_back(columnValue(_stmt, i));
  return out;
}

void ResultSet::close() {
  if (!_db) return;
  std::lock_guard guard(_db->_lock);
  if (_stmt) sqlite3_finalize(_stmt);
  _stmt = nullptr;
  _db->_resultSets.erase(this);
  _db = nullptr;
}

}  // namespace rivo
