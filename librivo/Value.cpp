#include "librivo/Value.h"

#include <cstdlib>

namespace rivo {

int64_t toInt(const Value& v) {
  if (auto i = std::get_if<int64_t>(&v)) return *i;
  if (auto d = std::get_if<double>(&v)) return static_cast<int64_t>(*d);
  if (auto s = std::get_if<std::string>(&v)) return std::strtoll(s->c_str(), nullptr, 10);
  return 0;
}

double toDouble(const Value& v) {
  if (auto i = std::get_if<int64_t>(&v)) return static_cast<double>(*i);
  if (auto d = std::get_if<double>(&v)) return *d;
  if (auto s = std::get_if<std::string>(&v)) return std::strtod(s->c_str(), nullptr);
  return 0;
}

std::string toText(const Value& v) {
  if (auto i = std::get_if<int64_t>(&v)) return std::to_string(*i);
  if (auto d = std::get_if<double>(&v)) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.17g", *d);
    return buf;
  }
  if (auto s = std::get_if<std::string>(&v)) return *s;
  if (auto b = std::get_if<Blob>(&v)) return std::string(b->begin(), b->end());
  return {};
}

}  // namespace rivo
