#include "librivo/ZipWriter.h"

#include <minizip/zip.h>

#include <algorithm>
#include <ctime>

namespace rivo {

ZipWriter::ZipWriter(const std::string& path) : _path(path) {
  _zip = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
  if (!_zip) _error = "couldn't create the zip file " + path;
}

ZipWriter::~ZipWriter() {
  if (_zip) zipClose(_zip, nullptr);
}

bool ZipWriter::_fail(const std::string& what, int code) {
  if (_error.empty()) _error = what + " (zip error " + std::to_string(code) + ") in " + _path;
  return false;
}

bool ZipWriter::add(const std::string& name, std::string_view bytes, int level) {
  if (!ok()) return false;
  zip_fileinfo info{};
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  info.tmz_date.tm_sec = local.tm_sec;
  info.tmz_date.tm_min = local.tm_min;
  info.tmz_date.tm_hour = local.tm_hour;
  info.tmz_date.tm_mday = local.tm_mday;
  info.tmz_date.tm_mon = local.tm_mon;
  info.tmz_date.tm_year = local.tm_year + 1900;
  const int method = level == 0 ? 0 : Z_DEFLATED;
  const int zip64 = bytes.size() >= 0xffffffffu ? 1 : 0;
  int rc = zipOpenNewFileInZip64(_zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, method,
                                 level, zip64);
  if (rc != ZIP_OK) return _fail("couldn't add the entry " + name, rc);
  // zipWriteInFileInZip takes an unsigned int length: large entries go in pieces.
  constexpr size_t kPiece = 1 << 30;
  for (size_t at = 0; at < bytes.size() && rc == ZIP_OK; at += kPiece) {
    const size_t n = std::min(kPiece, bytes.size() - at);
    rc = zipWriteInFileInZip(_zip, bytes.data() + at, static_cast<unsigned>(n));
  }
  const int closed = zipCloseFileInZip(_zip);
  if (rc != ZIP_OK) return _fail("couldn't write the entry " + name, rc);
  if (closed != ZIP_OK) return _fail("couldn't finish the entry " + name, closed);
  return true;
}

bool ZipWriter::close() {
  if (!_zip) return false;
  const int rc = zipClose(_zip, nullptr);
  _zip = nullptr;
  if (rc != ZIP_OK) return _fail("couldn't finish the zip file", rc);
  return _error.empty();
}

}  // namespace rivo
