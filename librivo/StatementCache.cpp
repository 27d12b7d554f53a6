#include "librivo/StatementCache.h"

#include <sqlite3.h>

namespace rivo {

StatementCache::Entry* StatementCache::take(const std::string& sql) {
  auto it = _entries.find(sql);
  if (it == _entries.end() || it->second.lent) return nullptr;
  Entry& entry = it->second;
  entry.lent = true;
  _uses.splice(_uses.begin(), _uses, entry.use);
  return &entry;
}

StatementCache::Entry* StatementCache::add(const std::string& sql, sqlite3_stmt* stmt) {
  if (_capacity == 0) return nullptr;
  auto [it, added] = _entries.try_emplace(sql);
  if (!added) return nullptr;
  Entry& entry = it->second;
  entry.stmt = stmt;
  entry.lent = true;
  entry.sql = &it->first;
  _uses.push_front(&entry);
  entry.use = _uses.begin();
  _dropBeyondCapacity();
  return &entry;
}

void StatementCache::giveBack(Entry* entry) {
  sqlite3_reset(entry->stmt);
  sqlite3_clear_bindings(entry->stmt);
  entry->lent = false;
  _dropBeyondCapacity();
}

void StatementCache::_dropBeyondCapacity() {
  // Lent statements stay whatever their age; the cache shrinks back once they return.
  auto use = _uses.end();
  while (_entries.size() > _capacity && use != _uses.begin()) {
    Entry* entry = *--use;
    if (entry->lent) continue;
    sqlite3_finalize(entry->stmt);
    use = _uses.erase(use);
    _entries.erase(_entries.find(*entry->sql));
  }
}

void StatementCache::clear() {
  for (auto& [sql, entry] : _entries) sqlite3_finalize(entry.stmt);
  _entries.clear();
  _uses.clear();
}

}  // namespace rivo
