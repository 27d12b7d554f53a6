#include "librivo/Compression.h"

#include <gtest/gtest.h>

namespace rivo {
namespace {

std::vector<uint8_t> bytes(const std::string& s) {
  return {s.begin(), s.end()};
}

// Larger than one 16 KB output step even when compressed, and not trivially repetitive.
std::string sampleText() {
  std::string s;
  for (int i = 0; i < 20000; ++i) s += std::to_string(i * 7919 % 10007) + (i % 3 ? " " : "\n");
  return s;
}

TEST(Compression, RoundTripsAndInflateDetectsZlibButZlibInflateRefusesGzip) {
  const auto data = bytes(sampleText());
  for (int level : {1, 9, 0, 10, -1}) {
    const auto packed = gzipDeflate(data, level);
    ASSERT_GE(packed.size(), 2u) << level;
    EXPECT_EQ(packed[0], 0x1f);
    EXPECT_EQ(packed[1], 0x8b);
    EXPECT_EQ(gzipInflate(packed), data) << level;
  }

  const std::string text = sampleText();
  const std::string zlib = zlibDeflate(text);
  ASSERT_FALSE(zlib.empty());
  EXPECT_EQ(static_cast<uint8_t>(zlib[0]), 0x78);
  EXPECT_EQ(gzipInflate(zlib), text);
  EXPECT_EQ(zlibInflate(zlib), text);
  EXPECT_EQ(zlibInflate(gzipDeflate(text, 6)), "");
  // Inflating grows far beyond the input.
  const std::string zeros(1 << 20, '\0');
  const std::string packed = gzipDeflate(zeros, 9);
  ASSERT_LT(packed.size(), 2000u);
  EXPECT_EQ(gzipInflate(packed), zeros);
}

TEST(Compression, EmptyAndBrokenInputGiveEmpty) {
  EXPECT_TRUE(gzipDeflate(std::vector<uint8_t>{}, 6).empty());
  EXPECT_TRUE(zlibDeflate(std::vector<uint8_t>{}).empty());
  EXPECT_TRUE(gzipInflate(std::vector<uint8_t>{}).empty());
  EXPECT_TRUE(zlibInflate(std::vector<uint8_t>{}).empty());
  EXPECT_EQ(gzipInflate("not compressed at all"), "");
  std::string truncated = gzipDeflate(sampleText(), 6);
  truncated.resize(truncated.size() / 2);
  EXPECT_EQ(gzipInflate(truncated), "");
  EXPECT_EQ(hexadecimalString(std::vector<uint8_t>{0x00, 0x0f, 0xab, 0xff}), "000fabff");
}

}  // namespace
}  // namespace rivo
