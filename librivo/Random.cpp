#include "librivo/Random.h"

#include <openssl/rand.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace rivo {

namespace {

constexpr std::string_view kBase62Alphabet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr std::string_view kGuidExtra = "!#$%&()*+,-./:;<=>?@[]^_`{|}~";

}  // namespace

std::string base62(uint64_t num, std::string_view extra) {
  std::string table(kBase62Alphabet);
  table += extra;
  const uint64_t base = table.size();
  std::string digits;
  while (num > 0) {
    digits += table[num % base];
    num /= base;
  }
  return std::string(digits.rbegin(), digits.rend());
}

std::string guid64() {
  uint64_t n = 0;
  if (RAND_bytes(reinterpret_cast<unsigned char*>(&n), sizeof n) != 1)
    throw std::runtime_error("random number source failed");
  return base62(n, kGuidExtra);
}

std::string randomUUID() {
  std::array<unsigned char, 16> b{};
  if (RAND_bytes(b.data(), static_cast<int>(b.size())) != 1)
    throw std::runtime_error("random number source failed");
  b[6] = static_cast<unsigned char>((b[6] & 0x0f) | 0x40);
  b[8] = static_cast<unsigned char>((b[8] & 0x3f) | 0x80);
  char out[37];
  std::snprintf(out, sizeof out,
                "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14],
                b[15]);
  return out;
}

float randomBetween(float low, float high) {
  // The width of the range in thousandths, so that every device draws from the same values.
  const int64_t n = static_cast<int64_t>((high - low) * 1000.0);
  // A reversed range has nothing to draw from; callers never pass one.
  if (n <= 0) return high;
  const float draw = static_cast<float>(static_cast<int64_t>(arc4random() % n));
  return (low * 1000.0f + draw) / 1000.0f;
}

}  // namespace rivo
