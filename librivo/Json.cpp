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

}  // namespace rivo
