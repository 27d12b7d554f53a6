#include "librivo/Compression.h"

#include <zlib.h>

#include <algorithm>
#include <climits>

namespace rivo {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kDeflateGrowth = 16384;
constexpr int kGzipWindow = 15 + 16;
constexpr int kAutoDetectWindow = 15 + 32;

enum class Wrapper { Gzip, Zlib };

bool tooLarge(size_t size) {
  return size > UINT_MAX;
}

Bytes deflateBytes(const uint8_t* data, size_t size, int level, Wrapper wrapper) {
  if (size == 0 || tooLarge(size)) return {};
  z_stream s{};
  const int init = wrapper == Wrapper::Gzip
                       ? deflateInit2(&s, level, Z_DEFLATED, kGzipWindow, 8, Z_DEFAULT_STRATEGY)
                       : deflateInit(&s, level);
  if (init != Z_OK) return {};
  s.next_in = const_cast<Bytes::value_type*>(data);
  s.avail_in = static_cast<uInt>(size);
  Bytes out;
  int rc = Z_OK;
  while (rc == Z_OK) {
    if (s.total_out >= out.size()) out.resize(out.size() + kDeflateGrowth);
    s.next_out = out.data() + s.total_out;
    s.avail_out = static_cast<uInt>(out.size() - s.total_out);
    rc = deflate(&s, Z_FINISH);
  }
  deflateEnd(&s);
  if (rc != Z_STREAM_END) return {};
  out.resize(s.total_out);
  return out;
}

Bytes inflateBytes(const uint8_t* data, size_t size, Wrapper wrapper) {
  if (size == 0 || tooLarge(size)) return {};
  z_stream s{};
  s.next_in = const_cast<Bytes::value_type*>(data);
  s.avail_in = static_cast<uInt>(size);
  const int init = wrapper == Wrapper::Gzip ? inflateInit2(&s, kAutoDetectWindow) : inflateInit(&s);
  if (init != Z_OK) return {};
  const size_t growth = std::max<size_t>(size / 2, 1);
  Bytes out(size + growth);
  int rc = Z_OK;
  while (rc == Z_OK) {
    if (s.total_out >= out.size()) out.resize(out.size() + growth);
    s.next_out = out.data() + s.total_out;
    s.avail_out = static_cast<uInt>(std::min<size_t>(out.size() - s.total_out, UINT_MAX));
    // A truncated stream stops making progress, which inflate reports as Z_BUF_ERROR.
    rc = inflate(&s, Z_SYNC_FLUSH);
  }
  inflateEnd(&s);
  if (rc != Z_STREAM_END) return {};
  out.resize(s.total_out);
  return out;
}

const uint8_t* bytesOf(std::string_view s) {
  return reinterpret_cast<const uint8_t*>(s.data());
}

std::string asString(const Bytes& b) {
  return std::string(b.begin(), b.end());
}

int gzipLevel(int level) {
  return level >= 1 && level <= 9 ? level : Z_DEFAULT_COMPRESSION;
}

}  // namespace

Bytes gzipDeflate(const Bytes& data, int level) {
  return deflateBytes(data.data(), data.size(), gzipLevel(level), Wrapper::Gzip);
}

std::string gzipDeflate(std::string_view data, int level) {
  return asString(deflateBytes(bytesOf(data), data.size(), gzipLevel(level), Wrapper::Gzip));
}

Bytes zlibDeflate(const Bytes& data) {
  return deflateBytes(data.data(), data.size(), Z_DEFAULT_COMPRESSION, Wrapper::Zlib);
}

std::string zlibDeflate(std::string_view data) {
  return asString(deflateBytes(bytesOf(data), data.size(), Z_DEFAULT_COMPRESSION, Wrapper::Zlib));
}

Bytes gzipInflate(const Bytes& data) {
  return inflateBytes(data.data(), data.size(), Wrapper::Gzip);
}

std::string gzipInflate(std::string_view data) {
  return asString(inflateBytes(bytesOf(data), data.size(), Wrapper::Gzip));
}

Bytes zlibInflate(const Bytes& data) {
  return inflateBytes(data.data(), data.size(), Wrapper::Zlib);
}

std::string zlibInflate(std::string_view data) {
  return asString(inflateBytes(bytesOf(data), data.size(), Wrapper::Zlib));
}

std::string hexadecimalString(std::string_view data) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(data.size() * 2);
  for (unsigned char c : data) {
    out += kDigits[c >> 4];
    out += kDigits[c & 0x0f];
  }
  return out;
}

std::string hexadecimalString(const Bytes& data) {
  return hexadecimalString(
      std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
}

}  // namespace rivo
