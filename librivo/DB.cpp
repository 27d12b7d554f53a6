#include "librivo/DB.h"

#include <sqlite3.h>

#include <algorithm>
#include <cassert>
#include <cctype>
#include <thread>

#include "librivo/ResultSet.h"
#include "librivo/SaveError.h"
#include "librivo/SqlError.h"
#include "librivo/SysLog.h"

namespace rivo {

namespace {

bool isBusy(int rc) {
  return rc == SQLITE_BUSY || rc == SQLITE_LOCKED;
}

// The disk failed us (an I/O error, no space, a file that can't be opened or written): no
// fault of the statement, and the work must be reported as not done.
bool isDiskFailure(int rc) {
  switch (rc & 0xff) {
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_CANTOPEN:
    case SQLITE_READONLY:
      return true;
    default:
      return false;
  }
}

// Busy and locked are retried for ever: the program has one connection, so it never waits long.
void busyPause() {
  std::this_thread::sleep_for(std::chrono::microseconds(20));
}

bool hasPrefix(std::string_view s, std::string_view p) {
  return s.substr(0, p.size()) == p;
}

// The first seven characters after leading white space, lower-cased: enough to tell the kind.
std::string leadingWord(std::string_view sql) {
  size_t b = 0;
  while (b < sql.size() && std::isspace(static_cast<unsigned char>(sql[b]))) ++b;
  std::string head;
  for (size_t i = b; i < sql.size() && head.size() < 7; ++i)
    head += static_cast<char>(std::tolower(static_cast<unsigned char>(sql[i])));
  return head;
}

// Enough for every fixed statement of the program; generated ones (id lists) come and go.
constexpr size_t kCachedStatements = 100;
// Longer texts carry lists of ids and are unlikely to come again.
constexpr size_t kLongestCachedSql = 1000;

DB::QueryType typeOf(std::string_view head) {
  if (hasPrefix(head, "select") || hasPrefix(head, "pragma")) return DB::QueryType::Read;
  if (hasPrefix(head, "insert") || hasPrefix(head, "update") || hasPrefix(head, "delete") ||
      hasPrefix(head, "replace"))
    return DB::QueryType::Write;
  return DB::QueryType::Other;
}

// What the first word of a statement tells.
struct Traits {
  DB::QueryType type;
  bool removesRows;
  // Pragmas may compute their answer while being prepared, and schema changes run rarely.
  bool mayKeep;
};

Traits traitsOf(std::string_view sql) {
  const std::string head = leadingWord(sql);
  const DB::QueryType type = typeOf(head);
  return {type, hasPrefix(head, "delete"),
          type != DB::QueryType::Other && !hasPrefix(head, "pragma") &&
              sql.size() <= kLongestCachedSql};
}

}  // namespace

// A statement lent for one call: from the cache and back to it when it may be kept there,
// otherwise prepared for the call and finalized after it.
class DB::Borrowed {
 public:
  Borrowed(DB& db, const std::string& sql, bool mayKeep) : _db(db) {
    if (mayKeep && (_entry = _db._statements.take(sql))) {
      _stmt = _entry->stmt;
      return;
    }
    _stmt = _db._prepare(sql);
    if (_stmt && mayKeep) _entry = _db._statements.add(sql, _stmt);
  }
  ~Borrowed() {
    if (_entry)
      _db._statements.giveBack(_entry);
    else if (_stmt)
      sqlite3_finalize(_stmt);
  }
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;

  sqlite3_stmt* get() const { return _stmt; }

