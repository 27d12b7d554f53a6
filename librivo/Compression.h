#pragma once
// gzip and zlib streams for the sync transport, and hexadecimal text of bytes.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace rivo {

// Each returns empty for empty input and on any error.

// A gzip stream; a level outside 1 to 9 means zlib's default level.
std::vector<uint8_t> gzipDeflate(const std::vector<uint8_t>& data, int level);
std::string gzipDeflate(std::string_view data, int level);
// A zlib stream at the default level.
std::vector<uint8_t> zlibDeflate(const std::vector<uint8_t>& data);
std::string zlibDeflate(std::string_view data);
// Inflates a gzip or a zlib stream, whichever it is.
std::vector<uint8_t> gzipInflate(const std::vector<uint8_t>& data);
std::string gzipInflate(std::string_view data);
// Inflates a zlib stream only.
std::vector<uint8_t> zlibInflate(const std::vector<uint8_t>& data);
std::string zlibInflate(std::string_view data);

// Two lowercase digits per byte.
std::string hexadecimalString(const std::vector<uint8_t>& data);
std::string hexadecimalString(std::string_view data);

}  // namespace rivo
