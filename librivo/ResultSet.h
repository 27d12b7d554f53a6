#pragma once
// A read statement kept open between calls, so that a long table can be walked in pieces
// without reading it twice. Made by DB::executeQuery; owns its statement.
//
// Threads: the same as DB (each step takes the DB's lock). The DB must outlive the result
// set or be closed first; closing the DB ends every result set still open on it.

#include "librivo/Value.h"

struct sqlite3_stmt;

namespace rivo {

class DB;

class ResultSet {
 public:
  // Keeps `vars`: the statement's values stay bound to them while it steps.
  ResultSet(DB& db, sqlite3_stmt* stmt, Row vars) : _db(&db), _stmt(stmt), _vars(std::move(vars)) {}
  ~ResultSet();
  ResultSet(const ResultSet&) = delete;
  ResultSet& operator=(const ResultSet&) = delete;

  // Moves to the next row; false at the end, on an error, or once the DB has been closed.
  bool next();
  // The current row's columns.
  Row row() const;
  void close();

 private:
  friend class DB;
  // Called by DB::close, which finalizes the statement itself.
  void _detach() {
    _stmt = nullptr;
    _db = nullptr;
  }

  DB* _db;
  sqlite3_stmt* _stmt;
  const Row _vars;
};

}  // namespace rivo