 private:
  DB& _db;
  StatementCache::Entry* _entry = nullptr;
  sqlite3_stmt* _stmt = nullptr;
};

DB::DB(std::string path) : _path(std::move(path)), _statements(kCachedStatements) {
  assert(sqlite3_threadsafe());
  int rc = sqlite3_open(_path.c_str(), &_db);
  if (rc != SQLITE_OK) {
    sysLog("error opening!: " + std::to_string(rc));
    if (_db) sqlite3_close(_db);
    _db = nullptr;
    return;
  }
  sqlite3_busy_timeout(_db, 0);
}

DB::~DB() {
  close();
}

DB::QueryType DB::_queryType(std::string_view sql) {
  return typeOf(leadingWord(sql));
}

void DB::_logError(const std::string& sql) {
  sysLog("DB Error: " + std::to_string(sqlite3_errcode(_db)) + " \"" + sqlite3_errmsg(_db) + "\"");
  sysLog("DB Query: " + sql);
  sysLog("DB Path: " + _path);
}

sqlite3_stmt* DB::_prepare(const std::string& sql) {
  sqlite3_stmt* stmt = nullptr;
  for (;;) {
    int rc = sqlite3_prepare_v2(_db, sql.c_str(), static_cast<int>(sql.size()) + 1, &stmt, nullptr);
    if (isBusy(rc)) {
      busyPause();
      continue;
    }
    if (rc != SQLITE_OK) {
      _logError(sql);
      sqlite3_finalize(stmt);
      _raiseOnDiskFailure(rc, "read");
      return nullptr;
    }
    return stmt;
  }
}

// Text and blobs are bound in place: `vars` outlives every step, and the bindings are cleared
// (or the statement finalized) before the caller gets control back.
bool DB::_bind(sqlite3_stmt* stmt, const Row& vars, const std::string& sql, bool isUpdate) {
  if (sqlite3_bind_parameter_count(stmt) != static_cast<int>(vars.size())) {
    if (isUpdate)
      sysLog("Error: the bind count is not correct for the # of variables (" + sql +
             ") (executeUpdate)");
    else
      sysLog("Error: the bind count is not correct for the # of variables (executeQuery)");
    return false;
  }
  for (size_t i = 0; i < vars.size(); ++i) {
    int idx = static_cast<int>(i) + 1;
    const Value& v = vars[i];
    int rc = SQLITE_OK;
    if (auto n = std::get_if<int64_t>(&v)) {
      rc = sqlite3_bind_int64(stmt, idx, *n);
    } else if (auto d = std::get_if<double>(&v)) {
      rc = sqlite3_bind_double(stmt, idx, *d);
    } else if (auto s = std::get_if<std::string>(&v)) {
      rc = sqlite3_bind_text(stmt, idx, s->data(), static_cast<int>(s->size()), SQLITE_STATIC);
    } else if (auto b = std::get_if<Blob>(&v)) {
      static const uint8_t empty = 0;
      rc = sqlite3_bind_blob(stmt, idx, b->empty() ? &empty : b->data(),
                             static_cast<int>(b->size()), SQLITE_STATIC);
    } else {
      rc = sqlite3_bind_null(stmt, idx);
    }
    if (rc != SQLITE_OK) {
      _logError(sql);
      return false;
    }
  }
  return true;
}

int DB::_step(sqlite3_stmt* stmt) {
  for (;;) {
    int rc = sqlite3_step(stmt);
    if (!isBusy(rc)) return rc;
    busyPause();
  }
}

bool DB::inTransaction() const {
  return _db && !sqlite3_get_autocommit(_db);
}

bool DB::_runControl(const char* sql) {
  const std::string text(sql);
  Borrowed stmt(*this, text, true);
  if (!stmt.get()) return false;
  if (_step(stmt.get()) == SQLITE_DONE) return true;
  _logError(text);
  return false;
}

bool DB::_begin() {
  if (_runControl("begin exclusive transaction")) return true;
  _raiseOnDiskFailure(sqlite3_extended_errcode(_db), "saved");
  return false;
}

void DB::_raiseOnDiskFailure(int rc, const char* what) {
  if (!isDiskFailure(rc)) return;
  const std::string reason = sqlite3_errmsg(_db);
  // SQLite may have undone part of the transaction already; none of the rest may reach the
  // file with a later commit, or half of the work would be saved.
  if (inTransaction()) _runControl("rollback transaction");
  ++_removals;
  mod = false;
  throw SaveError(std::string("The collection couldn't be ") + what + ": " + reason + ".");
}

void DB::_beforeWrite(bool removesRows) {
  mod = true;
  if (!inTransaction()) _begin();
  if (removesRows) ++_removals;
}

bool DB::execute(const std::string& sql, const Row& vars, const RowCallback& onRow) {
  return _execute(sql, vars, onRow, true);
}

bool DB::_execute(const std::string& sql, const Row& vars, const RowCallback& onRow,
                  bool mayCache) {
  std::lock_guard guard(_lock);
  if (!_db) return false;
  if (echo) sysLog(sql);
  const Traits traits = traitsOf(sql);
  if (traits.type == QueryType::Write) _beforeWrite(traits.removesRows);
  Borrowed stmt(*this, sql, mayCache && traits.mayKeep);
  if (!stmt.get()) return false;
  if (!_bind(stmt.get(), vars, sql, traits.type != QueryType::Read)) return false;
  int rc;
  while ((rc = _step(stmt.get())) == SQLITE_ROW) {
    if (onRow) onRow(stmt.get());
  }
  bool ok = rc == SQLITE_DONE;
  if (!ok) {
    _logError(sql);
    sqlite3_reset(stmt.get());
    _raiseOnDiskFailure(rc, traits.type == QueryType::Read ? "read" : "saved");
  }
  return ok;
}

bool DB::runWithResult(const std::string& sql, const Row& vars) {
  return execute(sql, vars);
}

void DB::run(const std::string& sql, const Row& vars) {
  if (!runWithResult(sql, vars)) throw SqlError(sql);
}

std::vector<bool> DB::executeMany(const std::string& sql, const std::vector<Row>& rows) {
  if (rows.empty()) return {};  // no write: neither a transaction nor `mod`
  std::vector<bool> results;
  results.reserve(rows.size());
  std::lock_guard guard(_lock);
  if (!_db) return std::vector<bool>(rows.size(), false);
  const Traits traits = traitsOf(sql);
  if (traits.type == QueryType::Write) _beforeWrite(traits.removesRows);
  // One statement for all rows, reset between them: what a per-row memory pool achieves,
  // without the cost of preparing each time.
  Borrowed borrowed(*this, sql, traits.mayKeep);
  sqlite3_stmt* stmt = borrowed.get();
  for (const Row& row : rows) {
    if (!stmt) {
      results.push_back(false);
      continue;
    }
    sqlite3_reset(stmt);
    sqlite3_clear_bindings(stmt);
    bool ok = _bind(stmt, row, sql, true);
    if (ok) {
      int rc;
      while ((rc = _step(stmt)) == SQLITE_ROW) {
      }
      ok = rc == SQLITE_DONE;
      if (!ok) {
        _logError(sql);
        sqlite3_reset(stmt);
        _raiseOnDiskFailure(rc, "saved");
      }
    }
    results.push_back(ok);
  }
  return results;
}

void DB::executeScript(const std::string& script) {
  mod = true;
  commit();
  size_t start = 0;
  for (;;) {
    size_t pos = script.find("; ", start);
    std::string piece =
        script.substr(start, pos == std::string::npos ? std::string::npos : pos - start);
    bool blank = std::all_of(piece.begin(), piece.end(),
                             [](unsigned char c) { return std::isspace(c) || c == ';'; });
    if (!blank) _execute(piece, {}, {}, false);
    if (pos == std::string::npos) break;
    start = pos + 2;
  }
}

Value columnValue(sqlite3_stmt* stmt, int col) {
  switch (sqlite3_column_type(stmt, col)) {
    case SQLITE_INTEGER:
      return static_cast<int64_t>(sqlite3_column_int64(stmt, col));
    case SQLITE_FLOAT:
      return sqlite3_column_double(stmt, col);
    case SQLITE_BLOB: {
      auto p = static_cast<const uint8_t*>(sqlite3_column_blob(stmt, col));
      return Blob(p, p + sqlite3_column_bytes(stmt, col));
    }
    case SQLITE_NULL:
      return Null{};
    default: {
      auto p = reinterpret_cast<const char*>(sqlite3_column_text(stmt, col));
      return std::string(p ? p : "", static_cast<size_t>(sqlite3_column_bytes(stmt, col)));
    }
  }
}

std::optional<Value> DB::scalar(const std::string& sql, const Row& vars) {
  std::optional<Value> out;
  execute(sql, vars, [&](sqlite3_stmt* st) {
    if (!out) out = columnValue(st, 0);
  });
  return out;
}

std::vector<int64_t> DB::ids(const std::string& sql, const Row& vars) {
  std::vector<int64_t> out;
  execute(sql, vars, [&out](sqlite3_stmt* stmt) { out.push_back(toInt(columnValue(stmt, 0))); });
  return out;
}

int64_t DB::scalarInt(const std::string& sql, const Row& vars) {
  auto v = scalar(sql, vars);
  return v ? toInt(*v) : 0;
}

std::optional<Row> DB::first(const std::string& sql, const Row& vars) {
  std::optional<Row> out;
  execute(sql, vars, [&](sqlite3_stmt* st) {
    if (out) return;
    int n = sqlite3_column_count(st);
    Row row;
    row.reserve(n);
    for (int i = 0; i < n; ++i) row.push_back(columnValue(st, i));
    out = std::move(row);
  });
  return out;
}

std::vector<Row> DB::all(const std::string& sql, const Row& vars) {
  std::vector<Row> out;
  execute(sql, vars, [&](sqlite3_stmt* st) {
    int n = sqlite3_column_count(st);
    Row row;
    row.reserve(n);
    for (int i = 0; i < n; ++i) row.push_back(columnValue(st, i));
    out.push_back(std::move(row));
  });
  return out;
}

std::vector<Value> DB::list(const std::string& sql, const Row& vars) {
  std::vector<Value> out;
  execute(sql, vars, [&](sqlite3_stmt* st) { out.push_back(columnValue(st, 0)); });
  return out;
}

std::unique_ptr<ResultSet> DB::executeQuery(const std::string& sql, const Row& vars) {
  std::lock_guard guard(_lock);
  if (!_db) return nullptr;
  if (echo) sysLog(sql);
  sqlite3_stmt* stmt = _prepare(sql);
  if (!stmt) return nullptr;
  auto rs = std::make_unique<ResultSet>(*this, stmt, vars);
  if (!_bind(stmt, rs->_vars, sql, false)) return nullptr;
  _resultSets.insert(rs.get());
  return rs;
}

void DB::beginTransaction() {
  std::lock_guard guard(_lock);
  if (_db) _begin();
}

// A commit that fails rolls the transaction back and raises SaveError.
void DB::commit() {
  std::lock_guard guard(_lock);
  if (!inTransaction()) return;
  if (_runControl("commit transaction")) return;
  // A commit that failed leaves the file at its last committed state only once the
  // transaction is gone; the caller must hear of it, or it would count the work as saved.
  const std::string reason = sqlite3_errmsg(_db);
  if (inTransaction()) _runControl("rollback transaction");
  ++_removals;
  throw SaveError("The collection couldn't be saved: " + reason + ".");
}

void DB::rollback() {
  std::lock_guard guard(_lock);
  if (!inTransaction()) {
    sysLog("not in transaction...");
    return;
  }
  _runControl("rollback transaction");
  ++_removals;
}

std::optional<DB::TakenIds> DB::takenIds(const std::string& table) {
  std::lock_guard guard(_lock);
  auto it = _takenIds.find(table);
  if (it == _takenIds.end() || it->second.second != _removals) return std::nullopt;
  return it->second.first;
}

void DB::setTakenIds(const std::string& table, TakenIds ids) {
  std::lock_guard guard(_lock);
  _takenIds[table] = {ids, _removals};
}

void DB::close() {
  std::lock_guard guard(_lock);
  if (!_db) return;
  _statements.clear();
  for (ResultSet* rs : _resultSets) {
    sqlite3_finalize(rs->_stmt);
    rs->_detach();
  }
  _resultSets.clear();
  while (sqlite3_stmt* leaked = sqlite3_next_stmt(_db, nullptr)) {
    sysLog("Closing leaked statement");
    sqlite3_finalize(leaked);
  }
  for (;;) {
    int rc = sqlite3_close(_db);
    if (!isBusy(rc)) break;
    busyPause();
  }
  _db = nullptr;
}

}  // namespace rivo
