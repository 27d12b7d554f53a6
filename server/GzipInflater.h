#pragma once
// Inflates a gzip stream as it arrives and hands the bytes on. Several gzip members one
// after the other (the sync client compresses each 1 MiB slice by itself) read as one
// stream. Used by one request on one thread.

#include <cstddef>
#include <functional>
#include <vector>

#include <zlib.h>

namespace rivo {

class GzipInflater {
 public:
  // Receives the inflated bytes; false stops the stream.
  using Sink = std::function<bool(const char* data, size_t size)>;

  explicit GzipInflater(Sink sink);
  ~GzipInflater();
  GzipInflater(const GzipInflater&) = delete;
  GzipInflater& operator=(const GzipInflater&) = delete;

  // False once the stream is damaged or the sink refused.
  bool feed(const char* data, size_t size);
  // True when the input ended at the end of a member (or held none at all).
  bool finish();

 private:
  Sink _sink;
  z_stream _z{};
  bool _ok = true;
  bool _midMember = false;
  std::vector<unsigned char> _out;
};

}  // namespace rivo
