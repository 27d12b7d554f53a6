#pragma once
// JSON decoding and encoding of the collection's blobs, with the program's error handling.

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace rivo {

using Json = nlohmann::json;

// Raised where the program would stop: JSON it cannot decode or encode and nobody asked why.
class JsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Parses UTF-8 text. With `error` given, a failure fills it and returns null; without, it
// logs "failed to decode json: ..." and raises JsonError.
Json decodeJson(const std::string& text, std::string* error = nullptr);

// Compact encoding. Invalid UTF-8 inside strings is a failure handled as in decodeJson.
std::string jsonString(const Json& value, std::string* error = nullptr);

// Integer view of a value that files from elsewhere may hold as a number or a decimal string.
int64_t jsonInt(const Json& value, int64_t fallback = 0);

}  // namespace rivo
