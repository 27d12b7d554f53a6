#pragma once
// A failure told to the user: where it arose and what to say.

#include <string>

namespace rivo {

struct Error {
  std::string domain;
  int code = 1;
  std::string message;
};

inline Error errorWithMessage(const std::string& domain, const std::string& message) {
  return Error{domain, 1, message};
}

}  // namespace rivo
