#include "librivo/StatementCache.h"

#include <sqlite3.h>

namespace rivo {

sqlite3_stmt* StatementCache::take(const std::string& sql) {
  auto it = _entries.find(sql);
  if (it == _entries.end() || it->second.lent) return nullptr;
  Entry& entry = it->second;
  entry.lent = true;
  _uses.splice(_uses.begin(), _uses, entry.use);
  return entry.stmt;
}

void StatementCache::release(const std::string& sql, sqlite3_stmt* stmt) {
  sqlite3_reset(stmt);
  sqlite3_clear_bindings(stmt);
  auto it = _entries.find(sql);
  if (it != _entries.end()) {
    if (it->second.stmt == stmt)
      it->second.lent = false;
    else
      sqlite3_finalize(stmt);  // a second copy, made while the cached one was lent
    return;
  }
  if (_capacity == 0) {
    sqlite3_finalize(stmt);
    return;
  }
  auto [added, inserted] = _entries.emplace(sql, Entry{stmt, false, {}});
  _uses.push_front(&added->first);
  added->second.use = _uses.begin();
  _evictBeyondCapacity();
}

void StatementCache::_evictBeyondCapacity() {
  // Lent statements stay whatever their age; the cache shrinks back once they return.
  auto use = _uses.end();
  while (_entries.size() > _capacity && use != _uses.begin()) {
    --use;
    auto it = _entries.find(**use);
    if (it->second.lent) continue;
    sqlite3_finalize(it->second.stmt);
    use = _uses.erase(use);
    _entries.erase(it);
  }
}

void StatementCache::clear() {
  for (auto& [sql, entry] : _entries) sqlite3_finalize(entry.stmt);
  _entries.clear();
  _uses.clear();
}

}  // namespace rivo
