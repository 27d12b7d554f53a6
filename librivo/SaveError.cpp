#include "librivo/SaveError.h"

#include "librivo/SysLog.h"

namespace rivo {

std::string savedJson(const Json& value, const std::string& what) {
  std::string error;
  std::string text = jsonString(value, &error);
  if (!error.empty()) {
    sysLog("failed to encode " + what + ": " + error);
    throw SaveError("The " + what + " couldn't be saved: they hold text that isn't valid UTF-8.");
  }
  return text;
}

}  // namespace rivo
