#pragma once
// The value a DB column or bound parameter holds: null, integer, double, text or blob.

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace rivo {

using Id = int64_t;

struct Null {
  bool operator==(const Null&) const = default;
};
using Blob = std::vector<uint8_t>;
using Value = std::variant<Null, int64_t, double, std::string, Blob>;
using Row = std::vector<Value>;

inline bool isNull(const Value& v) {
  return std::holds_alternative<Null>(v);
}

// Column values converted the way SQLite's affinity would read them.
int64_t toInt(const Value& v);
double toDouble(const Value& v);
std::string toText(const Value& v);

}  // namespace rivo
