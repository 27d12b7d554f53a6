#pragma once
// Work that could not be made durable. Whoever raises it leaves the file at its last
// committed state; the command line exits 1 with the message, the application shows it.

#include <stdexcept>
#include <string>

#include "librivo/Json.h"

namespace rivo {

class SaveError : public std::runtime_error {
 public:
  explicit SaveError(const std::string& reason) : std::runtime_error(reason) {}
};

// Encoding of a blob about to be written: text that can't be encoded raises SaveError
// naming `what`, so that an empty blob is never written over the stored one.
std::string savedJson(const Json& value, const std::string& what);

}  // namespace rivo
