#include "app/Preferences.h"

#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <locale>
#include <sstream>

#include "librivo/Files.h"
#include "librivo/SysLog.h"

namespace rivo {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDateKey = "$date";

// Leading white space, then an optional sign: where a number's digits begin.
size_t skipToDigits(const std::string& s, bool* negative) {
  size_t i = 0;
  while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
  *negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) *negative = s[i++] == '-';
  return i;
}

}  // namespace

Preferences::Preferences(std::string path) : _path(std::move(path)) {
  _load();
}

Preferences::~Preferences() {
  synchronize();
}

void Preferences::_load() {
  std::error_code ec;
  if (!fs::exists(_path, ec)) return;
  std::ifstream in(_path, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  std::string error;
  Json parsed = in ? decodeJson(buffer.str(), &error) : Json();
  if (in && parsed.is_object()) {
    _values = std::move(parsed);
    return;
  }
  // Keep the damaged file for whoever wants to look at it, and go on with defaults.
  std::string aside = _path + ".bad";
  fs::rename(_path, aside, ec);
  sysLog("preferences at " + _path + " could not be read" + (error.empty() ? "" : ": " + error) +
         (ec ? "" : "; moved to " + aside));
}

Json Preferences::objectForKey(const std::string& key) const {
  std::lock_guard lock(_m);
  auto it = _values.find(key);
  return it == _values.end() ? Json() : *it;
}

bool Preferences::hasKey(const std::string& key) const {
  std::lock_guard lock(_m);
  return _values.contains(key);
}

void Preferences::setObject(const Json& value, const std::string& key) {
  if (value.is_null()) {
    removeObjectForKey(key);
    return;
  }
  std::lock_guard lock(_m);
  Json& stored = _values[key];
  // Setting what is already there changes nothing, so the next synchronize needn't write.
  if (stored.type() == value.type() && stored == value) return;
  stored = value;
  _dirty = true;
}

void Preferences::removeObjectForKey(const std::string& key) {
  std::lock_guard lock(_m);
  if (_values.erase(key)) _dirty = true;
}

std::vector<std::string> Preferences::keys() const {
  std::lock_guard lock(_m);
  std::vector<std::string> out;
  out.reserve(_values.size());
  for (const auto& [key, value] : _values.items()) out.push_back(key);
  return out;
}

Json Preferences::dictionaryRepresentation() const {
  std::lock_guard lock(_m);
  return _values;
}

std::string Preferences::stringValue(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
  if (value.is_number_integer()) return std::to_string(value.get<int64_t>());
  if (value.is_number()) return value.dump();
  return "";
}

int64_t Preferences::integerValue(const Json& value) {
  if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
  if (value.is_number_integer()) return value.get<int64_t>();
  if (value.is_number()) {
    double d = value.get<double>();
    if (std::isnan(d)) return 0;
    if (d >= 9.2e18) return std::numeric_limits<int64_t>::max();
    if (d <= -9.2e18) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(d);
  }
  if (!value.is_string()) return 0;
  // The digits at the start, as a settings store reads a string as a number: "182b" is 182.
  const std::string& s = value.get_ref<const std::string&>();
  bool negative = false;
  size_t i = skipToDigits(s, &negative);
  int64_t n = 0;
  for (; i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])); ++i) {
    int digit = s[i] - '0';
    if (n > (std::numeric_limits<int64_t>::max() - digit) / 10)
      return negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    n = n * 10 + digit;
  }
  return negative ? -n : n;
}

double Preferences::doubleValue(const Json& value) {
  if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
  if (value.is_number()) return value.get<double>();
  if (!value.is_string()) return 0;
  const std::string& s = value.get_ref<const std::string&>();
  std::istringstream in(s);
  in.imbue(std::locale::classic());
  double d = 0;
  return (in >> d) ? d : 0;
}

bool Preferences::boolValue(const Json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number_integer()) return value.get<int64_t>() != 0;
  if (value.is_number()) return value.get<double>() != 0;
  if (!value.is_string()) return false;
  // "Y", "y", "T", "t" or a digit 1 to 9 after any leading zeros; the rest is ignored.
  const std::string& s = value.get_ref<const std::string&>();
  bool negative = false;
  size_t i = skipToDigits(s, &negative);
  while (i < s.size() && s[i] == '0') ++i;
  if (i >= s.size()) return false;
  char c = s[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

Json Preferences::date(double seconds) {
  return Json{{kDateKey, seconds}};
}

std::optional<double> Preferences::dateValue(const Json& value) {
  if (!value.is_object() || value.size() != 1) return std::nullopt;
  auto it = value.find(kDateKey);
  if (it == value.end() || !it->is_number()) return std::nullopt;
  return it->get<double>();
}

bool Preferences::synchronize() {
  std::lock_guard writing(_writeLock);
  std::string text;
  {
    std::lock_guard lock(_m);
    if (!_dirty) return true;
    text = _values.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    _dirty = false;
  }
  if (_write(text)) return true;
  std::lock_guard lock(_m);
  _dirty = true;
  return false;
}

bool Preferences::_write(const std::string& text) {
  const fs::path dir = fs::path(_path).parent_path();
  std::error_code ec;
  if (!dir.empty()) fs::create_directories(dir, ec);
  std::string problem;
  // Only the owner reads it: it holds the sync key.
  if (writeFileAtomically(_path, text, 0600, &problem)) return true;
  sysLog("writing preferences failed: " + problem);
  return false;
}

}  // namespace rivo
