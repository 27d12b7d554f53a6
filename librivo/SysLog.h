#pragma once
// Messages for the system log (not the collection's debug log): syslog, and stderr when asked.

#include <string>

namespace rivo {

// Writes one line to syslog; also to standard error when RIVO_VERBOSE is set.
void sysLog(const std::string& line);

}  // namespace rivo
