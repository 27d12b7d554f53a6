#pragma once
// Prepared statements of one connection kept for reuse, keyed by their SQL text.
//
// Owned by the DB of that connection, which calls it only under its own lock; the cache has
// no lock of its own. Holds at most `capacity` statements, dropping the least recently used
// idle one; a statement lent out is the borrower's until it comes back through giveBack().
// Every statement it holds idle is reset, so none keeps a read open or a lock on the file.

#include <cstddef>
#include <list>
#include <string>
#include <unordered_map>

struct sqlite3_stmt;

namespace rivo {

class StatementCache {
 public:
  struct Entry {
    sqlite3_stmt* stmt = nullptr;
    bool lent = false;
    const std::string* sql = nullptr;  // its key
    std::list<Entry*>::iterator use;   // its place in the order of use
  };

  explicit StatementCache(size_t capacity) : _capacity(capacity) {}
  ~StatementCache() { clear(); }
  StatementCache(const StatementCache&) = delete;
  StatementCache& operator=(const StatementCache&) = delete;

  // The idle statement prepared from `sql`, now lent out; null when there is none (never
  // prepared, dropped, or lent out already, as when a row callback runs the same SQL).
  Entry* take(const std::string& sql);
  // Keeps a statement freshly prepared from `sql`, lent out to the caller as take() would;
  // null (and the caller keeps it) when `sql` has an entry already.
  Entry* add(const std::string& sql, sqlite3_stmt* stmt);
  // Ends a loan: the statement is reset and its bindings cleared.
  void giveBack(Entry* entry);
  // Finalizes every statement; none may be lent out.
  void clear();

  size_t size() const { return _entries.size(); }

 private:
  void _dropBeyondCapacity();

  size_t _capacity;
  std::unordered_map<std::string, Entry> _entries;
  // The entries from the most to the least recently used.
  std::list<Entry*> _uses;
};

}  // namespace rivo
