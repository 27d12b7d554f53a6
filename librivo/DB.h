#pragma once
// The SQLite wrapper every part of the program reaches the collection file through.
//
// Owns its connection. Any thread may call; each call holds `_lock` (which guards the
// connection and the statement cache) for the whole statement, row callbacks included.
// Statements that read or write rows are prepared once per text and kept (up to a bound, least
// recently used first out); scripts, pragmas and statements that change the schema are
// prepared for each call. Closing finalizes them all.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "librivo/StatementCache.h"
#include "librivo/Value.h"

struct sqlite3;
struct sqlite3_stmt;

namespace rivo {

class ResultSet;

class DB {
 public:
  enum class QueryType { Read, Write, Other };
  using RowCallback = std::function<void(sqlite3_stmt*)>;

  // Opens (creating if needed) the file; a failure leaves the wrapper without a connection.
  explicit DB(std::string path);
  ~DB();
  DB(const DB&) = delete;
  DB& operator=(const DB&) = delete;

  static QueryType _queryType(std::string_view sql);

  // The one path to the database. Reads stream each row to `onRow`; the result is whether
  // the statement ran. Writes set `mod` and open the exclusive transaction if none is open.
  // A statement the disk fails (I/O error, disk full) rolls the transaction back and raises
  // SaveError instead, here and in every call below.
  bool execute(const std::string& sql, const Row& vars = {}, const RowCallback& onRow = {});
  bool runWithResult(const std::string& sql, const Row& vars = {});
  // As runWithResult, but a failure raises SqlError.
  void run(const std::string& sql, const Row& vars = {});
  std::vector<bool> executeMany(const std::string& sql, const std::vector<Row>& rows);
  // Commits, then runs each piece of the script split at "; ".
  void executeScript(const std::string& script);

  std::optional<Value> scalar(const std::string& sql, const Row& vars = {});
  std::optional<Row> first(const std::string& sql, const Row& vars = {});
  std::vector<Row> all(const std::string& sql, const Row& vars = {});
  std::vector<Value> list(const std::string& sql, const Row& vars = {});
  // The first column of each row read as an id, as toInt reads a value.
  std::vector<int64_t> ids(const std::string& sql, const Row& vars = {});
  // A read kept open for stepping row by row; null when the statement can't run.
  std::unique_ptr<ResultSet> executeQuery(const std::string& sql, const Row& vars = {});
  // Convenience: scalar as an integer, 0 when there is no row or it is NULL.
  int64_t scalarInt(const std::string& sql, const Row& vars = {});

  // What timestampID last learnt of a table: every id in [from, to) was taken. It holds until
  // rows may have gone (a delete, a rollback), after which takenIds() is empty again.
  struct TakenIds {
    int64_t from = 0, to = 0;
  };
  std::optional<TakenIds> takenIds(const std::string& table);
  void setTakenIds(const std::string& table, TakenIds ids);

  // Prepared statements kept for reuse (for tests).
  size_t cachedStatements() const { return _statements.size(); }

  void beginTransaction();
  void commit();
  void rollback();
  void close();

  bool isOpen() const { return _db != nullptr; }
  bool inTransaction() const;
  const std::string& path() const { return _path; }
  sqlite3* handle() const { return _db; }

  // Something has been written since the last save.
  bool mod = false;
  // Logs each statement; nothing turns it on.
  bool echo = false;

 private:
  class Borrowed;

  bool _execute(const std::string& sql, const Row& vars, const RowCallback& onRow, bool mayCache);
  // Runs a statement that takes no values and returns no rows, such as "commit transaction".
  bool _runControl(const char* sql);
  friend class ResultSet;
  sqlite3_stmt* _prepare(const std::string& sql);
  bool _bind(sqlite3_stmt* stmt, const Row& vars, const std::string& sql, bool isUpdate);
  int _step(sqlite3_stmt* stmt);
  void _logError(const std::string& sql);
  // When `rc` says the disk failed, ends the transaction and raises SaveError ("The collection
  // couldn't be <what>: <reason>."), so that no caller counts the work as done.
  void _raiseOnDiskFailure(int rc, const char* what);
  bool _begin();
  // Sets `mod`, opens the transaction and notes a removal of rows.
  void _beforeWrite(bool removesRows);

  std::string _path;
  sqlite3* _db = nullptr;
  std::recursive_mutex _lock;
  StatementCache _statements;
  // Goes up whenever rows may have left a table; stamps what _takenIds holds.
  uint64_t _removals = 0;
  std::map<std::string, std::pair<TakenIds, uint64_t>> _takenIds;
  // Open result sets, ended by close(); guarded by _lock.
  std::set<ResultSet*> _resultSets;
};

// Reads a column of the current row of a statement as a Value.
Value columnValue(sqlite3_stmt* stmt, int col);

}  // namespace rivo
