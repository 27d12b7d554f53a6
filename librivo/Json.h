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

// --- Reading values that files made elsewhere may hold in any JSON type ---
// None of these raises: a value of a type a reader doesn't take gives its fallback.

// Integer view of a number (truncated), a boolean or a decimal string.
int64_t jsonInt(const Json& value, int64_t fallback = 0);
// A number truncated to an integer; unlike jsonInt, strings and booleans give the fallback.
int64_t jsonNumberInt(const Json& value, int64_t fallback = 0);
// A number as a double.
double jsonNumber(const Json& value, double fallback = 0);
// A boolean, or a number that isn't 0; anything else is false.
bool jsonBool(const Json& value);
// As jsonBool, and text is true when its first non-blank is Y, y, T, t or a digit 1 to 9.
bool jsonTruth(const Json& value);
// The member `key` of an object; null when `obj` is no object or lacks it.
const Json& jsonMember(const Json& obj, const char* key);
// The same as a pointer: nullptr when missing (a member holding null is found).
const Json* jsonFind(const Json& obj, const char* key);
// The member `key` when it is a string, else an empty string.
const std::string& jsonText(const Json& obj, const char* key);
// An id as a dictionary key: a string as it is, a number in decimal (a fraction truncated);
// empty for anything else.
std::string jsonKey(const Json& id);

}  // namespace rivo
