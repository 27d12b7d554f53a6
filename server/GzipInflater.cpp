#include "server/GzipInflater.h"

namespace rivo {

GzipInflater::GzipInflater(Sink sink) : _sink(std::move(sink)), _out(64 * 1024) {
  _ok = inflateInit2(&_z, 16 + MAX_WBITS) == Z_OK;
}

GzipInflater::~GzipInflater() {
  inflateEnd(&_z);
}

bool GzipInflater::feed(const char* data, size_t size) {
  if (!_ok) return false;
  _z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
  _z.avail_in = static_cast<uInt>(size);
  while (_z.avail_in > 0) {
    // A new member begins where the last one ended.
    if (!_midMember && inflateReset(&_z) != Z_OK) return _ok = false;
    _midMember = true;
    _z.next_out = _out.data();
    _z.avail_out = static_cast<uInt>(_out.size());
    int rc = inflate(&_z, Z_NO_FLUSH);
    if (rc != Z_OK && rc != Z_STREAM_END && rc != Z_BUF_ERROR) return _ok = false;
    size_t produced = _out.size() - _z.avail_out;
    if (produced && !_sink(reinterpret_cast<const char*>(_out.data()), produced))
      return _ok = false;
    if (rc == Z_STREAM_END) _midMember = false;
    // No progress at all means more input is needed, which the loop condition handles.
    if (rc == Z_BUF_ERROR && produced == 0 && _z.avail_in > 0) return _ok = false;
  }
  // Output may still be pending inside zlib for this input.
  while (_midMember) {
    _z.next_out = _out.data();
    _z.avail_out = static_cast<uInt>(_out.size());
    int rc = inflate(&_z, Z_NO_FLUSH);
    size_t produced = _out.size() - _z.avail_out;
    if (produced && !_sink(reinterpret_cast<const char*>(_out.data()), produced))
      return _ok = false;
    if (rc == Z_STREAM_END) _midMember = false;
    if (rc != Z_OK || produced == 0) {
      if (rc != Z_OK && rc != Z_STREAM_END && rc != Z_BUF_ERROR) return _ok = false;
      break;
    }
  }
  return true;
}

bool GzipInflater::finish() {
  return _ok && !_midMember;
}

}  // namespace rivo
