#pragma once
// The device's key-value store: one JSON object in DIR/Preferences.json. Values are JSON
// strings, numbers, booleans, arrays and objects; a date is stored as {"$date": seconds since
// 1970}. Changes live in memory until synchronize(), which replaces the file atomically
// (temporary file, fsync, rename). Safe to use from any thread.

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "librivo/Json.h"

namespace rivo {

class Preferences {
 public:
  // Reads the file if there is one. A file that isn't a JSON object is moved aside to
  // "Preferences.json.bad" (replacing an older one) and the store starts empty.
  explicit Preferences(std::string path);
  // Writes what hasn't been synchronised yet.
  ~Preferences();
  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;

  const std::string& path() const { return _path; }

  // Null when absent.
  Json objectForKey(const std::string& key) const;
  bool hasKey(const std::string& key) const;
  // Setting null removes the key.
  void setObject(const Json& value, const std::string& key);
  void removeObjectForKey(const std::string& key);
  // Every key, sorted.
  std::vector<std::string> keys() const;
  Json dictionaryRepresentation() const;

  // Typed reads, converting the way a settings store is expected to: a string "182" is the
  // integer 182, "YES"/"true"/"1" are true, a number reads as a string. Absent: 0, false, "".
  std::string stringForKey(const std::string& key) const { return stringValue(objectForKey(key)); }
  int64_t integerForKey(const std::string& key) const { return integerValue(objectForKey(key)); }
  double doubleForKey(const std::string& key) const { return doubleValue(objectForKey(key)); }
  bool boolForKey(const std::string& key) const { return boolValue(objectForKey(key)); }
  std::optional<double> dateForKey(const std::string& key) const {
    return dateValue(objectForKey(key));
  }
  void setDate(double seconds, const std::string& key) { setObject(date(seconds), key); }

  static std::string stringValue(const Json& value);
  static int64_t integerValue(const Json& value);
  static double doubleValue(const Json& value);
  static bool boolValue(const Json& value);
  static Json date(double seconds);
  static std::optional<double> dateValue(const Json& value);

  // Writes the file if anything changed since the last write. False when writing failed
  // (the reason goes to the system log); the changes stay pending.
  bool synchronize();

 private:
  void _load();
  bool _write(const std::string& text);

  std::string _path;
  // `_writeLock` keeps writes of the file one at a time and is taken first; `_m` guards
  // `_values` and `_dirty` and is never held across the write itself.
  mutable std::mutex _m;
  std::mutex _writeLock;
  Json _values = Json::object();
  bool _dirty = false;
};

}  // namespace rivo
