#pragma once
// Records every statement run on a connection, so a benchmark can replay the same SQL bare.

#include <sqlite3.h>

#include <string>
#include <vector>

namespace rivo::bench {

class SqlRecorder {
 public:
  struct Statement {
    std::string unexpanded;  // as prepared, with its placeholders
    std::string expanded;    // its parameters written in as literals
  };

  explicit SqlRecorder(sqlite3* db) : _db(db) {
    sqlite3_trace_v2(_db, SQLITE_TRACE_STMT, &SqlRecorder::onStatement, this);
  }
  ~SqlRecorder() { stop(); }
  SqlRecorder(const SqlRecorder&) = delete;
  SqlRecorder& operator=(const SqlRecorder&) = delete;

  // Ends the recording; the connection may be closed only after this (or the destructor).
  void stop() {
    if (_db) sqlite3_trace_v2(_db, 0, nullptr, nullptr);
    _db = nullptr;
  }

  const std::vector<Statement>& statements() const { return _statements; }
  size_t size() const { return _statements.size(); }
  std::vector<std::string> expanded() const {
    std::vector<std::string> out;
    out.reserve(_statements.size());
    for (const Statement& s : _statements) out.push_back(s.expanded);
    return out;
  }

 private:
  static int onStatement(unsigned, void* self, void* stmt, void* text) {
    const char* unexpanded = static_cast<const char*>(text);
    if (unexpanded && unexpanded[0] == '-' && unexpanded[1] == '-') return 0;  // a trigger
    auto* statement = static_cast<sqlite3_stmt*>(stmt);
    char* expanded = sqlite3_expanded_sql(statement);
    static_cast<SqlRecorder*>(self)->_statements.push_back(
        {sqlite3_sql(statement), expanded ? expanded : unexpanded});
    sqlite3_free(expanded);
    return 0;
  }

  sqlite3* _db;
  std::vector<Statement> _statements;
};

}  // namespace rivo::bench
