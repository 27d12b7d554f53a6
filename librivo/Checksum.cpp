#include "librivo/Checksum.h"

#include <openssl/evp.h>

#include <array>
#include <cctype>
#include <memory>
#include <stdexcept>

#include "librivo/Compression.h"
#include "librivo/FieldText.h"

namespace rivo {

namespace {

using Sha1Digest = std::array<uint8_t, 20>;

Sha1Digest sha1(const void* data, size_t size) {
  // Fetched once: an implicit fetch on each call costs more than hashing a short field.
  static const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> md(
      EVP_MD_fetch(nullptr, "SHA1", nullptr), &EVP_MD_free);
  Sha1Digest digest{};
  unsigned int length = 0;
  if (!md || EVP_Digest(data, size, digest.data(), &length, md.get(), nullptr) != 1 ||
      length != digest.size())
    throw std::runtime_error("SHA-1 failed");
  return digest;
}

std::string sha1Hex(const void* data, size_t size) {
  const Sha1Digest d = sha1(data, size);
  return hexadecimalString(std::string_view(reinterpret_cast<const char*>(d.data()), d.size()));
}

}  // namespace

std::string checksum(std::string_view text) {
  return sha1Hex(text.data(), text.size());
}

std::string checksum(const std::vector<uint8_t>& bytes) {
  return sha1Hex(bytes.data(), bytes.size());
}

int64_t fieldChecksum(const std::string& field) {
  // The first 8 hexadecimal digits of the checksum are its first 4 bytes, big-endian.
  const std::string text = stripHTMLMedia(field);
  const Sha1Digest d = sha1(text.data(), text.size());
  return (int64_t{d[0]} << 24) | (int64_t{d[1]} << 16) | (int64_t{d[2]} << 8) | int64_t{d[3]};
}

std::string hexToDecimal(std::string_view hex) {
  size_t i = 0;
  while (i < hex.size() && std::isspace(static_cast<unsigned char>(hex[i]))) ++i;
  if (hex.substr(i, 2) == "0x" || hex.substr(i, 2) == "0X") i += 2;
  uint64_t value = 0;
  bool any = false;
  for (; i < hex.size() && std::isxdigit(static_cast<unsigned char>(hex[i])); ++i) {
    const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(hex[i])));
    const uint64_t digit = c <= '9' ? c - '0' : c - 'a' + 10;
    // Too many digits saturate rather than wrap.
    value = value > (UINT64_MAX - digit) / 16 ? UINT64_MAX : value * 16 + digit;
    any = true;
  }
  return any ? std::to_string(value) : "0";
}

}  // namespace rivo
