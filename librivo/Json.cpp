#include "librivo/Json.h"

#include <cstdlib>

#include "librivo/SysLog.h"

namespace rivo {

Json decodeJson(const std::string& text, std::string* error) {
  try {
    return Json::parse(text);
  } catch (const std::exception& e) {
    if (error) {
      *error = e.what();
      return Json();
    }
    sysLog(std::string("failed to decode json: ") + e.what() + " " + text.substr(0, 200));
    throw JsonError(std::string("failed to decode json: ") + e.what());
  }
}

std::string jsonString(const Json& value, std::string* error) {
  try {
    return value.dump();
  } catch (const std::exception& e) {
    if (error) {
      *error = e.what();
      return {};
    }
    sysLog(std::string("failed to encode json: ") + e.what());
    throw JsonError(std::string("failed to encode json: ") + e.what());
  }
}

int64_t jsonInt(const Json& value, int64_t fallback) {
  if (value.is_number_integer()) return value.get<int64_t>();
  if (value.is_number_float()) return static_cast<int64_t>(value.get<double>());
  if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
  if (value.is_string()) {
    const std::string& s = value.get_ref<const std::string&>();
    char* end = nullptr;
    long long v = std::strtoll(s.c_str(), &end, 10);
    return end == s.c_str() ? fallback : v;
  }
  return fallback;
}

int64_t jsonNumberInt(const Json& value, int64_t fallback) {
  if (value.is_number_integer()) return value.get<int64_t>();
  if (value.is_number()) return static_cast<int64_t>(value.get<double>());
  return fallback;
}

double jsonNumber(const Json& value, double fallback) {
  return value.is_number() ? value.get<double>() : fallback;
}

bool jsonBool(const Json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number()) return value.get<double>() != 0;
  return false;
}

bool jsonTruth(const Json& value) {
  if (!value.is_string()) return jsonBool(value);
  const std::string& s = value.get_ref<const std::string&>();
  const size_t i = s.find_first_not_of(" \t\n");
  if (i == std::string::npos) return false;
  const char c = s[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

const Json* jsonFind(const Json& obj, const char* key) {
  if (!obj.is_object()) return nullptr;
  auto it = obj.find(key);
  return it == obj.end() ? nullptr : &*it;
}

const Json& jsonMember(const Json& obj, const char* key) {
  static const Json null;
  const Json* found = jsonFind(obj, key);
  return found ? *found : null;
}

const std::string& jsonText(const Json& obj, const char* key) {
  static const std::string none;
  const Json& v = jsonMember(obj, key);
  return v.is_string() ? v.get_ref<const std::string&>() : none;
}

std::string jsonKey(const Json& id) {
  if (id.is_string()) return id.get<std::string>();
  if (id.is_number_unsigned()) return std::to_string(id.get<uint64_t>());
  if (id.is_number_integer()) return std::to_string(id.get<int64_t>());
  if (id.is_number_float()) return std::to_string(static_cast<int64_t>(id.get<double>()));
  return {};
}

}  // namespace rivo
