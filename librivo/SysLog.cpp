#include "librivo/SysLog.h"

#include <syslog.h>

#include <cstdio>
#include <cstdlib>

namespace rivo {

void sysLog(const std::string& line) {
  syslog(LOG_USER | LOG_INFO, "rivo: %s", line.c_str());
  static const bool verbose = std::getenv("RIVO_VERBOSE") != nullptr;
  if (verbose) std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace rivo
