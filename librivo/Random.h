#pragma once
// Random ids and draws, from the system's cryptographic source.

#include <cstdint>
#include <string>
#include <string_view>

namespace rivo {

// Digits of a-z A-Z 0-9 then `extra`, most significant first; 0 gives "".
std::string base62(uint64_t num, std::string_view extra = {});
// A random note guid of up to 10 characters.
std::string guid64();
// A version 4 UUID in upper-case hexadecimal, as "XXXXXXXX-XXXX-4XXX-XXXX-XXXXXXXXXXXX".
std::string randomUUID();
float randomBetween(float low, float high);

}  // namespace rivo
