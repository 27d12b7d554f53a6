#pragma once
// printf into a std::string of any length, for texts built from a printf-style format.

#include <string>

namespace rivo {

std::string stringWithFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace rivo
