#pragma once
// Prepared statements of one connection kept for reuse, keyed by their SQL text.
//
// Owned by the DB of that connection, which calls it only under its own lock; the cache has
// no lock of its own. Holds at most `capacity` idle statements, dropping the least recently
// used; a statement handed out is the borrower's until it comes back through release(). Every
// statement it holds is reset, so none keeps a read open or a lock on the file.

#include <cstddef>
#include <list>
#include <string>
#include <unordered_map>

struct sqlite3_stmt;

namespace rivo {

class StatementCache {
 public:
  explicit StatementCache(size_t capacity) : _capacity(capacity) {}
  ~StatementCache() { clear(); }
  StatementCache(const StatementCache&) = delete;
  StatementCache& operator=(const StatementCache&) = delete;

  // The idle statement prepared from `sql`, now lent out; null when there is none (never
  // prepared, evicted, or lent out already, as when a row callback runs the same SQL).
  sqlite3_stmt* take(const std::string& sql);
  // Hands back a statement that take() lent, or adds one freshly prepared from `sql`: it is
  // reset and its bindings cleared. A statement the cache has no room for is finalized.
  void release(const std::string& sql, sqlite3_stmt* stmt);
  // Finalizes every statement; those lent out must have come back first.
  void clear();

  size_t size() const { return _entries.size(); }

 private:
  struct Entry {
    sqlite3_stmt* stmt = nullptr;
    bool lent = false;
    std::list<const std::string*>::iterator use;  // its place in _uses
  };

  void _evictBeyondCapacity();

  size_t _capacity;
  std::unordered_map<std::string, Entry> _entries;
  // The keys of _entries from the most to the least recently used.
  std::list<const std::string*> _uses;
};

}  // namespace rivo
