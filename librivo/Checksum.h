#pragma once
// SHA-1 checksums of text and files, and the field checksum notes store.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace rivo {

// SHA-1 as 40 lowercase hexadecimal digits.
std::string checksum(std::string_view text);
std::string checksum(const std::vector<uint8_t>& bytes);
// The notes.csum value: the first 32 bits of the checksum of the field's visible text.
int64_t fieldChecksum(const std::string& field);
// "%llu" of the hexadecimal number; "0" when the text holds no hexadecimal digit.
std::string hexToDecimal(std::string_view hex);

}  // namespace rivo
